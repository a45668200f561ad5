// Raw PCM on standard input and output.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

namespace tarn_cli
{

class Streams : public CommandTest
{};

TEST_F(Streams, PipesGiveTheBytesOfFiles)
{
    for (const unsigned bits : {16u, 24u, 32u}) {
        const Samples stereo = stereoNoise(10007, bits);
        const std::string raw = "44100:" + std::to_string(bits);
        const Samples expected = engineOutput(stereo, {.sampleRate = 44100, .bits = bits});
        const int subtype = bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32;
        writeAudio(at("in.wav"), SF_FORMAT_WAV | subtype, 44100, 2, stereo);

        const Result through = tarnWithInput(pcmOf(stereo, bits), {"upmix", "--raw", raw, "-", "-"});
        EXPECT_EQ(through.exitCode, 0) << through.errors;
        EXPECT_TRUE(through.output == pcmOf(expected, bits));

        const Result out = tarn({"upmix", "--raw", raw, "in.wav", "-"});
        EXPECT_EQ(out.exitCode, 0) << out.errors;
        EXPECT_TRUE(out.output == pcmOf(expected, bits));

        const Result in = tarnWithInput(pcmOf(stereo, bits), {"upmix", "--force", "--raw", raw, "-", "out.wav"});
        EXPECT_EQ(in.exitCode, 0) << in.errors;
        EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
    }
}

TEST_F(Streams, WidthComesFromTheFileOrTheOptions)
{
    const Samples stereo = stereoNoise(3000, 24);
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, stereo);
    const auto expected = [&](unsigned bits) { return pcmOf(engineOutput(stereo, {.bits = bits}), bits); };
    EXPECT_TRUE(tarn({"upmix", "in.wav", "-"}).output == expected(24));
    EXPECT_TRUE(tarn({"upmix", "--bits", "32", "in.wav", "-"}).output == expected(32));
    EXPECT_TRUE(tarn({"upmix", "--raw", "48000:16", "in.wav", "-"}).output == expected(16));
    EXPECT_TRUE(tarnWithInput(pcmOf(stereo, 24), {"upmix", "--raw", "48000:24", "--bits", "16", "-", "-"}).output ==
                expected(16));
}

TEST_F(Streams, OtherLayoutsAndNoAlignmentEqualTheEngine)
{
    const Samples stereo = stereoNoise(3001, 16);
    EXPECT_TRUE(
        tarnWithInput(pcmOf(stereo, 16), {"upmix", "--raw", "48000:16", "--layout", "5.1", "--no-align", "-", "-"})
            .output == pcmOf(engineOutput(stereo, {.layout = "5.1", .align = false}), 16));
}

TEST_F(Streams, StoppedWriterFailsOnlyWithPipefail)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(3000, 16), 16));
    const auto bash = [this](const std::string& before) {
        return runIn(directory, {.arguments = {"-c", before + "(head -c 4000 in.raw; exit 3) | '" TARN_COMMAND
                                                              "' upmix --force --raw 48000:16 - out.wav"},
                                 .program = "bash"});
    };
    EXPECT_EQ(bash("").exitCode, 0);
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 1000);
    EXPECT_EQ(bash("set -o pipefail; ").exitCode, 3);
}

TEST_F(Streams, PieceSizesDoNotMatter)
{
    const Samples stereo = stereoNoise(700, 16);
    writeBytes(at("in.raw"), pcmOf(stereo, 16));
    // Writes of 7 bytes split samples, frames and blocks.
    const Result result = shell("dd if=in.raw bs=7 status=none | \"$TARN\" upmix --raw 48000:16 - out.wav");
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {}));
}

