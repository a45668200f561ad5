// Cue sheets and application blocks of FLAC inputs.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr char kApplication = 2;
constexpr char kCueSheet = 5;
constexpr char kReserved = 9;

using Blocks = std::vector<std::pair<char, std::string>>;

/// A big-endian number.
std::string number(std::uint64_t value, std::size_t bytes)
{
    std::string text(bytes, '\0');
    for (std::size_t i = bytes; i > 0; --i, value >>= 8) text[i - 1] = static_cast<char>(value & 0xff);
    return text;
}

/// A track of a cue sheet. The offsets of its indices are relative to the offset of the track.
std::string track(unsigned trackNumber, std::uint64_t offset, const std::string& isrc, int flags,
                  const std::vector<std::uint64_t>& indices)
{
    std::string text = number(offset, 8) + number(trackNumber, 1) + isrc + number(static_cast<unsigned>(flags), 1) +
                       std::string(13, '\0') + number(indices.size(), 1);
    for (std::size_t i = 0; i < indices.size(); ++i)
        text += number(indices[i], 8) + number(i + 1, 1) + std::string(3, '\0');
    return text;
}

/// A cue sheet that does not describe a CD.
std::string cueSheet(const std::vector<std::string>& tracks)
{
    std::string text =
        "1234567890123" + std::string(115, '\0') + number(88200, 8) + std::string(259, '\0') + number(tracks.size(), 1);
    for (const std::string& each : tracks) text += each;
    return text;
}

} // namespace

/// Metadata blocks that follow the first one of a FLAC file.
class FlacBlocks : public CommandTest
{
protected:
    void write(const std::string& name, const Blocks& blocks) const
    {
        writeAudio(at(name), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
        std::string flac = bytesOf(at(name));
        std::string inserted;
        for (const auto& [type, contents] : blocks) inserted += type + number(contents.size(), 3) + contents;
        flac[4] = '\0'; // the first block is not the last
        writeBytes(at(name), flac.insert(42, inserted));
    }

    /// The application blocks and cue sheets.
    Blocks read(const std::string& name) const
    {
        const std::string flac = bytesOf(at(name));
        Blocks blocks;
        bool isLast = false;
        for (std::size_t head = 4; !isLast;) {
            const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(flac.at(head + i)); };
            isLast = (byte(0) & 0x80) != 0;
            const auto type = static_cast<char>(byte(0) & 0x7f);
            const std::size_t size = std::size_t{byte(1)} << 16 | std::size_t{byte(2)} << 8 | byte(3);
            if (type == kApplication || type == kCueSheet) blocks.emplace_back(type, flac.substr(head + 4, size));
            head += 4 + size;
        }
        return blocks;
    }

    const std::string sheet =
        cueSheet({track(1, 0, "DEXX12400001", 0x40, {0, 480}), track(2, 2400, std::string(12, '\0'), 0x80, {0}),
                  track(255, 5000, std::string(12, '\0'), 0, {})});
};

TEST_F(FlacBlocks, AreKeptInFlac)
{
    write("in.flac", {{kApplication, "testcontents"}, {kCueSheet, sheet}, {kApplication, "idle"}});
    const Result result = tarn({"upmix", "in.flac", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
    EXPECT_EQ(read("out.flac"), read("in.flac"));
    EXPECT_EQ(read("out.flac").size(), 3u);
    EXPECT_EQ(readAudio(at("out.flac")).info.frames, 5000);
}

TEST_F(FlacBlocks, AreReportedForWaveOutput)
{
    write("in.flac", {{kApplication, "testcontents"}, {kCueSheet, sheet}});
    const Result result = tarn({"upmix", "in.flac", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    for (const std::string name : {"application block test", "cue sheet"})
        EXPECT_NE(result.errors.find("tarn: out.wav: WAV has no place for the " + name + "\n"), std::string::npos)
            << result.errors;
}

TEST_F(FlacBlocks, PositionsAreReportedAfterRateConversion)
{
    write("in.flac", {{kApplication, "testcontents"}, {kCueSheet, sheet}});
    const Result result = tarn({"upmix", "--rate", "44100", "in.flac", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.flac: its cue sheet counts samples at 48000 Hz and is left out\n"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(read("out.flac"), (Blocks{{kApplication, "testcontents"}}));
}

TEST_F(FlacBlocks, CueSheetIsLeftOutWithNoAlign)
{
    write("in.flac", {{kApplication, "testcontents"}, {kCueSheet, sheet}});
    const Result result = tarn({"upmix", "--no-align", "in.flac", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(
        result.errors.find("tarn: in.flac: its cue sheet does not allow for the delay of --no-align and is left out\n"),
        std::string::npos)
        << result.errors;
    EXPECT_EQ(read("out.flac"), (Blocks{{kApplication, "testcontents"}}));
}

TEST_F(FlacBlocks, BlocksOfAnotherContainerAreLeftOut)
{
    write("in.flac",
          {{kApplication, "riffRIFF1234WAVE"}, {kApplication, "aiffFORM1234AIFF"}, {kApplication, "w64 riff"}});
    const Result result = tarn({"upmix", "in.flac", "out.flac"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
    EXPECT_TRUE(read("out.flac").empty());
}

TEST_F(FlacBlocks, UnknownAndSurplusBlocksAreReported)
{
    Blocks blocks(200, {kApplication, "testcontents"});
    blocks.emplace_back(kReserved, "contents");
    write("in.flac", blocks);
    const Result result = tarn({"upmix", "in.flac", "out.flac"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(read("out.flac").size(), 100u);
    for (const std::string note :
         {"cue sheets and application blocks after the first 100", "metadata blocks of unknown types"})
        EXPECT_NE(result.errors.find("tarn: in.flac: its " + note + " are left out\n"), std::string::npos)
            << result.errors;
}

TEST_F(FlacBlocks, DamagedBlocksAreReported)
{
    // Cue sheets cut at every length, with too many declared indices or tracks, and without a track.
    std::vector<std::string> damaged;
    for (std::size_t length = 0; length < sheet.size(); length += 7) damaged.push_back(sheet.substr(0, length));
    damaged.push_back(std::string(sheet).replace(395 + 36, 1, "\xff"));
    damaged.push_back(std::string(sheet).replace(395, 1, "\xff"));
    damaged.push_back(cueSheet({}));
    for (const std::string& each : damaged) {
        write("in.flac", {{kCueSheet, each}, {kApplication, "testcontents"}});
        const Result result = tarn({"upmix", "--force", "in.flac", "out.flac"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("tarn: out.flac: the cue sheet of the input is damaged and left out\n"),
                  std::string::npos)
            << each.size() << " " << result.errors;
        EXPECT_EQ(read("out.flac"), (Blocks{{kApplication, "testcontents"}}));
    }
}

} // namespace tarn_cli
