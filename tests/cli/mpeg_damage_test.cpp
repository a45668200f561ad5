// MP3 with an index: damage of the index, of frames, and cuts before tags.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr int kRate = 48000;
constexpr std::size_t kSeconds = 4;
constexpr std::size_t kFrameSamples = 1152;
constexpr std::size_t kFrameBytes = 384; ///< at 128 kbit/s
constexpr std::size_t kSlots = 3;

std::string withFlippedBits(std::string bytes, std::size_t position, int bits)
{
    bytes[position] = static_cast<char>(bytes[position] ^ bits);
    return bytes;
}

/// ID3 tags, lyrics, and an APE tag with one item and without a header.
const std::string kId3v1 = "TAGA title" + std::string(118, '\0');
const std::string kEnhancedId3v1 = "TAG+A title" + std::string(216, 'x');
const std::string kId3v2 = std::string("ID3\4\0\0\0\0\1\2", 10) + std::string(130, 'x');
const std::string kLyrics = "LYRICSBEGINLYR00004text000018LYRICS200";
const std::string kApe = std::string("\4\0\0\0\0\0\0\0TITLE\0text", 18) + "APETAGEX" + std::string("\xd0\7\0\0", 4) +
                         std::string("\x32\0\0\0\1\0\0\0", 8) + std::string(12, '\0');

} // namespace

class MpegDamage : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        Samples stereo = stereoNoise(kSeconds * kRate, 16);
        for (std::int32_t& sample : stereo) sample /= 4; // peaks stay within full scale
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, kRate, 2, stereo);
        ASSERT_EQ(shell("ffmpeg -v error -i in.wav -b:a 128k -id3v2_version 0 in.mp3").exitCode, 0);
        mpeg = bytesOf(at("in.mp3"));
        index = std::min(mpeg.find("Info"), mpeg.find("Xing"));
        ASSERT_LT(index, 100u);
        for (std::size_t frame = 0; frame < mpeg.size(); frame += kFrameBytes) {
            frames.push_back(frame);
            ASSERT_EQ(mpeg.substr(frame, 2), mpeg.substr(0, 2)) << frame;
        }
        ASSERT_EQ(upmix(mpeg).errors.find("damaged"), std::string::npos);
        whole = readAudio(at("out.wav")).samples;
        ASSERT_EQ(whole.size(), kSlots * kSeconds * kRate);
    }

    Result upmix(const std::string& bytes)
    {
        writeBytes(at("bad.mp3"), bytes);
        const Result result = tarn({"upmix", "--bypass", "--force", "bad.mp3", "out.wav"});
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.errors;
        output = readAudio(at("out.wav")).samples;
        return result;
    }

    static void expectSaid(const Result& result, const std::string& text)
    {
        EXPECT_NE(result.errors.find(text), std::string::npos) << text << "\n" << result.errors;
    }

    std::string mpeg;
    std::size_t index = 0;           ///< position of its mark
    std::vector<std::size_t> frames; ///< positions; the first is the index
    Samples whole;                   ///< of the output
    Samples output;                  ///< of the damaged file
};

TEST_F(MpegDamage, WrongNumberInTheIndexIsCorrected)
{
    for (const auto& [byte, bits] : std::vector<std::pair<std::size_t, int>>{{8, 1}, {10, 4}, {11, 64}, {11, 1}}) {
        const Result result = upmix(withFlippedBits(mpeg, index + byte, bits));
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        expectSaid(result, "tarn: bad.mp3: its index declares ");
        expectSaid(result,
                   " frames of MPEG audio instead of " + std::to_string(frames.size() - 1) + " and is corrected\n");
        EXPECT_EQ(result.errors.find("cut short"), std::string::npos) << result.errors;
        EXPECT_TRUE(output == whole) << byte;
    }
    // Without a checksum, the declared size of the stream confirms the number.
    std::string plain = mpeg;
    plain.replace(index + 120, 9, 9, '\0');
    EXPECT_EQ(upmix(plain).errors.find("index"), std::string::npos);
    expectSaid(upmix(withFlippedBits(plain, index + 8, 1)), " and is corrected\n");

    // Some encoders count the index too.
    plain[index + 10] = static_cast<char>(frames.size() >> 8);
    plain[index + 11] = static_cast<char>(frames.size());
    const Result usual = upmix(plain);
    EXPECT_EQ(usual.errors.find("index"), std::string::npos) << usual.errors;
    EXPECT_EQ(usual.errors.find("cut short"), std::string::npos) << usual.errors;
}

TEST_F(MpegDamage, OtherDamageOfTheIndexIsNoted)
{
    for (const std::size_t byte : {7u, 13u, 60u, 142u}) { // flags, size, table, delay
        const std::string bad = withFlippedBits(mpeg, index + byte, 1);
        const Result result = upmix(bad);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        expectSaid(result, byte == 7 ? "tarn: bad.mp3: its index is damaged, so its length cannot be checked, and up to"
                                     : "tarn: bad.mp3: the checksum of its index is wrong, so up to");
        expectSaid(result, " 0.1 seconds at its start and end can be missing or added\n");
        EXPECT_EQ(result.errors.find("cut short"), std::string::npos) << result.errors;
        expectSaid(upmix(bad.substr(0, bad.size() / 2 / kFrameBytes * kFrameBytes + 7)),
                   "its last frame is incomplete");
    }
}

