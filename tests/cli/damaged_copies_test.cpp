// Flipped bits and cuts in copies of every format, written to a file and to a pipe: each is told, or does no harm.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr int kRate = 48000;
constexpr std::size_t kFrames = 2 * kRate;

/// What a format tells about damage.
enum class Told
{
    Always,
    Headers, ///< MPEG: only damage of the bits that the frames share, and of the index
    Never    ///< PCM
};

struct Format
{
    const char* name;
    const char* options; ///< of ffmpeg
    bool toPipe;         ///< the encoder cannot return to the header, so most formats declare no length
    Told flips;
    Told cuts;
    double kept; ///< least share of samples that a flipped bit leaves unchanged; a lost frame of MPEG moves the rest

    bool isOgg() const { return std::string_view(options).ends_with("-f ogg"); }
};

} // namespace

class DamagedCopies : public CommandTest, public testing::WithParamInterface<Format>
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        Samples stereo = stereoNoise(kFrames, 16);
        for (std::int32_t& sample : stereo) sample = sample / 4 & ~0xffff; // lossy peaks stay within full scale
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, kRate, 2, stereo);
        const std::string encode = std::string("ffmpeg -v error -i in.wav -fflags +bitexact ") + format.options;
        ASSERT_EQ(shell(encode + (format.toPipe ? " - | cat > copy" : " copy")).exitCode, 0);
        file = bytesOf(at("copy"));
        ASSERT_FALSE(isTold(file));
        whole = output;
        ASSERT_GE(whole.size(), 3 * kFrames);
    }

    /// Upmixes these bytes. Returns whether the damage is told: --strict refuses it, and `tarn info` names it.
    bool isTold(const std::string& bytes)
    {
        writeBytes(at("bad"), bytes);
        const Result result = tarn({"upmix", "--strict", "--bypass", "--force", "bad", "out.wav"});
        if (result.exitCode == 0) {
            output = readAudio(at("out.wav")).samples;
            return false;
        }
        EXPECT_EQ(result.exitCode, 65) << result.errors;
        const Result info = tarn({"info", "bad"});
        const bool isRefused = info.exitCode == 65;
        EXPECT_TRUE(isRefused || info.errors.find("is cut short or damaged: ") != std::string::npos) << info.errors;
        const Result rest = tarn({"upmix", "--bypass", "--force", "bad", "out.wav"});
        EXPECT_EQ(rest.exitCode == 65, isRefused) << rest.errors;
        EXPECT_EQ(rest.exitCode, info.exitCode) << rest.errors << info.errors;
        output = isRefused ? Samples() : readAudio(at("out.wav")).samples;
        return true;
    }

    /// The number of samples that are those of the undamaged file, at the same place.
    std::size_t equalSamples() const
    {
        std::size_t count = 0;
        for (std::size_t k = 0; k < std::min(output.size(), whole.size()); ++k)
            count += output[k] == whole[k] ? 1u : 0u;
        return count;
    }

    const Format format = GetParam();
    std::string file;
    Samples whole;  ///< output of the undamaged file
    Samples output; ///< of the last file
};

TEST_P(DamagedCopies, WithFlippedBits)
{
    constexpr std::size_t kFlips = 24;
    std::size_t told = 0;
    std::size_t silent = 0;
    for (std::size_t i = 0; i < kFlips; ++i) {
        std::string bytes = file;
        const std::size_t position = file.size() * (2 * i + 1) / (2 * kFlips);
        bytes[position] = static_cast<char>(bytes[position] ^ 1 << i % 8);
        if (isTold(bytes)) {
            ++told;
            if (output.empty()) continue;
            // Nothing tells how long a damaged last page of Ogg was.
            const bool isEndLost = format.isOgg() && position >= file.rfind("OggS");
            if (!isEndLost) {
                EXPECT_GE(output.size(), whole.size() / 20 * 19) << position;
            }
            EXPECT_GE(static_cast<double>(equalSamples()), format.kept * static_cast<double>(whole.size())) << position;
        } else if (output != whole) {
            ++silent;
            EXPECT_NE(format.flips, Told::Always) << position;
            if (format.flips == Told::Never) {
                EXPECT_EQ(output.size(), whole.size()) << position;
                EXPECT_EQ(equalSamples(), whole.size() - 1) << position; // one sample has the flipped bit
            }
        }
    }
    RecordProperty("told", static_cast<int>(told));
    RecordProperty("silent", static_cast<int>(silent));
    if (format.flips == Told::Never) {
        EXPECT_EQ(silent, kFlips);
    }
}

