// FLAC and Vorbis in Ogg, and Ogg behind an ID3v2 tag.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/ogg_bytes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kRate = 48000;
constexpr std::size_t kSlots = 3; ///< of the default layout: FL FR FC

/// An ID3v2 tag of padding.
std::string id3v2Tag()
{
    return std::string("ID3\4\0\0\0\0\2\0", 10) + std::string(256, '\0');
}

} // namespace

class Ogg : public CommandTest
{
protected:
    /// Writes noise as Ogg FLAC. Returns the output expected with --bypass.
    Samples writeFlac(const std::string& name, std::size_t frames, unsigned seed = 1) const
    {
        const Samples stereo = stereoNoise(frames, 16, seed);
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, static_cast<int>(kRate), 2, stereo);
        EXPECT_EQ(shell("ffmpeg -v error -i in.wav -c:a flac -metadata TITLE=Rain -f ogg " + name).exitCode, 0);
        Samples expected;
        for (std::size_t i = 0; i < stereo.size(); i += 2)
            expected.insert(expected.end(), {stereo[i], stereo[i + 1], 0});
        return expected;
    }

    /// Upmixes a file with --bypass.
    Samples bypassed(const std::string& name, std::string* errors = nullptr, int exitCode = 0) const
    {
        const Result result = tarn({"upmix", "--force", "--bypass", name, "out.wav"});
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        EXPECT_TRUE(errors != nullptr || result.errors.find("damaged") == std::string::npos) << result.errors;
        if (errors != nullptr) *errors = result.errors;
        return readAudio(at("out.wav")).samples;
    }
};

TEST_F(Ogg, FlacIsReadExactlyWithItsTags)
{
    const Samples expected = writeFlac("in.oga", 100000);
    EXPECT_TRUE(bypassed("in.oga") == expected);
    EXPECT_EQ(readAudio(at("out.wav")).info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
    ASSERT_EQ(tarn({"upmix", "in.oga", "out.flac"}).exitCode, 0);
    EXPECT_NE(bytesOf(at("out.flac")).find("TITLE=Rain"), std::string::npos);
    const auto found = nlohmann::json::parse(tarn({"info", "--json", "in.oga"}).output);
    EXPECT_NE(found.dump().find(R"("codec":"FLAC")"), std::string::npos) << found;
}

TEST_F(Ogg, DamagedFlacPageBecomesSilenceInPlace)
{
    const Samples whole = writeFlac("in.oga", 6 * kRate);
    std::string ogg = bytesOf(at("in.oga"));
    writeBytes(at("bad.oga"), withBitFlipped(ogg, ogg.size() / 2));
    std::string errors;
    const Samples output = bypassed("bad.oga", &errors);
    EXPECT_NE(errors.find("frames are damaged and become silence"), std::string::npos) << errors;
    expectSilenceInTheMiddle(output, whole);
}

TEST_F(Ogg, CutFlacIsUpmixedToTheCut)
{
    const Samples whole = writeFlac("in.oga", 6 * kRate);
    const std::string ogg = bytesOf(at("in.oga"));
    writeBytes(at("cut.oga"), ogg.substr(0, ogg.size() / 2));
    std::string errors;
    const Samples output = bypassed("cut.oga", &errors, 1);
    EXPECT_NE(errors.find("its end is missing after frame " + std::to_string(output.size() / kSlots)),
              std::string::npos)
        << errors;
    ASSERT_GT(output.size(), whole.size() / 3);
    ASSERT_LT(output.size(), whole.size());
    EXPECT_TRUE(std::equal(output.begin(), output.end(), whole.begin()));
}

TEST_F(Ogg, ChainedFlacIsReadToTheEndOfTheLast)
{
    Samples expected = writeFlac("a.oga", 50000, 1);
    const Samples second = writeFlac("b.oga", 60000, 2);
    expected.insert(expected.end(), second.begin(), second.end());
    writeBytes(at("ab.oga"), bytesOf(at("a.oga")) + bytesOf(at("b.oga")));
    EXPECT_TRUE(bypassed("ab.oga") == expected);
}

TEST_F(Ogg, PositionsThatJumpBackMoveNoAudio)
{
    constexpr std::size_t kEdit = 5; // first page with too small a position
    for (const int codec : {SF_FORMAT_VORBIS, SF_FORMAT_OPUS}) {
        writeAudio(at("in.ogg"), SF_FORMAT_OGG | codec, static_cast<int>(kRate), 2, stereoNoise(6 * kRate + 1, 16));
        const std::size_t size = bypassed("in.ogg").size();
        EXPECT_EQ(size, kSlots * (6 * kRate + 1));
        std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
        for (std::size_t i = kEdit; i < pages.size(); ++i)
            pages[i] = withPosition(pages[i], positionOf(pages[i]) - 20000);
        const std::string edited = renumbered(pages);
        writeBytes(at("edited.ogg"), edited);
        std::string errors;
        EXPECT_EQ(bypassed("edited.ogg", &errors).size(), size) << "the end is trimmed";
        writeBytes(at("bad.ogg"), withBitFlipped(edited, edited.size() * 3 / 4));
        EXPECT_EQ(bypassed("bad.ogg", &errors, codec == SF_FORMAT_OPUS ? 1 : 0).size(), size) << "the gap is filled";
        EXPECT_NE(errors.find("become silence"), std::string::npos) << errors;
    }
}

TEST_F(Ogg, VorbisAtNegativePositionsIsTrimmed)
{
    constexpr std::size_t kBefore = 1000;
    constexpr std::size_t kFirst = 2; // first page with audio
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(kRate, 16));
    std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
    for (std::size_t i = kFirst; i < pages.size(); ++i)
        pages[i] = withPosition(pages[i], positionOf(pages[i]) - kBefore);
    std::string cut = renumbered(pages);
    writeBytes(at("cut.ogg"), cut);
    EXPECT_EQ(bypassed("cut.ogg").size(), kSlots * (kRate - kBefore));
    // The page after the first one.
    std::size_t second = 0;
    for (std::size_t i = 0; i <= kFirst; ++i) second += pages[i].size();
    writeBytes(at("bad.ogg"), withBitFlipped(cut, second + 500));
    std::string errors;
    EXPECT_EQ(bypassed("bad.ogg", &errors).size(), kSlots * (kRate - kBefore));
    EXPECT_NE(errors.find("become silence"), std::string::npos) << errors;
}

