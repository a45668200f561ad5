// tarn meter without a terminal: figures, raw streams that pass, and refusals.
// SPDX-License-Identifier: MIT
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <csignal>
#include <map>
#include <numbers>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

class Meter : public CommandTest
{
protected:
    /// Frames of a sine with a level for each side.
    static Samples sine(std::size_t frames, double hertz, double left, double right)
    {
        Samples samples;
        for (std::size_t i = 0; i < frames; ++i) {
            const double value = std::sin(2.0 * std::numbers::pi * hertz / 48000.0 * static_cast<double>(i));
            for (const double level : {left, right})
                samples.push_back(static_cast<std::int32_t>(std::lround(level * value * 32767.0)) * 65536);
        }
        return samples;
    }

    /// The words of a line by their name: "FL" of "FL=-1.0,-4.0" is {-1, -4}.
    static std::map<std::string, std::vector<double>> wordsOf(const std::string& line)
    {
        std::map<std::string, std::vector<double>> words;
        std::istringstream in(line);
        for (std::string word; in >> word;) {
            std::istringstream values(word.substr(word.find('=') + 1));
            for (std::string value; std::getline(values, value, ',');)
                words[word.substr(0, word.find('='))].push_back(std::stod(value));
        }
        return words;
    }

    static std::vector<std::string> linesOf(const std::string& text)
    {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
};

// A sine at half of full scale on the left, in the middle of the group from 4500 to 6000 Hz. The engine plays a source
// at a side 3 dB softer: its level is -6 dB - 3 dB (rms) - 3 dB.
TEST_F(Meter, PrintsALineForEverySecondWithTheGroupOfASine)
{
    const Result result = tarnWithInput(pcmOf(sine(3 * 48000 + 100, 5250.0, 0.5, 0.0), 16),
                                        {"meter", "--preset", "plain", "--raw", "48000:16"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    const std::vector<std::string> lines = linesOf(result.output);
    ASSERT_EQ(lines.size(), 4u);
    for (std::size_t second = 1; second <= 3; ++second)
        EXPECT_TRUE(lines[second - 1].starts_with("seconds=" + std::to_string(second) + ".0 ")) << lines[second - 1];
    EXPECT_TRUE(lines[3].starts_with("seconds=3.002083 ")) << lines[3];

    auto words = wordsOf(lines[2]);
    EXPECT_EQ(words.size(), 5u + 3u + 16u);
    ASSERT_EQ(words["6000"].size(), 3u);
    EXPECT_NEAR(words["6000"][0], -12.0, 0.1);
    EXPECT_EQ(words["6000"][1], 1.0);
    EXPECT_EQ(words["6000"][2], 0.0);
    for (const auto& [name, values] : words)
        EXPECT_TRUE(values.size() != 3 || name == "6000" || values[0] < -50.0) << name << " " << values[0];
    EXPECT_NEAR(words["FL"][0], -9.0, 0.1) << "the peak";
    EXPECT_NEAR(words["FL"][1], -12.0, 0.1) << "the rms level";
    EXPECT_LT(words["FR"][0], -60.0);
    EXPECT_LT(words["FC"][1], -40.0);
    EXPECT_EQ(words["momentary"], words["integrated"]) << "the level is constant";
    EXPECT_EQ(words["clipped"][0], 0.0);
}

TEST_F(Meter, ShowsCentreAndWideSoundsAndSilence)
{
    const auto lastLine = [this](double left, double right) {
        const Result result =
            tarnWithInput(pcmOf(sine(96000, 5250.0, left, right), 16), {"meter", "--raw", "48000:16"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return wordsOf(linesOf(result.output).at(1));
    };
    auto centre = lastLine(0.3, 0.3);
    EXPECT_EQ(centre["6000"][1], 0.0);
    EXPECT_GT(centre["6000"][2], 0.98);
    auto wide = lastLine(0.3, -0.3);
    EXPECT_EQ(wide["6000"][1], 0.0);
    EXPECT_LT(wide["6000"][2], 0.02);
    auto silence = lastLine(0.0, 0.0);
    EXPECT_EQ(silence["6000"][0], -HUGE_VAL);
    EXPECT_EQ(silence["FL"][0], -HUGE_VAL);
    EXPECT_EQ(silence["momentary"][0], -HUGE_VAL);
}

TEST_F(Meter, PrintsTheSameFiguresAsJson)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, sine(96000, 5250.0, 0.5, 0.1));
    const Result text = tarn({"meter", "--layout", "5.1", "--speed", "1000", "in.wav"});
    const Result json = tarn({"meter", "--layout", "5.1", "--speed", "1000", "--json", "in.wav"});
    EXPECT_EQ(json.exitCode, 0) << json.errors;
    const auto lines = linesOf(json.output);
    ASSERT_EQ(lines.size(), 2u);
    const auto rounded = [](const char* format, const nlohmann::json& value) {
        return std::stod(tarn::formatted(format, value.get<double>()));
    };
    for (std::size_t i = 0; i < 2; ++i) {
        const auto words = wordsOf(linesOf(text.output).at(i));
        const auto object = nlohmann::json::parse(lines[i]);
        EXPECT_EQ(object["seconds"], static_cast<double>(i + 1));
        EXPECT_EQ(rounded("%.1f", object["momentary_lufs"]), words.at("momentary")[0]);
        EXPECT_EQ(object["outputs"].size(), 6u);
        EXPECT_EQ(object["outputs"][3]["name"], "LFE");
        EXPECT_TRUE(object["outputs"][3]["peak_dbfs"].is_null()) << "silent without --lfe";
        EXPECT_EQ(rounded("%.1f", object["outputs"][0]["peak_dbfs"]), words.at("FL")[0]);
        EXPECT_EQ(object["groups"].size(), 16u);
        EXPECT_EQ(object["groups"][8]["upper_hz"], 6000.0);
        EXPECT_EQ(rounded("%.1f", object["groups"][8]["level_dbfs"]), words.at("6000")[0]);
        EXPECT_EQ(rounded("%.2f", object["groups"][8]["place"]), words.at("6000")[1]);
    }
}

// The surround channels play the energy of a wide sine, and none of a centred one.
TEST_F(Meter, PrintsTheSurroundsOfTheBandGroupsAsJson)
{
    const auto surroundOf = [this](const char* layout, double right) {
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, sine(96000, 5250.0, 0.5, right));
        const Result json = tarn({"meter", "--layout", layout, "--speed", "1000", "--json", "in.wav"});
        EXPECT_EQ(json.exitCode, 0) << json.errors;
        return nlohmann::json::parse(linesOf(json.output).at(1))["groups"][8]["surround_dbfs"];
    };
    for (const char* const layout : {"5.1", "7.1"}) {
        EXPECT_NEAR(surroundOf(layout, -0.5).get<double>(), 20.0 * std::log10(0.5), 0.1) << layout;
        EXPECT_TRUE(surroundOf(layout, 0.5).is_null()) << layout;
    }
    EXPECT_TRUE(surroundOf("3.0", -0.5).is_null());
}

TEST_F(Meter, CountsClippedSamplesOfTheInput)
{
    std::vector<float> samples(2 * 48000, 0.0f);
    for (const std::size_t frame : {480u, 4800u, 9600u}) samples[2 * frame] = 2.0f;
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    auto words = wordsOf(tarn({"meter", "--speed", "1000", "in.wav"}).output);
    EXPECT_EQ(words["clipped"], std::vector<double>{3.0});
    words = wordsOf(tarn({"meter", "--speed", "1000", "--start", "0.05", "in.wav"}).output);
    EXPECT_EQ(words["clipped"], std::vector<double>{2.0}) << "without those before the start";
    // Of the outputs, with a gain and without a limiter.
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(48000, 16));
    words = wordsOf(tarn({"meter", "--speed", "1000", "--no-limiter", "--gain", "12", "in.wav"}).output);
    EXPECT_GT(words["clipped"].at(0), 100.0);
}

TEST_F(Meter, ReadsAFileInRealTimeOrAtASpeed)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, stereoNoise(44100, 16));
    const auto secondsAt = [this](const std::string& speed) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(tarn({"meter", "--speed", speed, "in.wav"}).exitCode, 0);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    EXPECT_GE(secondsAt("1"), 1.0);
    EXPECT_GE(secondsAt("0.5"), 2.0);
    EXPECT_LT(secondsAt("1000"), 1.0);
}

