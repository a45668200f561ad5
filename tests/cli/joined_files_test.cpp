// Files of several joined streams, and streams of unknown length.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/ogg_bytes.h"

#include <cmath>

namespace tarn_cli
{

namespace
{

constexpr int kVorbis = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
constexpr int kOpus = SF_FORMAT_OGG | SF_FORMAT_OPUS;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;

} // namespace

class JoinedFiles : public CommandTest
{
protected:
    void writeNoise(const std::string& name, int format, std::size_t frames, unsigned seed, int rate = 48000) const
    {
        writeAudio(at(name), format, rate, 2, stereoNoise(frames, 16, seed));
    }

    void join(const std::string& name, const std::vector<std::string>& parts) const
    {
        std::string bytes;
        for (const std::string& part : parts) bytes += bytesOf(at(part));
        writeBytes(at(name), bytes);
    }

    /// Decodes a file with one stream.
    std::vector<float> decoded(const std::string& name) const { return readFloats(at(name)); }
};

TEST_F(JoinedFiles, OfWaveHaveNoNoteOnChunks)
{
    writeAudio(at("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(4800, 16));
    const std::string bytes = bytesOf(at("a.wav"));
    writeBytes(at("joined.wav"), bytes + bytes);
    writeBytes(at("tail.wav"), bytes + std::string(100, '\x01'));
    for (const std::string name : {"joined.wav", "tail.wav"}) {
        const Result result = tarn({"upmix", "--force", name, "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
    }
}

TEST_F(JoinedFiles, AreReadToTheEndOfTheLast)
{
    for (const auto& [extension, format] :
         std::vector<std::pair<std::string, int>>{{".ogg", kVorbis}, {".opus", kOpus}, {".mp3", kMp3}}) {
        const std::string first = "a" + extension;
        const std::string second = "b" + extension;
        const std::string joined = "ab" + extension;
        writeNoise(first, format, 60000, 1);
        writeNoise(second, format, 50000, 2);
        join(joined, {first, second});

        // With --bypass, the output is the decoded stereo, scaled by one gain.
        const Result result = tarn({"upmix", "--force", "--bits", "32", "--bypass", joined, "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("cut short"), std::string::npos) << result.errors;
        std::vector<float> expected = decoded(first);
        const std::vector<float> rest = decoded(second);
        expected.insert(expected.end(), rest.begin(), rest.end());
        const Samples output = readAudio(at("out.wav")).samples;
        ASSERT_EQ(output.size() / 3, expected.size() / 2) << joined;

        double peak = 1.0;
        for (const float sample : expected) peak = std::max(peak, std::abs(static_cast<double>(sample)));
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const double exact = std::round(static_cast<double>(expected[i]) * (1.0 / peak) * 0x1p31);
            ASSERT_EQ(output[i / 2 * 3 + i % 2], static_cast<std::int32_t>(std::min(exact, 0x1p31 - 1.0)))
                << joined << " " << i;
        }
    }
}

TEST_F(JoinedFiles, PartsAtAnotherRateAreLeftOutWithAWarning)
{
    writeNoise("a.ogg", kVorbis, 96000, 1);
    writeNoise("b.ogg", kVorbis, 88200, 2, 44100);
    join("ab.ogg", {"a.ogg", "b.ogg"});
    const Result result = tarn({"upmix", "ab.ogg", "out.wav"});
    EXPECT_EQ(result.exitCode, 1);
    const std::string begin = std::to_string(std::filesystem::file_size(at("a.ogg")));
    EXPECT_NE(result.errors.find("tarn: ab.ogg: is not read completely: stream 2 of 2, from byte " + begin +
                                 ", runs at 44100 Hz instead of 48000 Hz and is left out; 2.000 seconds are missing"),
              std::string::npos)
        << result.errors;
    // The command in the message extracts the stream.
    const std::string advice = "; cut it off and upmix it on its own: ";
    const std::size_t command = result.errors.find(advice) + advice.size();
    ASSERT_EQ(shell(result.errors.substr(command, result.errors.find('\n', command) - command)).exitCode, 0);
    EXPECT_TRUE(bytesOf(at("rest")) == bytesOf(at("b.ogg")));
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 96000);

    // Four seconds at a sixth of the rate.
    writeNoise("slow.ogg", kVorbis, 32000, 2, 8000);
    join("as.ogg", {"a.ogg", "slow.ogg"});
    const Result slow = tarn({"upmix", "--force", "as.ogg", "out.wav"});
    EXPECT_EQ(slow.exitCode, 1);
    EXPECT_NE(slow.errors.find("; 4.000 seconds are missing"), std::string::npos) << slow.errors;
}

TEST_F(JoinedFiles, DeclaredSizesDoNotEndTheReading)
{
    constexpr std::size_t kFrames = 20001;
    constexpr int k16 = SF_FORMAT_PCM_16;
    for (const int format :
         {SF_FORMAT_WAV | k16, SF_FORMAT_WAV | SF_ENDIAN_BIG | k16, SF_FORMAT_RF64 | k16, SF_FORMAT_W64 | k16,
          SF_FORMAT_AIFF | k16, SF_FORMAT_AU | k16, SF_FORMAT_AU | SF_ENDIAN_LITTLE | k16, SF_FORMAT_CAF | k16,
          SF_FORMAT_CAF | SF_FORMAT_ALAC_16}) {
        std::vector<std::string> parts;
        Samples expected;
        for (unsigned seed = 1; seed <= 3; ++seed) {
            const Samples stereo = stereoNoise(kFrames, 16, seed);
            parts.push_back("part" + std::to_string(seed));
            writeAudio(at(parts.back()), format, 48000, 2, stereo);
            for (std::size_t i = 0; i < stereo.size(); i += 2)
                expected.insert(expected.end(), {stereo[i], stereo[i + 1], 0});
        }
        join("joined", parts);
        const Result result = tarn({"upmix", "--force", "--strict", "--bypass", "joined", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << std::hex << format << result.errors;
        EXPECT_TRUE(readAudio(at("out.wav")).samples == expected) << std::hex << format;

        std::filesystem::resize_file(at("joined"), std::filesystem::file_size(at("joined")) - 5000);
        const Result cut = tarn({"upmix", "--force", "--bypass", "joined", "out.wav"});
        EXPECT_NE(cut.errors.find("is cut short or damaged"), std::string::npos) << std::hex << format << cut.errors;
        const Samples output = readAudio(at("out.wav")).samples;
        ASSERT_GT(output.size(), 2 * 3 * kFrames);
        ASSERT_LT(output.size(), expected.size());
        EXPECT_TRUE(std::equal(output.begin(), output.end(), expected.begin())) << std::hex << format;
    }
}

TEST_F(JoinedFiles, PaddedOddSizesAreReadToTheEnd)
{
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8}) {
        writeAudio(at("a"), format, 48000, 1, stereoNoise(10000, 8, 1));
        writeAudio(at("b"), format, 48000, 1, Samples(10001, 1 << 24));
        join("ba", {"b", "a"});
        const Result result = tarn({"upmix", "--force", "--strict", "ba", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(readAudio(at("out.wav")).info.frames, readAudio(at("b")).info.frames + 20000);
    }
}

TEST_F(JoinedFiles, PartsOfAnotherWidthAreLeftOutWithAWarning)
{
    writeNoise("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1);
    writeNoise("b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 72000, 2);
    join("ab.wav", {"a.wav", "b.wav"});
    const Result result = tarn({"upmix", "ab.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.errors.find("has 24 bits instead of 16 bits and is left out; 1.500 seconds"), std::string::npos)
        << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 48000);
}

TEST_F(JoinedFiles, FilesOfOtherFormatsAreNamed)
{
    writeNoise("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1);
    writeNoise("a.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 48000, 1);
    writeNoise("a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1);
    writeNoise("slow.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1, 44100);
    writeNoise("a.ogg", kVorbis, 48000, 1);
    for (const auto& [first, second, kind] :
         std::vector<std::tuple<std::string, std::string, std::string>>{{"a.flac", "a.wav", "a WAV file"},
                                                                        {"a.flac", "slow.flac", "a FLAC file"},
                                                                        {"a.flac", "a.ogg", "an Ogg file"},
                                                                        {"a.ogg", "a.wav", "a WAV file"},
                                                                        {"a.wav", "a.flac", "a FLAC file"},
                                                                        {"a.wav", "a.ogg", "an Ogg file"},
                                                                        {"a.aiff", "a.flac", "a FLAC file"}}) {
        join("ab", {first, second});
        const Result result = tarn({"upmix", "--force", "ab", "out.wav"});
        EXPECT_EQ(result.exitCode, 1) << first << second << result.errors;
        const std::string begin = std::to_string(std::filesystem::file_size(at(first)));
        const std::string size = std::to_string(std::filesystem::file_size(at(second)));
        EXPECT_NE(result.errors.find("tarn: ab: is not read completely: " + kind + " of " + size +
                                     " bytes follows its audio, from byte " + begin + ", and is left out; "),
                  std::string::npos)
            << first << second << result.errors;
        EXPECT_EQ(result.errors.find("chunks"), std::string::npos) << result.errors;
        EXPECT_EQ(readAudio(at("out.wav")).info.frames, 48000) << first << second;
    }
}

TEST_F(JoinedFiles, OtherFormatsAfterMpegAreNotDecodedAsMpeg)
{
    writeNoise("a.mp3", kMp3, 48000, 1);
    writeNoise("b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 72000, 2);
    join("ab", {"a.mp3", "b.wav"});
    const Result result = tarn({"upmix", "ab", "out.wav"});
    EXPECT_EQ(result.exitCode, 1) << result.errors;
    EXPECT_NE(result.errors.find("tarn: ab: is not read completely: stream 2 of 2, from byte " +
                                 std::to_string(std::filesystem::file_size(at("a.mp3"))) +
                                 ", has 16 bits instead of floating-point or lossy samples and is left out; 1.500"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 48000);
}

TEST_F(JoinedFiles, TextAfterTheLastChunkIsNoChunk)
{
    writeNoise("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1);
    writeBytes(at("b.wav"), bytesOf(at("a.wav")) + "Text that follows the file.\n");
    const Result result = tarn({"upmix", "b.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors.find("chunks"), std::string::npos) << result.errors;
}

TEST_F(JoinedFiles, ShortLossesAreGivenInFrames)
{
    writeNoise("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1);
    std::filesystem::resize_file(at("a.wav"), std::filesystem::file_size(at("a.wav")) - 40);
    const Result result = tarn({"upmix", "a.wav", "out.wav"});
    EXPECT_NE(result.errors.find("it declares 48000 frames and has 47990; 10 frames are missing; "), std::string::npos)
        << result.errors;
}

TEST_F(JoinedFiles, OtherBytesBehindTheDeclaredEndAreNotAudio)
{
    writeNoise("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1);
    for (const std::string& rest :
         {std::string("TAG") + std::string(125, '\0'), std::string(1000, '\0'), std::string("LIST\4\0\0\0INFO", 12)}) {
        writeBytes(at("b.wav"), bytesOf(at("a.wav")) + rest);
        const Result result = tarn({"upmix", "--force", "--strict", "b.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(readAudio(at("out.wav")).info.frames, 48000);
    }
}

TEST_F(JoinedFiles, MpegWithoutAnIndexIsReadToTheEnd)
{
    // Quiet, then loud at a variable bit rate: the length estimated from the first frames is far too short.
    ASSERT_EQ(shell("ffmpeg -v error -f lavfi -i 'sine=d=4:r=44100' -f lavfi -i 'anoisesrc=d=4:r=44100:a=0.3' "
                    "-filter_complex '[0][1]concat=v=0:a=1' -ac 2 -q:a 5 -write_xing 0 in.mp3")
                  .exitCode,
              0);
    const Result result = tarn({"upmix", "in.mp3", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Result packets =
        shell("ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv=p=0 in.mp3");
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 1152 * std::stoll(packets.output));
}

TEST_F(JoinedFiles, VorbisAudioOnTheHeaderPageIsKept)
{
    writeNoise("a.ogg", kVorbis, 60000, 1);
    // Joins the page of the last header with the first audio page, as some encoders do.
    const std::string ogg = bytesOf(at("a.ogg"));
    const std::size_t second = ogg.find("OggS", 4);
    const std::size_t third = ogg.find("OggS", second + 4);
    const std::size_t fourth = ogg.find("OggS", third + 4);
    const auto segments = [&ogg](std::size_t page) { return static_cast<unsigned char>(ogg[page + 26]); };
    ASSERT_LE(segments(second) + segments(third), 255);
    std::string joined = ogg.substr(second, 27);
    joined.replace(6, 8, ogg.substr(third + 6, 8)); // the position of the last packet
    joined[26] = static_cast<char>(segments(second) + segments(third));
    for (const std::size_t page : {second, third}) joined += ogg.substr(page + 27, segments(page));
    joined += ogg.substr(second + 27 + segments(second), third - second - 27 - segments(second));
    joined += ogg.substr(third + 27 + segments(third), fourth - third - 27 - segments(third));
    std::string bytes = ogg.substr(0, second) + withChecksum(joined);
    // The numbers of later pages decrease by one.
    for (std::size_t page = fourth; page < ogg.size();) {
        const std::size_t next = std::min(ogg.find("OggS", page + 4), ogg.size());
        std::string moved = ogg.substr(page, next - page);
        moved[18] = static_cast<char>(moved[18] - 1);
        bytes += withChecksum(moved);
        page = next;
    }
    writeBytes(at("b.ogg"), bytes);
    ASSERT_EQ(tarn({"upmix", "a.ogg", "a.wav"}).exitCode, 0);
    const Result result = tarn({"upmix", "b.ogg", "b.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("cut short"), std::string::npos) << result.errors;
    EXPECT_TRUE(readAudio(at("b.wav")).samples == readAudio(at("a.wav")).samples);
}

TEST_F(JoinedFiles, MpegDecoderWarningsAreNotPrinted)
{
    writeNoise("a.mp3", kMp3, 60000, 1);
    join("ab.mp3", {"a.mp3", "a.mp3"});
    EXPECT_EQ(tarn({"upmix", "--quiet", "ab.mp3", "out.wav"}).errors, "");
    EXPECT_EQ(tarn({"info", "--quiet", "ab.mp3"}).errors, "");
}

} // namespace tarn_cli
