// Ogg Opus: start, end, gain and damaged pages.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/ogg_bytes.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tarn_cli
{

namespace
{

constexpr int kOpus = SF_FORMAT_OGG | SF_FORMAT_OPUS;
constexpr int kRate = 48000;
constexpr std::size_t kSlots = 3;   ///< of the default layout: FL FR FC
constexpr std::size_t kHeaders = 2; ///< pages before the audio

std::string joined(const std::vector<std::string>& pages)
{
    return std::accumulate(pages.begin(), pages.end(), std::string());
}

/// Number of pre-skip frames at the start of a stream.
std::size_t preSkipOf(const std::string& firstPage)
{
    const std::size_t head = firstPage.find("OpusHead");
    const auto byte = [&](std::size_t i) -> std::size_t { return static_cast<unsigned char>(firstPage[head + i]); };
    return byte(10) + 256 * byte(11);
}

} // namespace

class Opus : public CommandTest
{
protected:
    /// Writes noise quiet enough that no decoder exceeds full scale. Returns its pages.
    std::vector<std::string> writeNoise(std::size_t frames, int rate = kRate) const
    {
        std::vector<float> samples;
        for (const std::int32_t sample : stereoNoise(frames, 16))
            samples.push_back(static_cast<float>(sample) * 0x1p-33f);
        writeFloats(at("in.opus"), kOpus, rate, 2, samples);
        return pagesOf(bytesOf(at("in.opus")));
    }

    /// Decodes these bytes as a file.
    Samples decoded(const std::string& opus, std::string* errors = nullptr, int exitCode = 0) const
    {
        writeBytes(at("some.opus"), opus);
        const Result result = tarn({"upmix", "--force", "--bypass", "some.opus", "out.wav"});
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        if (errors != nullptr) *errors = result.errors;
        return readAudio(at("out.wav")).samples;
    }
};

TEST_F(Opus, DamagedPageBecomesSilenceInPlace)
{
    const std::vector<std::string> pages = writeNoise(6 * kRate);
    const Samples whole = decoded(joined(pages));
    ASSERT_EQ(whole.size(), kSlots * 6 * kRate);
    const std::size_t preSkip = preSkipOf(pages.front());
    for (const std::size_t lost : {kHeaders, std::size_t{4}}) {
        std::vector<std::string> bad = pages;
        bad[lost] = withBitFlipped(bad[lost], bad[lost].size() / 2);
        const std::size_t begin = positionOf(pages[lost - 1]) - (lost > kHeaders ? preSkip : 0);
        const std::size_t end = positionOf(pages[lost]) - preSkip;
        std::string errors;
        const Samples output = decoded(joined(bad), &errors, end - begin >= kRate ? 1 : 0);
        EXPECT_NE(errors.find(": " + std::to_string(end - begin) + " frames are damaged and become silence"),
                  std::string::npos)
            << errors;
        ASSERT_EQ(output.size(), whole.size());
        const auto at = [](const Samples& samples, std::size_t frame) {
            return samples.begin() + static_cast<std::ptrdiff_t>(kSlots * frame);
        };
        EXPECT_TRUE(std::equal(output.begin(), at(output, begin), whole.begin()));
        EXPECT_TRUE(std::all_of(at(output, begin), at(output, end), [](std::int32_t s) { return s == 0; }));
        // The decoder has converged again after a second.
        EXPECT_TRUE(std::equal(at(output, end + kRate), output.end(), at(whole, end + kRate)));
    }
}

TEST_F(Opus, LastPageKeepsItsPlaceBehindADamagedPage)
{
    std::vector<std::string> pages = writeNoise(6 * kRate);
    const Samples whole = decoded(joined(pages));
    std::string& lost = pages[pages.size() - 2];
    lost = withBitFlipped(lost, lost.size() / 2);
    const Samples output = decoded(joined(pages));
    ASSERT_EQ(output.size(), whole.size());
    // The difference from the complete file converges below -40 dB. Misplaced audio would differ by more than 0 dB.
    double error = 0.0;
    double power = 0.0;
    for (std::size_t i = whole.size() - kSlots * 2400; i < whole.size(); ++i) {
        error += std::pow(static_cast<double>(output[i]) - whole[i], 2);
        power += std::pow(static_cast<double>(whole[i]), 2);
    }
    EXPECT_LT(error, power * 1e-4);
}

TEST_F(Opus, DamagedTagsLoseNoAudio)
{
    std::vector<std::string> pages = writeNoise(kRate);
    const Samples whole = decoded(joined(pages));
    pages[1] = withBitFlipped(pages[1], 40);
    std::string errors;
    EXPECT_TRUE(decoded(joined(pages), &errors) == whole);
    EXPECT_NE(errors.find("is cut short or damaged: some of its packets are damaged"), std::string::npos) << errors;
}

TEST_F(Opus, LateStartAddsNoSilence)
{
    std::vector<std::string> pages = writeNoise(6 * kRate);
    const std::size_t before = positionOf(pages[3]);
    const std::size_t frames = positionOf(pages.back()) - before - preSkipOf(pages.front());
    pages.erase(pages.begin() + kHeaders, pages.begin() + 4);
    std::string errors;
    EXPECT_EQ(decoded(renumbered(pages), &errors).size(), kSlots * frames);
    EXPECT_EQ(errors.find("damaged"), std::string::npos) << errors;
}

TEST_F(Opus, AudioIsAlwaysAt48Kilohertz)
{
    const std::vector<std::string> pages = writeNoise(8000, 8000);
    decoded(joined(pages));
    const SF_INFO info = readAudio(at("out.wav")).info;
    EXPECT_EQ(info.samplerate, kRate);
    EXPECT_EQ(info.frames, kRate);
}

TEST_F(Opus, HeaderGainIsApplied)
{
    std::vector<std::string> pages = writeNoise(kRate);
    const Samples whole = decoded(joined(pages));
    const std::size_t gain = pages.front().find("OpusHead") + 16;
    pages.front()[gain] = 0;
    pages.front()[gain + 1] = -20; // dB
    const Samples quiet = decoded(renumbered(pages));
    ASSERT_EQ(quiet.size(), whole.size());
    // libopus applies the gain in single precision, and both results are rounded to 24 bits.
    for (std::size_t i = 0; i < whole.size(); ++i)
        ASSERT_NEAR(quiet[i], whole[i] * 0.1, 512.0 + std::abs(whole[i]) * 1e-6) << i;
}

} // namespace tarn_cli