TEST_F(Meter, BeginsAtAStart)
{
    Samples samples = sine(2 * 48000, 5250.0, 0.5, 0.0);
    const Samples right = sine(48000 + 24000, 5250.0, 0.0, 0.5);
    samples.insert(samples.end(), right.begin(), right.end());
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, samples);
    const Result result = tarn({"meter", "--speed", "1000", "--preset", "plain", "--start", "0:02", "in.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const auto lines = linesOf(result.output);
    ASSERT_EQ(lines.size(), 2u) << result.output;
    EXPECT_TRUE(lines[0].starts_with("seconds=3.0 ")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("seconds=3.5 ")) << lines[1];
    EXPECT_EQ(wordsOf(lines[0])["6000"][1], -1.0) << "the left has not been read";
    EXPECT_EQ(wordsOf(lines[0])["FL"][0], -HUGE_VAL);

    const Result late = tarn({"meter", "--start", "4", "in.wav"});
    EXPECT_EQ(late.exitCode, 64);
    EXPECT_EQ(late.output, "");
    EXPECT_EQ(late.errors, "tarn: --start 4: in.wav ends at 0:03; give an earlier start\n");
}

TEST_F(Meter, ConvertsOtherRates)
{
    const Result result = tarnWithInput(pcmOf(stereoNoise(22050, 24), 24), {"meter", "--raw", "22050:24"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(result.output.starts_with("seconds=1.0 ")) << result.output;
    EXPECT_NE(result.output.find(" 16000="), std::string::npos) << "the engine runs at 32 kHz";
}

TEST_F(Meter, PassesEveryByteEvenOfAnIncompleteFrame)
{
    const std::string bytes = pcmOf(stereoNoise(700001, 16), 16) + "abc";
    const Result result = tarnWithInput(bytes, {"meter", "--raw", "48000:16", "--pass"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(result.output == bytes);
    const auto lines = linesOf(result.errors);
    EXPECT_TRUE(lines.front().starts_with("seconds=1.0 ")) << result.errors;
    EXPECT_TRUE(lines.back().starts_with("tarn: standard input: ends inside a frame: 3 bytes after 700001 frames "))
        << result.errors;
}

TEST_F(Meter, PassesSmallPiecesAtOnce)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(700, 24), 24));
    // Writes of 7 bytes split samples and frames.
    const Result result =
        shell("dd if=in.raw bs=7 status=none | \"$TARN\" meter --raw 44100:24 --pass 2>lines >out.raw");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(bytesOf(at("out.raw")), bytesOf(at("in.raw")));
    EXPECT_TRUE(bytesOf(at("lines")).starts_with("seconds=0.015873 ")) << bytesOf(at("lines"));
    // The stream goes on only after its first bytes have arrived.
    const Result waiting = shell("(printf abc; while ! [ -e seen ]; do sleep 0.05; done; printf d) | "
                                 "\"$TARN\" meter --raw 44100:24 --pass 2>errors | { head -c 3; touch seen; cat; }");
    EXPECT_EQ(waiting.output, "abcd");
}

TEST_F(Meter, PassesWhileNobodyReadsTheLines)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(48000 * 60, 16), 16));
    // 60 lines are more than a pipe holds.
    const Result result = shell("{ \"$TARN\" meter --raw 48000:16 --json --pass <in.raw 2>&3 >out.raw; "
                                "touch complete; } 3>&1 | { while ! [ -e complete ]; do sleep 0.1; done; wc -c; }");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(bytesOf(at("out.raw")) == bytesOf(at("in.raw")));
    EXPECT_GT(std::stoul(result.output), 10000u);
}

