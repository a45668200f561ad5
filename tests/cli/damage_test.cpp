// Cut and damaged inputs: the audio that can be decoded is upmixed, the loss is reported.
// SPDX-License-Identifier: MIT
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"
#include "tests/cli/ogg_bytes.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kFlac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
constexpr unsigned kRate = 48000;

/// Replaces the number of frames in the first metadata block of FLAC: the last 36 bits before the checksum.
std::string withUnknownLength(std::string flac)
{
    flac[21] = static_cast<char>(flac[21] & 0xf0);
    flac.replace(22, 4, 4, '\0');
    return flac;
}

} // namespace

class Damage : public CommandTest
{
protected:
    /// Upmixes a damaged input to out.wav, and checks that --strict refuses it.
    Result upmix(const std::string& input, int exitCode) const
    {
        const Result strict = tarn({"upmix", "--force", "--strict", input, "strict.wav"});
        EXPECT_EQ(strict.exitCode, 65) << strict.errors;
        EXPECT_NE(strict.errors.find("tarn: " + input + ": is cut short or damaged: "), std::string::npos)
            << strict.errors;
        EXPECT_TRUE(strict.errors.ends_with("; get a complete copy of the file, or leave out --strict\n"))
            << strict.errors;
        EXPECT_FALSE(std::filesystem::exists(at("strict.wav")));
        Result result = tarn({"upmix", "--force", input, "out.wav"});
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        return result;
    }

    static void expectSaid(const Result& result, const std::string& text)
    {
        EXPECT_NE(result.errors.find("is cut short or damaged: " + text), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("; the rest is upmixed; get a complete copy of the file\n"), std::string::npos)
            << result.errors;
    }

    void cut(const std::string& name, std::uintmax_t bytes) const { std::filesystem::resize_file(at(name), bytes); }
};

