// Files whose header was not completed: the size of the audio is zero or that of an earlier moment.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

namespace tarn_cli
{

namespace
{

constexpr std::size_t kFrames = 20000;

/// The size of the audio in a header.
struct SizeField
{
    const char* name;
    int container;
    const char* mark;   ///< before the size; null for a fixed position
    std::size_t offset; ///< from the mark, or from the start
    std::size_t bytes;  ///< width of the size
    bool bigEndian;
    std::size_t counted; ///< bytes before the samples that the size includes
};

std::string encoded(std::size_t value, const SizeField& field)
{
    std::string bytes;
    for (std::size_t i = 0; i < field.bytes; ++i)
        bytes += static_cast<char>(value >> 8 * (field.bigEndian ? field.bytes - 1 - i : i) & 0xff);
    return bytes;
}

} // namespace

class UnfinishedRecordings : public CommandTest, public testing::WithParamInterface<SizeField>
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in"), GetParam().container | SF_FORMAT_PCM_16, 48000, 2, stereo);
        file = bytesOf(at("in"));
    }

    /// The file with another number of frames in its header.
    std::string withDeclared(std::size_t frames) const
    {
        const SizeField& field = GetParam();
        std::string bytes = file;
        const std::size_t position = field.offset + (field.mark != nullptr ? bytes.find(field.mark) : 0);
        EXPECT_EQ(bytes.substr(position, field.bytes), encoded(4 * kFrames + field.counted, field));
        return bytes.replace(position, field.bytes, encoded(4 * frames + field.counted, field));
    }

    const Samples stereo = stereoNoise(kFrames, 16);
    std::string file;
};

TEST_P(UnfinishedRecordings, AreReadToTheEndWithANote)
{
    for (const std::size_t frames : {std::size_t{0}, kFrames / 2}) {
        writeBytes(at("in"), withDeclared(frames));
        const Result result = tarn({"upmix", "--strict", "--force", "in", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        const std::string note = "tarn: in: its header declares " + std::to_string(frames) +
                                 " frames, and it has 20000: the recording was not finished; it is read to the end of "
                                 "the file\n";
        EXPECT_NE(result.errors.find(note), std::string::npos) << result.errors;
        EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {}));
        const Result info = tarn({"info", "--json", "in"});
        EXPECT_NE(info.output.find("\"frames\": 20000"), std::string::npos) << info.output;
        EXPECT_NE(info.errors.find(note), std::string::npos) << info.errors;
    }
}

TEST_P(UnfinishedRecordings, SamplesThatLookLikeAHugeChunkAreRead)
{
    constexpr std::size_t kDeclared = kFrames / 2;
    const std::string samples("abcd\xbf\0\0\xbf", 8); // a name and a size above 2 GiB
    const std::size_t position = file.size() - 4 * (kFrames - kDeclared);
    writeBytes(at("in"), withDeclared(kDeclared).replace(position, samples.size(), samples));
    writeBytes(at("whole"), file.replace(position, samples.size(), samples));
    const Result result = tarn({"upmix", "--strict", "in", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(readAudio(at("whole")).samples, {}));
}

TEST_P(UnfinishedRecordings, OtherBytesAfterTheDeclaredAudioAreNotAudio)
{
    const std::string zeros(8192, '\0');
    std::string text;
    while (text.size() < 8192) text += "a line of a log\n";
    for (const std::string& rest : {zeros, text, std::string(4095, '\x01'), "TAG" + zeros, "APETAGEX" + zeros}) {
        writeBytes(at("in"), file + rest);
        const Result result = tarn({"upmix", "--force", "in", "out.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("declares"), std::string::npos) << result.errors;
        EXPECT_EQ(readAudio(at("out.wav")).info.frames, static_cast<sf_count_t>(kFrames)) << rest.substr(0, 10);
    }
}

INSTANTIATE_TEST_SUITE_P(Command, UnfinishedRecordings,
                         testing::Values(SizeField{"Wave", SF_FORMAT_WAV, "data", 4, 4, false, 0},
                                         SizeField{"BigEndianWave", SF_FORMAT_WAV | SF_ENDIAN_BIG, "data", 4, 4, true,
                                                   0},
                                         SizeField{"Rf64", SF_FORMAT_RF64, "ds64", 16, 8, false, 0},
                                         SizeField{"W64", SF_FORMAT_W64, "data", 16, 8, false, 24},
                                         SizeField{"Aiff", SF_FORMAT_AIFF, "SSND", 4, 4, true, 8},
                                         SizeField{"Au", SF_FORMAT_AU, nullptr, 8, 4, true, 0},
                                         SizeField{"Caf", SF_FORMAT_CAF, "data", 4, 8, true, 4}),
                         [](const auto& test) { return std::string(test.param.name); });

class UnfinishedCompressedRecording : public CommandTest
{};

TEST_F(UnfinishedCompressedRecording, IsReadToTheEndWithANoteInBytes)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, 48000, 2, stereoNoise(48000, 16));
    ASSERT_EQ(tarn({"upmix", "in.wav", "whole.wav"}).exitCode, 0);
    std::string wave = bytesOf(at("in.wav"));
    const std::size_t size = wave.find("data") + 4;
    const std::size_t bytes = wave.size() - size - 4;
    writeBytes(at("in.wav"), wave.replace(size, 4, 4, '\0'));
    const Result result = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("its header declares 0 bytes of audio, and it has " + std::to_string(bytes) + ": "),
              std::string::npos)
        << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == readAudio(at("whole.wav")).samples);
}

class ChunkLists : public CommandTest
{
protected:
    /// Makes a WAV file without audio that the file system stores in a few blocks.
    void writeSparse(const std::string& name, const std::string& head) const
    {
        writeBytes(at(name), head);
        std::filesystem::resize_file(at(name), std::uintmax_t{20} << 30);
    }
};

TEST_F(ChunkLists, OfSparseFilesEndAtTheFirstZero)
{
    // A walk in steps of an empty chunk would take hours.
    for (const std::string& head : {std::string("RIFF\xff\xff\xff\xffWAVE", 12),
                                    std::string("FORM\0\xff\xff\xff"
                                                "AIFF",
                                                12),
                                    std::string("caff\0\1\0\0", 8)}) {
        writeSparse("in.wav", head);
        for (const std::string command : {"info in.wav", "upmix --force in.wav out.wav"}) {
            const Result result = shell("timeout 20 \"$TARN\" " + command);
            EXPECT_EQ(result.exitCode, 65) << head << command << result.errors;
        }
    }
}

TEST_F(ChunkLists, SignalsStopTheSearchForAudio)
{
    // Each of these searches through 20 GiB of zeros.
    const std::string flac = [this] {
        writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
        return bytesOf(at("in.flac"));
    }();
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 2, stereoNoise(5000, 16));
    writeAudio(at("in.mp3"), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 48000, 2, stereoNoise(5000, 16));
    for (const std::string& head : {flac, bytesOf(at("in.ogg")), bytesOf(at("in.mp3"))}) {
        writeSparse("in", head);
        const Result result = shell("timeout --preserve-status -k 5 -s TERM 0.5 \"$TARN\" info in; echo $?");
        EXPECT_TRUE(result.output.ends_with("143\n")) << head.substr(0, 4) << result.output << result.errors;
    }
}

} // namespace tarn_cli