TEST_F(Meter, PassesOnAfterTheReaderOfTheLinesHasEnded)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(48000 * 20, 16), 16));
    // The lines of the second half come when their reader is gone.
    const Result result = shell("{ (head -c 2000000 in.raw; while ! [ -e gone ]; do sleep 0.05; done; "
                                "tail -c +2000001 in.raw) | "
                                "\"$TARN\" meter --raw 48000:16 --pass 2>&3 >out.raw; echo status $? >&4; } "
                                "3>&1 4>status | { head -n 1 >line; exec <&-; touch gone; }");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(bytesOf(at("status")), "status 0\n");
    EXPECT_TRUE(bytesOf(at("out.raw")) == bytesOf(at("in.raw")));
}

TEST_F(Meter, DiesByTheSignalWhenTheReaderEnds)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(100000, 16), 16));
    for (const std::string options : {"--pass", "--upmix", ""}) {
        const Result result =
            runIn(directory, {.arguments = {"-c", "'" TARN_COMMAND "' meter --raw 48000:16 " + options +
                                                      " <in.raw 2>errors | head -c 10 >out; "
                                                      "echo ${PIPESTATUS[0]}"},
                              .program = "bash"});
        // Lines that fit into the pipe may be written before the reader ends.
        EXPECT_TRUE(result.output == "141\n" || (options.empty() && result.output == "0\n")) << result.output;
        EXPECT_EQ(bytesOf(at("errors")).find("tarn:"), std::string::npos) << bytesOf(at("errors"));
    }
}