TEST_F(Ogg, VorbisAfterANegativeFirstPageIsComplete)
{
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(kRate, 16));
    std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
    const std::size_t dropped = positionOf(pages[2]);
    for (std::size_t i = 2; i < pages.size(); ++i) {
        const auto position = static_cast<std::int64_t>(positionOf(pages[i]) - dropped) - 104;
        pages[i] = withPosition(pages[i], static_cast<std::uint64_t>(position));
    }
    writeBytes(at("cut.ogg"), renumbered(pages));
    EXPECT_EQ(bypassed("cut.ogg").size(), kSlots * (kRate - dropped));
}

TEST_F(Ogg, VorbisWithBytesAfterTheLastPageIsComplete)
{
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(kRate, 16));
    writeBytes(at("id3v1.ogg"), bytesOf(at("in.ogg")) + "TAG" + std::string(125, ' '));
    writeBytes(at("zeros.ogg"), bytesOf(at("in.ogg")) + std::string(128, '\0'));
    for (const std::string name : {"id3v1.ogg", "zeros.ogg"}) {
        std::string errors;
        EXPECT_EQ(bypassed(name, &errors), bypassed("in.ogg")) << name;
        EXPECT_EQ(errors.find("cut short"), std::string::npos) << errors;
    }
}

TEST_F(Ogg, RepeatedVorbisHeadersAreIgnored)
{
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(kRate, 16));
    std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
    std::vector<std::string> headers{pages[0], pages[1]};
    headers[0][5] = 0; // not the first page of a stream
    pages.insert(pages.begin() + 4, headers.begin(), headers.end());
    writeBytes(at("repeated.ogg"), renumbered(pages));
    EXPECT_TRUE(bypassed("repeated.ogg") == bypassed("in.ogg"));
}

TEST_F(Ogg, ImpossiblePositionIsIgnored)
{
    for (const int codec : {SF_FORMAT_VORBIS, SF_FORMAT_OPUS}) {
        writeAudio(at("in.ogg"), SF_FORMAT_OGG | codec, static_cast<int>(kRate), 2, stereoNoise(6 * kRate, 16));
        std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
        pages[4] = withPosition(pages[4], std::numeric_limits<std::int64_t>::max());
        writeBytes(at("bad.ogg"), renumbered(pages));
        EXPECT_EQ(bypassed("bad.ogg").size(), kSlots * 6 * kRate);
    }
}

TEST_F(Ogg, StreamBehindAnId3v2TagIsRead)
{
    const Samples stereo = stereoNoise(60000, 16);
    writeAudio(at("a.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereo);
    writeAudio(at("a.opus"), SF_FORMAT_OGG | SF_FORMAT_OPUS, static_cast<int>(kRate), 2, stereo);
    writeFlac("a.oga", 60000);
    for (const std::string name : {"a.ogg", "a.opus", "a.oga"}) {
        const std::string ogg = bytesOf(at(name));
        writeBytes(at("tagged"), id3v2Tag() + ogg);
        EXPECT_TRUE(bypassed("tagged") == bypassed(name)) << name;
        writeBytes(at("joined"), id3v2Tag() + ogg + ogg);
        EXPECT_EQ(bypassed("joined").size(), 2 * bypassed(name).size()) << name;
    }
}

} // namespace tarn_cli
