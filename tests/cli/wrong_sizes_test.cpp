// WAV files whose header declares wrong sizes, before other files and before chunks.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr std::size_t kFrames = 20000;
constexpr std::size_t kAudioBytes = 4 * kFrames;
constexpr std::size_t kWithoutLimit = 0xffffffff; ///< a size that programs write to pipes

std::string number(std::size_t value)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> 8 * i & 0xff);
    return bytes;
}

std::string chunk(const std::string& name, const std::string& contents)
{
    return name + number(contents.size()) + contents + std::string(contents.size() % 2, '\0');
}

} // namespace

class WrongSizes : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("a.wav"), kWave16, 48000, 2, stereo);
        wave = bytesOf(at("a.wav"));
        dataSize = wave.find("data") + 4;
        ASSERT_EQ(wave.substr(dataSize, 4), number(kAudioBytes));
    }

    Samples bypassed(const std::string& bytes)
    {
        writeBytes(at("in.wav"), bytes);
        result = tarn({"upmix", "--force", "--strict", "--bypass", "in.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return readAudio(at("out.wav")).samples;
    }

    const Samples stereo = stereoNoise(kFrames, 16);
    std::string wave;
    std::size_t dataSize = 0; ///< position
    Result result;
};

TEST_F(WrongSizes, OfAFirstFileDoNotHideTheFilesAfterIt)
{
    writeAudio(at("b.wav"), kWave16, 48000, 2, stereoNoise(3000, 16, 2));
    writeAudio(at("b.aiff"), SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(3000, 16, 2));
    const Samples whole = bypassed(wave);
    Samples expected = whole;
    const Samples rest = bypassed(bytesOf(at("b.wav")));
    expected.insert(expected.end(), rest.begin(), rest.end());
    for (const std::string second : {"b.wav", "b.aiff"}) {
        const std::string other = bytesOf(at(second));
        for (const std::size_t size :
             {std::size_t{0}, std::size_t{36}, wave.size() - 8 - 2, wave.size() - 8 + 100, wave.size() + 5000,
              wave.size() + other.size() - 8, wave.size() + other.size() + 1000, kWithoutLimit}) {
            std::string wrong = wave;
            EXPECT_TRUE(bypassed(wrong.replace(4, 4, number(size)) + other) == expected) << second << size;
        }
    }

    // Of another format, the second file is left out with a warning.
    writeAudio(at("slow.wav"), kWave16, 44100, 2, stereoNoise(3000, 16, 2));
    std::string wrong = wave;
    writeBytes(at("in.wav"), wrong.replace(4, 4, number(36)) + bytesOf(at("slow.wav")));
    const Result slow = tarn({"upmix", "--force", "--bypass", "in.wav", "out.wav"});
    EXPECT_NE(slow.errors.find("is not read completely: stream 2 of 2, from byte " + std::to_string(wave.size()) +
                               ", runs at 44100 Hz instead of 48000 Hz and is left out"),
              std::string::npos)
        << slow.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == whole);
}

TEST_F(WrongSizes, OfTheAudioDoNotHideTheChunksAfterIt)
{
    const Samples whole = bypassed(wave);
    const std::string cue = number(1) + number(1) + number(99) + "data" + number(0) + number(0) + number(99);
    const std::string id3 = std::string("ID3\3\0\0\0\0\0\x18TPE2\0\0\0\x0e\0\0\0Album artist\0", 34);
    const std::string chunks =
        chunk("LIST", "INFO" + chunk("INAM", "A title")) + chunk("cue ", cue) + chunk("id3 ", id3);
    for (const std::size_t size : {std::size_t{0}, kAudioBytes / 2, kWithoutLimit}) {
        std::string wrong = wave;
        EXPECT_TRUE(bypassed(wrong.replace(dataSize, 4, number(size)) + chunks) == whole) << size;
        EXPECT_EQ(result.errors.find("the recording was not finished") != std::string::npos, size != kWithoutLimit);
        const std::string output = bytesOf(at("out.wav"));
        EXPECT_NE(output.find(chunk("INAM", std::string("A title\0", 8))), std::string::npos) << size;
        EXPECT_NE(output.find(chunk("cue ", cue)), std::string::npos) << size;
        EXPECT_NE(output.find("Album artist"), std::string::npos) << size;
    }
}

TEST_F(WrongSizes, AudioThatLooksLikeAChunkIsAudio)
{
    // The chunk does not end with the file.
    std::string bytes = wave;
    bytes.replace(dataSize + 4 + 60000, 12, "LIST" + number(1000) + "INFO");
    const Samples whole = bypassed(bytes);
    EXPECT_TRUE(bypassed(bytes.replace(dataSize, 4, 4, '\0')) == whole);
}

TEST_F(WrongSizes, ManyChunksThatLeadNowhereTakeNoTime)
{
    std::string bytes = wave;
    bytes.replace(dataSize, 4, 4, '\0');
    for (int i = 0; i < 200000; ++i) bytes += std::string("LIST\0\0\0\0", 8);
    writeBytes(at("in.wav"), bytes + "the end");
    const Result timed = shell("timeout 30 \"$TARN\" info in.wav");
    EXPECT_EQ(timed.exitCode, 0) << timed.errors;
}

TEST_F(WrongSizes, MoreThan4096ChunksAreRefused)
{
    // With the chunk of the format and that of the audio.
    for (const std::size_t count : {4094u, 4095u}) {
        std::string bytes = wave;
        for (std::size_t i = 0; i < count; ++i) bytes += std::string("LIST\0\0\0\0", 8);
        writeBytes(at("in.wav"), bytes);
        const Result info = tarn({"info", "in.wav"});
        EXPECT_EQ(info.exitCode, count == 4094 ? 0 : 65) << info.errors;
        EXPECT_EQ(info.errors.find("tarn: in.wav: is not an audio file that can be read (it has more than 4096 "
                                   "chunks); ") != std::string::npos,
                  count == 4095)
            << info.errors;
    }
}

TEST_F(WrongSizes, HugeChunksEndTheFile)
{
    const Samples whole = bypassed(wave);
    for (const std::size_t size : {std::size_t{0xfffffff7}, std::size_t{0xfffffff8}, std::size_t{0x7fffffff}}) {
        for (const std::string name : {"JUNK", "user"}) {
            std::string bytes = wave;
            writeBytes(at("in.wav"), bytes.insert(dataSize - 4, name + number(size)));
            std::filesystem::resize_file(at("in.wav"), 6'000'000'000);
            const Result before = shell("timeout 10 \"$TARN\" info in.wav");
            EXPECT_EQ(before.exitCode, 65) << name << size << before.errors;
            writeBytes(at("in.wav"), wave + name + number(size));
            std::filesystem::resize_file(at("in.wav"), 6'000'000'000);
            const Result behind = shell("timeout 10 \"$TARN\" upmix --force --bypass in.wav out.wav");
            EXPECT_EQ(behind.exitCode, 0) << name << size << behind.errors;
            EXPECT_TRUE(readAudio(at("out.wav")).samples == whole) << name << size;
        }
    }
}

} // namespace tarn_cli