TEST_P(DamagedCopies, CutShort)
{
    for (const std::size_t percent : {30u, 50u, 90u}) {
        const bool told = isTold(file.substr(0, file.size() * percent / 100));
        EXPECT_EQ(told, format.cuts == Told::Always) << percent;
        EXPECT_LT(output.size(), whole.size()) << percent;
        EXPECT_TRUE(std::equal(output.begin(), output.end(), whole.begin())) << percent;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, DamagedCopies,
    testing::Values(Format{"Wave", "-f wav", false, Told::Never, Told::Always, 0},
                    Format{"WaveFromPipe", "-f wav", true, Told::Never, Told::Never, 0},
                    Format{"Rf64", "-f wav -rf64 always", false, Told::Never, Told::Always, 0},
                    Format{"Rf64FromPipe", "-f wav -rf64 always", true, Told::Never, Told::Never, 0},
                    Format{"W64", "-f w64", false, Told::Never, Told::Always, 0},
                    Format{"W64FromPipe", "-f w64", true, Told::Never, Told::Never, 0},
                    Format{"Aiff", "-f aiff", false, Told::Never, Told::Always, 0},
                    Format{"AiffFromPipe", "-f aiff", true, Told::Never, Told::Never, 0},
                    Format{"Caf", "-f caf", false, Told::Never, Told::Always, 0},
                    Format{"CafFromPipe", "-f caf", true, Told::Never, Told::Never, 0},
                    Format{"Au", "-f au", false, Told::Never, Told::Always, 0},
                    Format{"AuFromPipe", "-f au", true, Told::Never, Told::Never, 0},
                    Format{"Flac", "-f flac", false, Told::Always, Told::Always, 0.9},
                    Format{"FlacFromPipe", "-f flac", true, Told::Always, Told::Always, 0.9},
                    Format{"MonoFlacFromPipe", "-ac 1 -f flac", true, Told::Always, Told::Always, 0.9},
                    Format{"OggFlac", "-c:a flac -f ogg", false, Told::Always, Told::Always, 0.6},
                    Format{"OggFlacFromPipe", "-c:a flac -f ogg", true, Told::Always, Told::Always, 0.6},
                    Format{"Vorbis", "-c:a libvorbis -f ogg", false, Told::Always, Told::Always, 0.4},
                    Format{"VorbisFromPipe", "-c:a libvorbis -f ogg", true, Told::Always, Told::Always, 0.4},
                    Format{"Opus", "-c:a libopus -f ogg", false, Told::Always, Told::Always, 0.3},
                    Format{"OpusFromPipe", "-c:a libopus -f ogg", true, Told::Always, Told::Always, 0.3},
                    Format{"Mp3", "-c:a libmp3lame -f mp3", false, Told::Headers, Told::Always, 0},
                    Format{"Mp3FromPipe", "-c:a libmp3lame -f mp3", true, Told::Headers, Told::Always, 0}),
    [](const testing::TestParamInfo<Format>& test) { return test.param.name; });

/// PCM without a header.
class DamagedRawPcm : public CommandTest
{};

TEST_F(DamagedRawPcm, IsToldOnlyIfItEndsInsideAFrame)
{
    constexpr std::size_t kFrameBytes = 4;
    const std::string pcm = pcmOf(stereoNoise(kRate, 16), 16);
    for (const std::size_t missing : {1u, 2u, 3u, 4u}) {
        const Result result = tarnWithInput(pcm.substr(0, pcm.size() - missing),
                                            {"upmix", "--strict", "--force", "--raw", "48000:16", "-", "out.wav"});
        EXPECT_EQ(result.exitCode, missing % kFrameBytes == 0 ? 0 : 65) << result.errors;
        EXPECT_EQ(result.errors.find("ends inside a frame") != std::string::npos, missing % kFrameBytes != 0);
    }
}

} // namespace tarn_cli