TEST_F(Streams, AudioFileAsRawStreamIsRefused)
{
    for (const std::string mark : {"RIFF", "fLaC", "OggS"}) {
        const Result result =
            tarnWithInput(mark + std::string(4000, 'x'), {"upmix", "--raw", "48000:16", "-", "out.wav"});
        EXPECT_EQ(result.exitCode, 65);
        EXPECT_NE(
            result.errors.find("begins with '" + mark + "', so it is an audio file and not raw PCM; leave --raw out"),
            std::string::npos)
            << result.errors;
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Streams, PartialLastFrameIsDroppedWithAWarning)
{
    const Samples stereo = stereoNoise(1000, 16);
    const Samples expected = engineOutput(stereo, {});
    const std::string lost = "standard input: ends inside a frame: 3 bytes after 1000 frames (0:00.020) are lost; ";
    const std::string advice = "check that --raw has the rate and the width of the stream, and that it is stereo";
    const std::string bytes = pcmOf(stereo, 16) + "abc";
    const Result through = tarnWithInput(bytes, {"upmix", "--raw", "48000:16", "-", "-"});
    EXPECT_EQ(through.exitCode, 0);
    EXPECT_NE(through.errors.find("tarn: " + lost + "the rest is upmixed; " + advice + "\n"), std::string::npos)
        << through.errors;
    EXPECT_TRUE(through.output == pcmOf(expected, 16));

    const Result strict = tarnWithInput(bytes, {"upmix", "--strict", "--raw", "48000:16", "-", "out.wav"});
    EXPECT_EQ(strict.exitCode, 65);
    EXPECT_EQ(strict.errors, "tarn: " + lost + advice + ", or leave out --strict\n");
    EXPECT_TRUE(files().empty());

    const Result toFile = tarnWithInput(bytes, {"upmix", "--quiet", "--json", "--raw", "48000:16", "-", "out.wav"});
    EXPECT_EQ(toFile.exitCode, 0);
    EXPECT_EQ(toFile.errors, "tarn: " + lost + "the rest is upmixed; " + advice + "\n");
    EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
    const auto report = nlohmann::json::parse(toFile.output);
    EXPECT_EQ(report["exit_code"], 0);
    EXPECT_EQ(report["loss"]["seconds"], 0.75 / 48000);

    const Result oneByte = tarnWithInput(pcmOf(stereo, 16) + "a", {"upmix", "--raw", "48000:16", "-", "-"});
    EXPECT_NE(oneByte.errors.find(": 1 byte after 1000 frames (0:00.020) is lost; "), std::string::npos)
        << oneByte.errors;
    EXPECT_EQ(tarnWithInput("abc", {"upmix", "--raw", "48000:16", "-", "-"}).exitCode, 65);
}

TEST_F(Streams, EmptyStreamIsRefused)
{
    const Result result = tarnWithInput("", {"upmix", "--raw", "48000:16", "-", "out.wav"});
    EXPECT_EQ(result.exitCode, 65);
    EXPECT_NE(result.errors.find("standard input: contains no audio: 0 frames"), std::string::npos) << result.errors;
    EXPECT_TRUE(files().empty());
}

TEST_F(Streams, TerminalOutputIsRefused)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(3000, 16));
    const Result result = runIn(
        directory, {.arguments = {"-qec", "'" TARN_COMMAND "' upmix in.wav -", "/dev/null"}, .program = "script"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.output.find("is a terminal, which cannot show raw PCM"), std::string::npos) << result.output;
}

TEST_F(Streams, WriteFailureIsReported)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(3000, 16));
    const Result result = shell("\"$TARN\" upmix in.wav - > /dev/full");
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("standard output: writing failed: No space left on device"), std::string::npos)
        << result.errors;
}

TEST_F(Streams, EndedReaderEndsTheCommandQuietlyBySigpipe)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(200000, 16));
    const auto bash = [this](const std::string& line) {
        return runIn(directory, {.arguments = {"-c", "TARN='" TARN_COMMAND "'; " + line}, .program = "bash"});
    };
    for (const auto& [arguments, reader] : std::vector<std::pair<std::string, std::string>>{
             {"upmix --quiet in.wav -", "(head -c 9 >/dev/null)"},
             {"upmix --quiet --picture out.svg in.wav -", "(head -c 9 >/dev/null)"},
             {"info --verbose in.wav", "(true); wait $!"},
             {"info --json in.wav missing.wav 2>errors", "(true); wait $!"},
             {"demo", "(true); wait $!"},
             {"meter --speed 1000 in.wav", "(true); wait $!"},
             {"upmix in.wav out.wav 2>&1", "(true); wait $!"}}) {
        // With "wait", the reader has ended before the command starts.
        const Result result = bash("exec 3> >" + reader + "; >&3 \"$TARN\" " + arguments + "; echo $?");
        EXPECT_EQ(result.output, "141\n") << arguments;
        EXPECT_EQ(result.errors, "") << arguments;
        std::filesystem::remove(at("errors"));
        // The summary comes when the output is complete.
        const bool isComplete = arguments.starts_with("upmix in.wav out.wav");
        EXPECT_EQ(std::filesystem::remove(at("out.wav")), isComplete);
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"})) << arguments;
    }
    // A parent that ignores SIGPIPE gets an error.
    const Result ignored = bash("trap '' PIPE; \"$TARN\" upmix --quiet --picture out.svg in.wav - | head -c 9 "
                                ">/dev/null; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(ignored.output, "74\n");
    EXPECT_EQ(ignored.errors, "tarn: standard output: writing failed: Broken pipe; check the program or the disk that "
                              "receives it\n");
    EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
}

TEST_F(Streams, MemoryIsIndependentOfLength)
{
    const auto peakKibibytes = [this](std::uintmax_t seconds) {
        writeBytes(at("in.raw"), "");
        std::filesystem::resize_file(at("in.raw"), seconds * 32000 * 4);
        const Result result = runIn(
            directory,
            {.arguments = {"upmix", "--raw", "32000:16", "-", "-"}, .inputFile = at("in.raw"), .outputNull = true});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result.peakKibibytes;
    };
    const long shortStream = peakKibibytes(20);
    const long longStream = peakKibibytes(600);
    EXPECT_GT(shortStream, 0);
    EXPECT_LT(longStream - shortStream, 1024);
}

} // namespace tarn_cli