TEST_F(Meter, WritesTheUpmixOfTheCommand)
{
    const std::string bytes = pcmOf(stereoNoise(50001, 24), 24);
    for (const char* const rate : {"48000:24", "22050:24"}) {
        const Result meter = tarnWithInput(
            bytes, {"meter", "--raw", rate, "--upmix", "--layout", "5.1", "--preset", "music", "--mode", "calm"});
        const Result upmix = tarnWithInput(bytes, {"upmix", "--raw", rate, "--layout", "5.1", "--preset", "music",
                                                   "--mode", "calm", "--quiet", "-", "-"});
        EXPECT_EQ(meter.exitCode, 0) << meter.errors;
        EXPECT_FALSE(meter.output.empty());
        if (std::string(rate) == "48000:24") {
            EXPECT_TRUE(meter.output == upmix.output);
        } else {
            EXPECT_EQ(meter.output.size(), upmix.output.size());
        }
    }
}

TEST_F(Meter, DiesBySignalsWhileItWaits)
{
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        int input[2];
        ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
        const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
        Process process({.arguments = {"meter", "--raw", "48000:16", "--pass"}}, directory, input[0], sink, sink);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        expectDeathBy(signalNumber, process);
        for (const int descriptor : {input[0], input[1], sink}) close(descriptor);
    }
}

TEST_F(Meter, RefusesOptionsThatContradictEachOther)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(100, 16));
    writeBytes(at("empty.raw"), "");
    const auto expectRefusal = [this](const std::string& line, int exitCode, const std::string& message) {
        const Result result = shell("\"$TARN\" meter " + line);
        EXPECT_EQ(result.exitCode, exitCode) << line;
        EXPECT_EQ(result.errors.substr(0, result.errors.find('\n')), "tarn: " + message) << line;
        EXPECT_EQ(result.output, "") << line;
    };
    expectRefusal("", 64, "INPUT is required; name a file, or add --raw 48000:16 for a raw stream");
    expectRefusal("--pass in.wav", 64,
                  "--pass: needs a raw stream on standard input; add --raw with its rate and width, for example --raw "
                  "48000:16");
    expectRefusal("--raw 48000:16 --pass --upmix", 64, "--pass: contradicts --upmix; leave one of them out");
    expectRefusal("--raw 48000:16 in.wav", 64, "--raw: describes the stream on '-', but INPUT is a file; leave it out");
    expectRefusal("--raw 48000", 64, "--raw 48000: not RATE:BITS; write for example --raw 48000:16");
    expectRefusal("--raw 48000:16 --speed 2", 64, "--speed: a stream has a speed of its own; leave it out");
    expectRefusal("--raw 48000:16 --start 2", 64, "--start: a raw stream has no times; leave it out");
    expectRefusal("--start soon in.wav", 64,
                  "--start: 'soon' cannot be read as a time; write for example --start 1:30; see tarn meter --help");
    expectRefusal("--speed 0 in.wav", 64,
                  "--speed: 0 is out of range; use 0.1 to 1000, for example --speed 10; see tarn meter "
                  "--help");
    expectRefusal("--layout 7.1-remap in.wav", 64,
                  "--layout: '7.1-remap' is not 2.0, 3.0, 5.1 or 7.1; write for example --layout 5.1; see tarn "
                  "meter --help");
    expectRefusal("--lfe 0 in.wav", 64, "--lfe: --layout 3.0 has no LFE channel; use --layout 5.1, or leave it out");
    expectRefusal("missing.wav", 66,
                  "missing.wav: cannot be opened: No such file or directory; check the name and that you may read it");
    expectRefusal("--raw 48000:16 <empty.raw", 65,
                  "standard input: contains no audio: 0 frames; check the command before the pipe");
    expectRefusal("--raw 48000:16 --pass <in.wav", 65,
                  "standard input: begins with 'RIFF', so it is an audio file and not raw PCM; leave --raw out");
}

} // namespace tarn_cli