TEST_F(MpegDamage, IndexesInShortFramesAreRight)
{
    for (const std::string options : {"-ac 1", "-ac 1 -b:a 32k", "-ar 22050 -ac 2", "-ar 16000 -ac 1"}) {
        ASSERT_EQ(shell("ffmpeg -v error -y -i in.wav " + options + " short.mp3").exitCode, 0);
        const Result result = tarn({"upmix", "--force", "short.mp3", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("index"), std::string::npos) << options << ": " << result.errors;
    }
}

TEST_F(MpegDamage, IndexWithoutFramesIsRefused)
{
    std::string plain = mpeg.substr(0, kFrameBytes);
    plain.replace(index + 120, 9, 9, '\0'); // no checksum
    writeBytes(at("in.mp3"), plain);
    EXPECT_EQ(tarn({"upmix", "in.mp3", "none.wav"}).exitCode, 65);
    EXPECT_FALSE(std::filesystem::exists(at("none.wav")));
}

TEST_F(MpegDamage, DamagedFramesAreNamedWithTheirPlace)
{
    // Bits of the version, of the sample rate, and of the bit rate: the last one doubles the size of the frame.
    for (const auto& [byte, bits] : std::vector<std::pair<std::size_t, int>>{{1, 8}, {2, 4}, {2, 0x40}}) {
        for (const std::size_t frame : {frames.size() / 4, frames.size() / 2}) {
            const Result result = upmix(withFlippedBits(mpeg, frames[frame] + byte, bits));
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            expectSaid(result, "tarn: bad.mp3: is cut short or damaged: ");
            const auto first = static_cast<std::size_t>(
                std::mismatch(output.begin(), output.end(), whole.begin(), whole.end()).first - output.begin());
            ASSERT_LT(first, output.size());
            // A frame that the decoder repeats or smears can differ only after its first samples: within 25 ms.
            const std::string place = "; the damage begins at 0:";
            const std::size_t found = result.errors.find(place);
            ASSERT_NE(found, std::string::npos) << result.errors;
            const double seconds = std::stod(result.errors.substr(found + place.size()));
            const std::size_t firstFrame = first / kSlots;
            const double exact = static_cast<double>(firstFrame) / kRate;
            EXPECT_LE(seconds, exact) << byte << "\n" << result.errors;
            EXPECT_GE(seconds, exact - 0.026) << byte << "\n" << result.errors;
        }
    }
}

TEST_F(MpegDamage, ErrorsOfTheDecoderAreNamedWithTheirPlace)
{
    // A frame of another version behind a tag looks like a part of the tag, and only the decoder notices it.
    const std::string joined = mpeg + kLyrics + mpeg;
    for (const std::size_t frame : {frames[0], frames[1]}) {
        const Result result = upmix(withFlippedBits(joined, mpeg.size() + kLyrics.size() + frame + 1, 8));
        const std::string place = ": some of its frames are damaged; the damage begins at 0:";
        const std::size_t found = result.errors.find(place);
        ASSERT_NE(found, std::string::npos) << frame << ": " << result.errors;
        const double seconds = std::stod(result.errors.substr(found + place.size()));
        constexpr double kCall = 8192.0 / kRate; // with whose first frame the decoder notices an error
        EXPECT_LE(seconds, kSeconds + 2.0 * kFrameSamples / kRate);
        EXPECT_GE(seconds, kSeconds - kCall);
    }
}

TEST_F(MpegDamage, FramesBehindId3TagsAreNotTakenForThem)
{
    for (const std::string& tags : {kId3v1, kId3v2, kEnhancedId3v1 + kId3v1 + kId3v2}) {
        const std::string joined = mpeg + tags + mpeg;
        EXPECT_EQ(upmix(joined).errors.find("damaged"), std::string::npos);
        EXPECT_EQ(output.size(), 2 * whole.size());
        expectSaid(upmix(withFlippedBits(joined, mpeg.size() + tags.size() + frames[1], 0xff)),
                   ": is cut short or damaged: ");
    }
}

TEST_F(MpegDamage, LostFramesInTheMiddleAreCounted)
{
    const Result result = upmix(withFlippedBits(mpeg, frames[frames.size() / 2] + 2, 0x40));
    expectSaid(result, ": 1152 frames are damaged and are left out; ");
    expectSaid(result, "0.024 seconds are missing");
    EXPECT_EQ(result.errors.find("declares"), std::string::npos) << result.errors;
}

TEST_F(MpegDamage, CutsBeforeTagsAreReported)
{
    const std::string unindexed = mpeg.substr(kFrameBytes);
    for (const std::string& tags : {std::string(), kId3v1, kApe, kApe + kId3v1}) {
        EXPECT_EQ(upmix(mpeg + tags).errors.find("damaged"), std::string::npos);
        EXPECT_TRUE(output == whole);
        EXPECT_EQ(upmix(unindexed + tags).errors.find("damaged"), std::string::npos);
        const std::size_t complete = output.size();
        for (const std::size_t missing : {1u, 100u, 300u}) {
            const Result indexed = upmix(mpeg.substr(0, mpeg.size() - missing) + tags);
            EXPECT_TRUE(std::equal(output.begin(), output.end(), whole.begin())) << missing;
            if (output.size() < whole.size()) expectSaid(indexed, "it declares 192000 frames and has ");

            const Result result = upmix(unindexed.substr(0, unindexed.size() - missing) + tags);
            EXPECT_EQ(result.exitCode, 1) << result.errors;
            expectSaid(result, "its last frame is incomplete");
            EXPECT_EQ(output.size(), complete - kSlots * kFrameSamples) << missing;
        }
        EXPECT_NE(
            upmix(mpeg.substr(0, mpeg.size() - 3 * kFrameBytes - 1) + tags).errors.find("it declares 192000 frames"),
            std::string::npos);
    }
}

} // namespace tarn_cli
