// Audio files as input through pipes.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

namespace tarn_cli
{

class Pipes : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereo);
        ASSERT_EQ(tarn({"upmix", "in.wav", "expected.wav"}).exitCode, 0);
    }

    /// Runs a bash command line and expects that out.wav equals expected.wav or another file.
    void expectUpmix(const std::string& line, const std::string& expected = "expected.wav") const
    {
        const Result result =
            runIn(directory, {.arguments = {"-c", "TARN='" TARN_COMMAND "'; " + line}, .program = "bash"});
        ASSERT_EQ(result.exitCode, 0) << line << ": " << result.errors;
        EXPECT_TRUE(bytesOf(at("out.wav")) == bytesOf(at(expected))) << line;
        std::filesystem::remove(at("out.wav"));
    }

    const Samples stereo = stereoNoise(30000, 16);
};

TEST_F(Pipes, EveryKindOfPipeIsRead)
{
    expectUpmix("cat in.wav | \"$TARN\" upmix - out.wav");
    expectUpmix("cat in.wav | \"$TARN\" upmix /dev/stdin out.wav");
    expectUpmix("\"$TARN\" upmix - out.wav < in.wav");
    expectUpmix("\"$TARN\" upmix <(cat in.wav) out.wav");
    expectUpmix("mkfifo pipe; (sleep 0.2; cat in.wav > pipe) & \"$TARN\" upmix pipe out.wav");
    expectUpmix("(head -c 1000 in.wav; sleep 0.2; tail -c +1001 in.wav) | \"$TARN\" upmix - out.wav");
}

TEST_F(Pipes, EveryContainerIsRead)
{
    for (const auto& [name, format] : std::vector<std::pair<std::string, int>>{
             {"in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
             {"in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
             {"in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
             {"in.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
         }) {
        writeAudio(at(name), format, 48000, 2, stereo);
        ASSERT_EQ(tarn({"upmix", "--force", name, "named.wav"}).exitCode, 0);
        expectUpmix("cat " + name + " | \"$TARN\" upmix - out.wav", "named.wav");
    }
}

TEST_F(Pipes, UnknownLengthIsReadToTheEnd)
{
    expectUpmix("ffmpeg -v error -i in.wav -bitexact -f wav - | \"$TARN\" upmix - out.wav");
}

TEST_F(Pipes, InputCanBeReadTwice)
{
    const Result result = shell("cat in.wav | \"$TARN\" upmix --loudness-match - out.wav");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
}

TEST_F(Pipes, LiveSamplesAreUpmixedAsTheyArrive)
{
    writeBytes(at("in.pcm"), pcmOf(stereoNoise(6000, 16), 16));
    for (const std::string options : {"--raw 48000:16", "--raw 22050:16 --rate 48000"}) {
        // The sender stays open until something has arrived, for ten seconds at most.
        const Result result = shell("mkfifo live; \"$TARN\" upmix --quiet " + options +
                                    " - - <live >out.wav & exec 3>live; cat in.pcm >&3; "
                                    "for i in $(seq 100); do [ -s out.wav ] && break; sleep 0.1; done; "
                                    "stat -c %s out.wav; exec 3>&-; wait; rm live");
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_GT(std::stoi(result.output), 10000) << options;
    }
}

TEST_F(Pipes, StoppedWriterIsReported)
{
    const Result result = shell("head -c 100000 in.wav | \"$TARN\" upmix - out.wav");
    EXPECT_NE(
        result.errors.find("tarn: standard input: is cut short or damaged: it declares 30000 frames and has 24989"),
        std::string::npos)
        << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 24989);
    EXPECT_EQ(shell("head -c 100000 in.wav | \"$TARN\" upmix --strict - strict.wav").exitCode, 65);
    EXPECT_FALSE(std::filesystem::exists(at("strict.wav")));
}

TEST_F(Pipes, StorageFailureIsReported)
{
    const Result result = shell("cat in.wav | TMPDIR=/proc/self \"$TARN\" upmix - out.wav");
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("set TMPDIR to a folder with free space"), std::string::npos) << result.errors;
    EXPECT_FALSE(std::filesystem::exists(at("out.wav")));
}

TEST_F(Pipes, TerminalIsRefused)
{
    const Result result = runIn(
        directory, {.arguments = {"-qec", "'" TARN_COMMAND "' upmix - out.wav", "/dev/null"}, .program = "script"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.output.find("standard input: is a terminal"), std::string::npos) << result.output;
}

} // namespace tarn_cli
