// The broadcast extension and other chunks of WAV inputs.
// SPDX-License-Identifier: MIT
#include "cli/chunks.h"
#include "cli/descriptor.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <cstring>

#include <fcntl.h>
#include <tbytevector.h>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

} // namespace

/// Chunks of WAVE files.
class WaveChunks : public CommandTest
{
protected:
    static std::string number(std::uint32_t value)
    {
        const TagLib::ByteVector bytes = TagLib::ByteVector::fromUInt(value, false);
        return {bytes.data(), bytes.size()};
    }

    /// Appends chunks to a file and adds their size to its header.
    void appendChunks(const std::string& name, const std::vector<std::pair<std::string, std::string>>& chunks) const
    {
        std::string wave = bytesOf(at(name));
        for (const auto& [mark, contents] : chunks)
            wave += mark + number(static_cast<std::uint32_t>(contents.size())) + contents +
                    std::string(contents.size() % 2, '\0');
        writeBytes(at(name), wave.replace(4, 4, number(static_cast<std::uint32_t>(wave.size() - 8))));
    }

    /// Contents of the only chunk with a name.
    std::string chunkOf(const std::string& name, const char* mark) const
    {
        const tarn::Descriptor file(open(at(name).c_str(), O_RDONLY | O_CLOEXEC));
        const std::vector<std::string> found = tarn::chunksNamed(file.number(), mark);
        return found.size() == 1 ? found.front() : std::to_string(found.size()) + " chunks";
    }

    /// Makes a cart chunk with two timers.
    static std::string cart()
    {
        std::string contents(2048, '\0');
        contents.replace(0, 11, "0101A title");
        contents.replace(684, 8, "INT1" + number(4410));
        contents.replace(740, 8, "EOD " + number(44100));
        return contents + "A tag text\r\n";
    }

    /// Makes a smpl chunk with one loop.
    static std::string loop(std::uint32_t begin, std::uint32_t end)
    {
        return std::string(28, '\1') + number(1) + number(0) + number(7) + number(0) + number(begin) + number(end) +
               std::string(8, '\0');
    }

    const std::string scene = "<SCENE>12</SCENE><NOTE>A note</NOTE>";
    const std::string speed = "<SPEED><FILE_SAMPLE_RATE>44100</FILE_SAMPLE_RATE></SPEED>";
    const std::string ofStereo = "<TRACK_LIST><TRACK><NAME>Boom</NAME></TRACK></TRACK_LIST>";
};

TEST_F(WaveChunks, BroadcastExtensionKeepsValidFields)
{
    SF_INFO info{.frames = 0, .samplerate = 48000, .channels = 2, .format = kWave16, .sections = 0, .seekable = 0};
    SF_BROADCAST_INFO written{};
    std::strcpy(written.description, "A description");
    std::strcpy(written.originator, "An originator");
    std::memcpy(written.origination_date, "2026-11-21", 10);
    std::memcpy(written.origination_time, "12:34:56", 8);
    written.time_reference_low = 123456;
    written.version = 2;
    std::strcpy(written.umid, "a number of the stereo");
    written.loudness_value = -2300;
    written.max_true_peak_level = -100;
    std::strcpy(written.coding_history, "A=ANALOGUE,M=stereo\r\n");
    written.coding_history_size = static_cast<std::uint32_t>(std::strlen(written.coding_history));
    SNDFILE* const file = sf_open(at("in.wav").c_str(), SFM_WRITE, &info);
    ASSERT_EQ(sf_command(file, SFC_SET_BROADCAST_INFO, &written, sizeof written), SF_TRUE);
    const Samples stereo = stereoNoise(5000, 16);
    sf_write_int(file, stereo.data(), static_cast<sf_count_t>(stereo.size()));
    ASSERT_EQ(sf_close(file), 0);

    ASSERT_EQ(tarn({"upmix", "in.wav", "out.flac"}).exitCode, 0) << "FLAC cannot store it";
    ASSERT_EQ(tarn({"upmix", "in.wav", "out.wav"}).exitCode, 0);
    SNDFILE* const upmixed = sf_open(at("out.wav").c_str(), SFM_READ, &info);
    SF_BROADCAST_INFO read{};
    ASSERT_EQ(sf_command(upmixed, SFC_GET_BROADCAST_INFO, &read, sizeof read), SF_TRUE);
    sf_close(upmixed);
    EXPECT_STREQ(read.description, "A description");
    EXPECT_STREQ(read.originator, "An originator");
    EXPECT_EQ(std::string(read.origination_date, 10), "2026-11-21");
    EXPECT_EQ(std::string(read.origination_time, 8), "12:34:56");
    EXPECT_EQ(read.time_reference_low, 123456u);
    EXPECT_EQ(std::string(read.umid, 64), std::string(64, '\0')) << "the material number is invalid for the upmix";
    EXPECT_EQ(read.version, 2);
    for (const std::int16_t loudness : {read.loudness_value, read.loudness_range, read.max_true_peak_level,
                                        read.max_momentary_loudness, read.max_shortterm_loudness})
        EXPECT_EQ(loudness, 0x7fff) << "not measured, as version 2 says it";
    EXPECT_EQ(std::string(read.coding_history).rfind("A=ANALOGUE,M=stereo\r\n", 0), 0u) << read.coding_history;
    EXPECT_EQ(info.channels, 3);
    EXPECT_EQ(info.frames, 5000);
}