TEST_F(Damage, LossUnderOneSecondIsAWarning)
{
    const Samples stereo = stereoNoise(9000, 16);
    for (const auto& [name, format, frameBytes] : std::vector<std::tuple<std::string, int, std::uintmax_t>>{
             {"in.wav", kWave16, 4},
             {"in.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 4},
             {"in.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, 4},
             {"in.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 4},
             {"in.au", SF_FORMAT_AU | SF_FORMAT_PCM_16, 4},
             {"in.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16, 4},
         }) {
        writeAudio(at(name), format, static_cast<int>(kRate), 2, stereo);
        cut(name, std::filesystem::file_size(at(name)) - frameBytes * 700 + 1);
        expectSaid(upmix(name, 0),
                   "it declares 9000 frames and has 8300; 0.015 seconds are missing; the damage begins at 0:00.172");
        EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput({stereo.begin(), stereo.begin() + 2 * 8300}, {}))
            << name;
    }
}

TEST_F(Damage, CafOfUnknownLengthIsReadToItsEnd)
{
    const Samples stereo = stereoNoise(9000, 16);
    writeAudio(at("in.caf"), SF_FORMAT_CAF | SF_FORMAT_PCM_16, static_cast<int>(kRate), 2, stereo);
    std::string caf = bytesOf(at("in.caf"));
    const std::size_t size = caf.find("data") + 4;
    caf.replace(size, 8, 8, '\xff');
    writeBytes(at("in.caf"), caf);
    const Result result = tarn({"upmix", "--strict", "in.caf", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {}));
}

TEST_F(Damage, LossOfOneSecondOrMoreSetsTheExitCode)
{
    const Samples stereo = stereoNoise(2 * kRate, 16);
    writeAudio(at("in.wav"), kWave16, static_cast<int>(kRate), 2, stereo);
    cut("in.wav", 44 + 4 * kRate);
    expectSaid(upmix("in.wav", 1),
               "it declares 96000 frames and has 48000; 1.000 seconds are missing; the damage begins at 0:01.000");
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput({stereo.begin(), stereo.begin() + 2 * kRate}, {}));
    EXPECT_NE(tarn({"upmix", "--quiet", "--force", "in.wav", "out.wav"}).errors, "") << "the reason for the exit code";

    const Result report = tarn({"upmix", "--json", "--force", "in.wav", "out.wav"});
    const auto loss = nlohmann::json::parse(report.output)["loss"];
    EXPECT_EQ(loss["seconds"], 1.0);
    EXPECT_EQ(loss["message"], "is cut short or damaged: it declares 96000 frames and has 48000; 1.000 seconds are "
                               "missing; the damage begins at 0:01.000");
    const Result info = tarn({"info", "in.wav"});
    EXPECT_TRUE(info.errors.ends_with("; the damage begins at 0:01.000; get a complete copy of the file\n"))
        << info.errors;

    cut("in.wav", 44 + 4 * kRate + 4);
    upmix("in.wav", 0);
}

TEST_F(Damage, LossOfAllAudioIsRefused)
{
    writeAudio(at("in.wav"), kWave16, static_cast<int>(kRate), 2, stereoNoise(9000, 16));
    cut("in.wav", 44);
    const Result result = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 65);
    EXPECT_NE(result.errors.find("in.wav: contains no audio: 0 frames"), std::string::npos) << result.errors;
    EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
}

TEST_F(Damage, DamagedFlacFrameBecomesSilenceInPlace)
{
    const Samples stereo = stereoNoise(3 * kRate, 16);
    writeAudio(at("in.flac"), kFlac16, static_cast<int>(kRate), 2, stereo);
    ASSERT_EQ(tarn({"upmix", "--bypass", "in.flac", "whole.wav"}).exitCode, 0);
    const Samples whole = readAudio(at("whole.wav")).samples;
    const std::string flac = bytesOf(at("in.flac"));
    for (const std::string& good : {flac, withUnknownLength(flac)}) {
        writeBytes(at("bad.flac"), withBitFlipped(good, good.size() / 2));
        const Result result = upmix("bad.flac", 0);
        expectSaid(result, "");
        EXPECT_NE(result.errors.find("frames are damaged and become silence; 0."), std::string::npos) << result.errors;
        ASSERT_EQ(tarn({"upmix", "--force", "--bypass", "bad.flac", "out.wav"}).exitCode, 0);
        const Samples output = readAudio(at("out.wav")).samples;
        expectSilenceInTheMiddle(output, whole);
        const auto firstDifference = std::mismatch(output.begin(), output.end(), whole.begin()).first - output.begin();
        const std::string place = "; the damage begins at " +
                                  tarn::durationText(static_cast<std::uint64_t>(firstDifference) / 3, kRate) + "; ";
        EXPECT_NE(result.errors.find(place), std::string::npos) << place << result.errors;
    }
}

TEST_F(Damage, DamagedVorbisPageBecomesSilenceInPlace)
{
    const Samples stereo = stereoNoise(6 * kRate, 16);
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereo);
    const std::string ogg = bytesOf(at("in.ogg"));
    ASSERT_EQ(tarn({"upmix", "--bypass", "in.ogg", "whole.wav"}).exitCode, 0);
    writeBytes(at("bad.ogg"), withBitFlipped(ogg, ogg.size() / 2));
    const Result result = tarn({"upmix", "--bypass", "bad.ogg", "out.wav"});
    EXPECT_NE(result.errors.find("frames are damaged and become silence"), std::string::npos) << result.errors;
    const Samples output = readAudio(at("out.wav")).samples;
    const Samples whole = readAudio(at("whole.wav")).samples;
    ASSERT_EQ(output.size(), whole.size());
    EXPECT_TRUE(std::equal(output.begin(), output.begin() + 3 * kRate, whole.begin()));
    EXPECT_TRUE(std::equal(output.end() - 3 * kRate, output.end(), whole.end() - 3 * kRate));
}

TEST_F(Damage, DamagedFirstVorbisPageBecomesSilence)
{
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(6 * kRate, 16));
    const std::string ogg = bytesOf(at("in.ogg"));
    ASSERT_EQ(tarn({"upmix", "--bypass", "in.ogg", "whole.wav"}).exitCode, 0);
    const std::size_t firstAudio = ogg.find("OggS", ogg.find("OggS", 4) + 4);
    writeBytes(at("bad.ogg"), withBitFlipped(ogg, firstAudio + 1000));
    const Result result = tarn({"upmix", "--bypass", "bad.ogg", "out.wav"});
    EXPECT_NE(result.errors.find("frames are damaged and become silence"), std::string::npos) << result.errors;
    const Samples output = readAudio(at("out.wav")).samples;
    const Samples whole = readAudio(at("whole.wav")).samples;
    ASSERT_EQ(output.size(), whole.size());
    EXPECT_EQ(output.front(), 0);
    EXPECT_TRUE(std::equal(output.end() - 3 * kRate, output.end(), whole.end() - 3 * kRate));
}

TEST_F(Damage, ShortVorbisFileLosesOnlyTheDamagedPage)
{
    constexpr std::size_t kFrames = 30000;
    writeAudio(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, static_cast<int>(kRate), 2, stereoNoise(kFrames, 16));
    const std::string ogg = bytesOf(at("in.ogg"));
    ASSERT_LT(ogg.size(), 65536u) << "the whole file is read at once";
    const std::size_t lastButOne = ogg.rfind("OggS", ogg.rfind("OggS") - 1);
    writeBytes(at("bad.ogg"), withBitFlipped(ogg, lastButOne + 100));
    const Result result = tarn({"upmix", "bad.ogg", "out.wav"});
    EXPECT_NE(result.errors.find("frames are damaged and become silence"), std::string::npos) << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, static_cast<sf_count_t>(kFrames));
}

TEST_F(Damage, DamagedMpegHeaderDoesNotEndTheStream)
{
    writeAudio(at("in.mp3"), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, static_cast<int>(kRate), 2,
               stereoNoise(6 * kRate, 16));
    std::string mpeg = bytesOf(at("in.mp3"));
    // The damaged header in the middle states another sample rate.
    const std::size_t header = mpeg.find(mpeg.substr(mpeg.find("\xff\xfb", 2000), 2), mpeg.size() / 2);
    mpeg[header + 2] = static_cast<char>(mpeg[header + 2] ^ 0x04);
    writeBytes(at("bad.mp3"), mpeg);
    const Result result = tarn({"upmix", "bad.mp3", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("some of its frames are damaged; 0."), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("; the damage begins at 0:02.9"), std::string::npos) << result.errors;
    EXPECT_GT(readAudio(at("out.wav")).info.frames, 6 * kRate - 5 * 1152);
}

TEST_F(Damage, CutFlacIsDetectedWithAndWithoutADeclaredLength)
{
    writeAudio(at("whole.flac"), kFlac16, static_cast<int>(kRate), 2, stereoNoise(4 * kRate, 16));
    const std::string flac = bytesOf(at("whole.flac"));
    for (const std::size_t percent : {30u, 50u, 90u}) {
        writeBytes(at("in.flac"), flac.substr(0, flac.size() * percent / 100));
        upmix("in.flac", percent == 90 ? 0 : 1);
        writeBytes(at("in.flac"), withUnknownLength(flac).substr(0, flac.size() * percent / 100));
        EXPECT_NE(upmix("in.flac", 1).errors.find("it ends inside a frame; how much is missing is not known"),
                  std::string::npos);
    }
    writeBytes(at("in.flac"), withUnknownLength(flac));
    EXPECT_EQ(tarn({"upmix", "--force", "--strict", "in.flac", "out.wav"}).exitCode, 0) << "complete";
}

TEST_F(Damage, CutLossyFilesAreDetected)
{
    for (const auto& [name, format] : std::vector<std::pair<std::string, int>>{
             {"in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
             {"in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
             {"in.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
         }) {
        Samples stereo = stereoNoise(4 * kRate, 16);
        for (std::int32_t& sample : stereo) sample /= 4; // peaks stay within full scale
        writeAudio(at(name), format, static_cast<int>(kRate), 2, stereo);
        ASSERT_EQ(tarn({"upmix", "--force", "--bypass", name, "whole.wav"}).exitCode, 0);
        cut(name, std::filesystem::file_size(at(name)) / 2);
        upmix(name, 1);
        ASSERT_EQ(tarn({"upmix", "--force", "--bypass", name, "cut.wav"}).exitCode, 1);
        // What is left has the samples of the complete file. A page of Ogg can hold a second.
        const Samples whole = readAudio(at("whole.wav")).samples;
        const Samples rest = readAudio(at("cut.wav")).samples;
        EXPECT_GT(rest.size(), 3 * kRate * 9 / 10) << name;
        ASSERT_LT(rest.size(), whole.size()) << name;
        EXPECT_TRUE(std::equal(rest.begin(), rest.end(), whole.begin())) << name;
    }
}

TEST_F(Damage, LossInOneOfManyFilesSetsTheExitCode)
{
    writeAudio(at("a.wav"), kWave16, static_cast<int>(kRate), 2, stereoNoise(2 * kRate, 16));
    writeAudio(at("b.wav"), kWave16, static_cast<int>(kRate), 2, stereoNoise(2 * kRate, 16));
    cut("a.wav", 44 + 4 * 1000);
    const Result result = tarn({"upmix", "--output-dir", "out", "--json", "a.wav", "b.wav"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(readAudio(at("out/a.wav-3.0.wav")).info.frames, 1000);
    EXPECT_EQ(readAudio(at("out/b.wav-3.0.wav")).info.frames, 2 * kRate);
    const auto report = nlohmann::json::parse(result.output);
    EXPECT_EQ(report["failed"], 0);
    EXPECT_TRUE(report["files"][0].contains("loss"));
    EXPECT_FALSE(report["files"][1].contains("loss"));
}

} // namespace tarn_cli