TEST_F(WaveChunks, OddSizesArePaddedOrNot)
{
    const std::string xml = "<BWFXML>" + scene + "</BWFXML>";
    ASSERT_EQ(xml.size() % 2, 1u);
    const std::string info = "INFO" + ("IART" + number(3) + std::string("Me\0\0", 4)) + "INAM" + number(6) + "Title";
    const std::string labels = "adtl" + ("labl" + number(7) + number(1) + std::string("Me\0\0", 4)) + "labl" +
                               number(8) + number(2) + std::string("You\0", 4);
    for (const bool isPadded : {true, false}) {
        writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
        if (isPadded) {
            appendChunks("in.wav", {{"iXML", xml}, {"LIST", info + '\0'}, {"LIST", labels}, {"cart", cart()}});
        } else {
            const std::string bytes = bytesOf(at("in.wav")) + "iXML" + number(static_cast<std::uint32_t>(xml.size()));
            writeBytes(at("in.wav"), bytes + xml + "cart" + number(2060) + cart());
        }
        const Result result = tarn({"upmix", "--force", "in.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
        EXPECT_EQ(chunkOf("out.wav", "iXML"), xml) << isPadded;
        EXPECT_EQ(chunkOf("out.wav", "cart"), cart()) << isPadded;
        if (!isPadded) continue;
        const std::string output = bytesOf(at("out.wav"));
        EXPECT_NE(output.find("INAM" + number(6) + "Title"), std::string::npos);
        EXPECT_NE(output.find(labels), std::string::npos);
    }
}

TEST_F(WaveChunks, RecordingChunksAreKeptInWaveAndReportedForFlac)
{
    writeAudio(at("in.wav"), kWave16, 44100, 2, stereoNoise(5000, 16));
    appendChunks("in.wav", {{"iXML", "<BWFXML>" + scene + ofStereo + speed + "</BWFXML>"}, {"cart", cart()}});
    const Result wave = tarn({"upmix", "in.wav", "out.wav"});
    ASSERT_EQ(wave.exitCode, 0) << wave.errors;
    EXPECT_EQ(wave.errors.find("left out"), std::string::npos) << wave.errors;
    EXPECT_EQ(chunkOf("out.wav", "iXML"), "<BWFXML>" + scene + speed + "</BWFXML>");
    EXPECT_EQ(chunkOf("out.wav", "cart"), cart());
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 5000);

    const Result flac = tarn({"upmix", "in.wav", "out.flac"});
    ASSERT_EQ(flac.exitCode, 0) << flac.errors;
    for (const std::string name : {"iXML", "cart"})
        EXPECT_NE(flac.errors.find("tarn: out.flac: FLAC has no place for the " + name + " chunk\n"), std::string::npos)
            << flac.errors;
}

TEST_F(WaveChunks, FrameCountsAreConvertedToTheOutputRate)
{
    SF_INFO info{.frames = 0, .samplerate = 44100, .channels = 2, .format = kWave16, .sections = 0, .seekable = 0};
    SF_BROADCAST_INFO broadcast{};
    broadcast.time_reference_low = 441;
    broadcast.time_reference_high = 441;
    SNDFILE* const file = sf_open(at("in.wav").c_str(), SFM_WRITE, &info);
    ASSERT_EQ(sf_command(file, SFC_SET_BROADCAST_INFO, &broadcast, sizeof broadcast), SF_TRUE);
    const Samples stereo = stereoNoise(5000, 16);
    sf_write_int(file, stereo.data(), static_cast<sf_count_t>(stereo.size()));
    ASSERT_EQ(sf_close(file), 0);
    appendChunks("in.wav", {{"iXML", "<BWFXML>" + speed + scene + "</BWFXML>"}, {"cart", cart()}});

    const Result result = tarn({"upmix", "--rate", "48000", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.wav: SPEED of its iXML chunk counts samples at 44100 Hz and is left out\n"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(chunkOf("out.wav", "iXML"), "<BWFXML>" + scene + "</BWFXML>");
    EXPECT_EQ(chunkOf("out.wav", "cart"), cart().replace(688, 4, number(4800)).replace(744, 4, number(48000)));
    SNDFILE* const upmixed = sf_open(at("out.wav").c_str(), SFM_READ, &info);
    SF_BROADCAST_INFO read{};
    ASSERT_EQ(sf_command(upmixed, SFC_GET_BROADCAST_INFO, &read, sizeof read), SF_TRUE);
    sf_close(upmixed);
    EXPECT_EQ(read.time_reference_low, 480u);
    EXPECT_EQ(read.time_reference_high, 480u);
}

TEST_F(WaveChunks, MarkersAreKeptInWaveAndReportedForOtherOutputs)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    const std::string cue = number(1) + number(1) + number(1234) + "data" + number(0) + number(0) + number(1234);
    const std::string labels = "adtllabl" + number(12) + number(1) + std::string("A marker", 8);
    const std::string loops = loop(100, 2000);
    appendChunks("in.wav", {{"cue ", cue}, {"LIST", labels}, {"smpl", loops}});
    const Result wave = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_EQ(wave.errors.find("left out"), std::string::npos) << wave.errors;
    EXPECT_EQ(chunkOf("out.wav", "cue "), cue);
    EXPECT_EQ(chunkOf("out.wav", "LIST"), labels);
    EXPECT_EQ(chunkOf("out.wav", "smpl"), loops);

    const Result flac = tarn({"upmix", "in.wav", "out.flac"});
    const Result converted = tarn({"upmix", "--rate", "96000", "in.wav", "96.wav"});
    EXPECT_EQ(converted.exitCode, 0) << converted.errors;
    for (const std::string name : {"cue", "LIST adtl", "smpl"}) {
        EXPECT_NE(flac.errors.find("tarn: out.flac: FLAC has no place for the " + name + " chunk\n"), std::string::npos)
            << flac.errors;
        EXPECT_NE(
            converted.errors.find("tarn: in.wav: its " + name + " chunk counts samples at 48000 Hz and is left out\n"),
            std::string::npos)
            << converted.errors;
        EXPECT_EQ(chunkOf("96.wav", name.substr(0, 3) == "cue" ? "cue " : name.substr(0, 4).c_str()), "0 chunks");
    }
}

TEST_F(WaveChunks, MarkersStayOnTheirAudioWithNoAlign)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    const auto cue = [](std::uint32_t frame, std::uint32_t inPlayList, std::uint32_t frameWithList) {
        return number(2) + number(1) + number(frame) + "data" + number(0) + number(0) + number(frame) + number(2) +
               number(inPlayList) + "data" + number(0) + number(0) + number(frameWithList);
    };
    const std::string labels = "adtlltxt" + number(20) + number(1) + number(50) + std::string(12, '\0');
    appendChunks("in.wav",
                 {{"cue ", cue(1234, 7, 2000)}, {"LIST", labels}, {"smpl", loop(100, 0xffffff00)}, {"cart", cart()}});
    const Result result = tarn({"upmix", "--no-align", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(chunkOf("out.wav", "cue "), cue(1234 + 960, 7, 2000 + 960));
    EXPECT_EQ(chunkOf("out.wav", "LIST"), labels);
    EXPECT_EQ(chunkOf("out.wav", "smpl"), loop(100 + 960, 0xffffffff));
    EXPECT_EQ(chunkOf("out.wav", "cart"),
              cart().replace(688, 4, number(4410 + 960)).replace(744, 4, number(44100 + 960)));
}

TEST_F(WaveChunks, InvalidChunksAreLeftOutAndNamed)
{
    const std::string point = number(1) + number(9) + "data" + number(0) + number(0) + number(9);
    for (const auto& [mark, contents, printed] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {"cue ", number(2) + point, "cue"},
             {"cue ", "abc", "cue"},
             {"cue ", number(0xffffffff) + point, "cue"},
             {"smpl", loop(1, 2).substr(0, 59), "smpl"},
             {"smpl", "short", "smpl"},
             {"LIST", "adtllabl" + number(13) + number(1) + std::string("A marker", 8), "LIST adtl"},
             {"LIST", "adtllabl" + number(2) + "ab", "LIST adtl"},
             {"iXML", "<BWFXML><SCENE>1</BWFXML>", "iXML"},
             {"iXML", "<BWFXML>\xff</BWFXML>", "iXML"},
             {"iXML", "no XML", "iXML"}}) {
        writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
        appendChunks("in.wav", {{mark, contents}});
        const Result result = tarn({"upmix", "--force", "in.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("tarn: in.wav: its chunks " + printed + " are invalid and are left out\n"),
                  std::string::npos)
            << contents << result.errors;
        EXPECT_EQ(chunkOf("out.wav", mark.c_str()), "0 chunks") << contents;
    }
}

TEST_F(WaveChunks, PaddedIxmlIsKept)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<BWFXML>" + scene + "</BWFXML>\n" + std::string(100, '\0');
    appendChunks("in.wav", {{"iXML", xml}});
    EXPECT_EQ(tarn({"upmix", "in.wav", "out.wav"}).errors.find("left out"), std::string::npos);
    EXPECT_EQ(chunkOf("out.wav", "iXML"), xml);
}

TEST_F(WaveChunks, OtherChunksOfAiffW64AndCafAreReported)
{
    const auto bigEndian = [](std::uint32_t value) {
        const std::string bytes = number(value);
        return std::string(bytes.rbegin(), bytes.rend());
    };
    const std::string w64Name("\xf3\xac\xd3\x11\x8c\xd1\x00\xc0\x4f\x8e\xdb\x8a", 12);
    for (const auto& [format, chunk] : std::vector<std::pair<int, std::string>>{
             {SF_FORMAT_AIFF, "MARK" + bigEndian(2) + std::string(2, '\0')},
             {SF_FORMAT_CAF, "MARK" + bigEndian(0) + bigEndian(2) + std::string(2, '\0')},
             {SF_FORMAT_W64, "MARK" + w64Name + number(32) + number(0) + std::string(8, '\0')}}) {
        writeAudio(at("in"), format | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
        const Result plain = tarn({"upmix", "--force", "in", "out.wav"});
        EXPECT_EQ(plain.errors.find("left out"), std::string::npos) << plain.errors;
        const Samples expected = readAudio(at("out.wav")).samples;
        writeBytes(at("in"), bytesOf(at("in")) + chunk);
        const Result result = tarn({"upmix", "--force", "in", "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("tarn: in: its chunks MARK are left out\n"), std::string::npos) << result.errors;
        EXPECT_TRUE(readAudio(at("out.wav")).samples == expected) << std::hex << format;
    }
}

TEST_F(WaveChunks, UnknownChunksAreReported)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    appendChunks("in.wav", {{"JUNK", "padding"},
                            {"minf", "contents"},
                            {"LIST", "wavl"},
                            {"cart", cart()},
                            {"cart", "another"},
                            {"minf", "contents"},
                            {"bext", "too short"}});
    for (const std::string output : {"out.wav", "out.flac"}) {
        const Result result = tarn({"upmix", "in.wav", output});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find("tarn: in.wav: its chunks cart, LIST wavl, minf, bext are left out\n"),
                  std::string::npos)
            << result.errors;
    }
}

TEST_F(WaveChunks, EmptyChunksAreNotReported)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    appendChunks("in.wav", {{"iXML", ""}, {"cart", ""}, {"LIST", ""}, {"minf", ""}, {"bext", ""}});
    for (const std::string output : {"out.wav", "out.flac"}) {
        const Result result = tarn({"upmix", "in.wav", output});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
    }
}

TEST_F(WaveChunks, ChunksLargerThanTheFileAreHarmless)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(5000, 16));
    appendChunks("in.wav", {{"iXML", "<BWFXML>"}});
    std::string wave = bytesOf(at("in.wav"));
    writeBytes(at("in.wav"), wave.replace(wave.size() - 12, 4, number(0x70000000)));
    const Result result = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in.wav: its chunks iXML are left out\n"), std::string::npos) << result.errors;
    EXPECT_LT(result.peakKibibytes, 100000);
}

} // namespace tarn_cli
