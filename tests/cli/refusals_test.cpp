// Inputs and options that are refused: exit code, message, no file left.
// SPDX-License-Identifier: MIT
#include "cli/layout.h"
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

namespace tarn_cli
{

/// Checks of refused runs: exit code, message, no file left.
class Refusals : public CommandTest
{
protected:
    void expectRefusal(const std::vector<std::string>& arguments, int exitCode, const std::string& message) const
    {
        const std::vector<std::string> before = files();
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        EXPECT_TRUE(result.errors.starts_with("tarn: ")) << result.errors;
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(files(), before);
    }

    void expectBadInput(const std::string& name, int exitCode, const std::string& message) const
    {
        expectRefusal({"upmix", name, "out.wav"}, exitCode, "tarn: " + name + ": " + message);
    }

    void writeStereo(const std::string& name, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16) const
    {
        writeAudio(at(name), format, 48000, 2, stereoNoise(9000, 16));
    }

    void cut(const std::string& name, std::uintmax_t bytes) const { std::filesystem::resize_file(at(name), bytes); }
};

TEST_F(Refusals, InputsThatCannotBeOpened)
{
    expectBadInput("missing.wav", 66, "cannot be opened: No such file or directory");
    std::filesystem::create_directory(at("folder"));
    expectBadInput("/dev/zero", 66, "is a device");
    expectBadInput("/dev/null", 65, "is an empty device; name an audio file, or a pipe with one\n");
    const Result input = shell("\"$TARN\" info - < /dev/null");
    EXPECT_EQ(input.errors, "tarn: standard input: is an empty device; name an audio file, or a pipe with one\n");
}

TEST_F(Refusals, MpegWithoutACompleteFrame)
{
    writeStereo("in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    const std::string mpeg = bytesOf(at("in.mp3"));
    for (const std::size_t bytes : {100u, 300u, 500u}) {
        writeBytes(at("in.mp3"), mpeg.substr(0, bytes));
        expectBadInput("in.mp3", 65,
                       "is not an audio file that can be read (it begins like MPEG audio and ends before its first "
                       "complete frame of audio); check where it comes from");
    }
}

TEST_F(Refusals, FoldersSuggestACommand)
{
    writeStereo("in.wav");
    std::filesystem::create_directories(at("my music"));
    const auto expectAdvice = [this](const std::vector<std::string>& arguments, int exitCode, const std::string& text) {
        expectRefusal(arguments, exitCode, "tarn: " + text + "\n");
    };
    expectAdvice({"upmix", "in.wav", "my music"}, 64,
                 "my music: is a folder; type: tarn upmix --output-dir 'my music' in.wav");
    expectAdvice({"upmix", "in.wav", "in2.wav", "my music"}, 64,
                 "my music: is a folder; type: tarn upmix --output-dir 'my music' in.wav ...");
    const std::string recursive = "my music: is a folder; type: tarn upmix --recursive --output-dir ";
    expectAdvice({"upmix", "my music", "out.wav"}, 66, recursive + "upmixed 'my music'");
    expectAdvice({"upmix", "my music"}, 66, recursive + "upmixed 'my music'");
    expectAdvice({"upmix", "my music", "."}, 66, recursive + ". 'my music'");
    expectAdvice({"info", "my music"}, 66, "my music: is a folder; type: tarn info --recursive 'my music'");
    expectAdvice({"info", "my music/"}, 66, "my music/: is a folder; type: tarn info --recursive 'my music/'");
}

TEST_F(Refusals, SuggestionsBeginWithTheNameThatStartedTheCommand)
{
    const auto errorsOf = [this](const std::string& line) {
        return runIn(directory,
                     {.arguments = {"-c", "exec -a './run tarn' '" TARN_COMMAND "' " + line}, .program = "bash"})
            .errors;
    };
    std::filesystem::create_directory(at("music"));
    EXPECT_EQ(errorsOf("upmix in.wav out.wav --nothing"),
              "tarn: --nothing: no such option (a file of that name is ./--nothing); see "
              "./run tarn upmix --help\n");
    EXPECT_EQ(errorsOf("info music"), "tarn: music: is a folder; type: ./run tarn info --recursive music\n");
    EXPECT_EQ(errorsOf("demo > demo.txt"), "");
    EXPECT_NE(bytesOf(at("demo.txt")).find("  ./run tarn upmix song.flac song-3.0.wav\n"), std::string::npos);
    EXPECT_EQ(errorsOf("upmix music"), "tarn: music: is a folder; type: ./run tarn upmix --recursive --output-dir "
                                       "upmixed music\n");
}

TEST_F(Refusals, BadValuesNameOptionRangeAndExample)
{
    writeStereo("in.wav");
    const auto expectProblem = [this](const std::string& option, const std::string& value, const std::string& text) {
        const Result result = tarn({"upmix", option, value, "--output-dir", "out", "in.wav"});
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_EQ(result.errors, "tarn: " + option + ": " + text + "; see tarn upmix --help\n");
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
    };
    const auto expectValue = [&](const std::string& option, const std::string& value, const std::string& text) {
        expectProblem(option, value, "'" + value + "' is not " + text);
    };
    const auto expectRange = [&](const std::string& option, const std::string& value, const std::string& text) {
        expectProblem(option, value, value + " is out of range; use " + text);
    };
    for (const std::string value : {"-6,5", "loud", "nan", ""})
        expectValue("--gain", value, "a number from -60 to 18; write for example --gain -6.5");
    for (const std::string value : {"19", "-60.1", "inf", "1e999"})
        expectRange("--gain", value, "-60 to 18, for example --gain -6.5");
    for (const std::string value : {"20", "0", "-16", "16.0", "x"})
        expectValue("--bits", value, "16, 24 or 32; write for example --bits 24");
    for (const std::string value : {"1", "22050", "48k", "-1"})
        expectValue("--rate", value,
                    "32000, 44100, 48000, 64000, 88200, 96000 or 192000; write for example --rate 48000");
    for (const std::string value : {"1.5", "all"})
        expectValue("--jobs", value, "a whole number from 1 to 64; write for example --jobs 4");
    for (const std::string value : {"0", "65", "-1"}) expectRange("--jobs", value, "1 to 64, for example --jobs 4");
    expectValue("--mode", "3", "fast or calm; write for example --mode calm");
    expectValue("--layout", "9.1", tarn::listOf(tarn::layoutNames()) + "; write for example --layout 5.1");
    expectValue("--format", "mp3", "wav or flac; write for example --format flac");
}

TEST_F(Refusals, InputsWithoutAudio)
{
    writeBytes(at("empty.wav"), "");
    expectBadInput("empty.wav", 65, "is empty, 0 bytes");
    writeBytes(at("text.wav"), "This is no audio, but it is long enough for a header of some kind.\n");
    expectBadInput("text.wav", 65, "is not an audio file that can be read");
    writeStereo("header.wav");
    cut("header.wav", 30);
    expectBadInput("header.wav", 65, "is not an audio file that can be read");
}

TEST_F(Refusals, HeadersWithoutFrames)
{
    writeAudio(at("none.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, {});
    expectBadInput("none.wav", 65, "contains no audio: 0 frames");
    writeAudio(at("none.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, {});
    expectRefusal({"upmix", "none.flac", "out.wav"}, 65, "tarn: none.flac: ");
    writeAudio(at("float.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, {});
    expectBadInput("float.wav", 65, "contains no audio: 0 frames");
}

TEST_F(Refusals, MultichannelFilesSuggestADownmix)
{
    writeAudio(at("my six.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 6, stereoNoise(3000, 16));
    expectBadInput("my six.wav", 65,
                   "has 6 channels and is multichannel already; only mono and stereo can be upmixed. Mix it down with: "
                   "ffmpeg -i 'my six.wav' -ac 2 stereo.wav\n");
}

TEST_F(Refusals, RatesOutOfRange)
{
    for (const int rate : {1, 3999, 768001}) {
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, rate, 2, stereoNoise(1000, 16));
        expectBadInput("in.wav", 65,
                       "has a sample rate of " + std::to_string(rate) + " Hz, and 4000 to 768000 Hz can be upmixed");
    }
}

TEST_F(Refusals, OutputsThatCannotBeCreated)
{
    writeStereo("in.wav");
    expectRefusal({"upmix", "in.wav", "missing/out.wav"}, 73, "cannot create a file in missing: No such file");
    expectRefusal({"upmix", "in.wav", "in.wav/out.wav"}, 73, "cannot create a file in in.wav: Not a directory");
    expectRefusal({"upmix", "in.wav", "/proc/out.wav"}, 73, "cannot create a file in /proc: ");
    expectRefusal({"upmix", "in.wav", "out.mp3"}, 64, "end the name in .wav or .flac");
    expectRefusal({"upmix", "--bits", "32", "in.wav", "out.flac"}, 64, "add --bits 24, or write a .wav file");
    expectRefusal({"demo", "out.mp3"}, 64, "end the name in .wav or .flac");
}

TEST_F(Refusals, ConflictingOptions)
{
    writeStereo("in.wav");
    writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n");
    expectRefusal({}, 64, "no command; use film, upmix, info, picture, report, meter or demo");
    expectRefusal({"upmix"}, 64, "INPUT");
    expectRefusal({"upmix", "in.wav"}, 64, "OUTPUT");
    expectRefusal({"upmix", "--bogus", "in.wav", "out.wav"}, 64,
                  "tarn: --bogus: no such option (a file of that name is ./--bogus); see tarn upmix --help");
    expectRefusal({"upmx", "in.wav", "out.wav"}, 64,
                  "tarn: upmx: no such command; did you mean upmix? See tarn --help\n");
    expectRefusal({"play", "in.wav"}, 64,
                  "play: no such command; use film, upmix, info, picture, report, meter or demo; see tarn --help");
    expectRefusal({"--bogus"}, 64, "tarn: --bogus: no such option (a file of that name is ./--bogus); see tarn --help");
    expectRefusal({"demo", "--bogus"}, 64, "see tarn demo --help");
    expectRefusal({"demo", "out.wav", "more.wav"}, 64, "more.wav: one name too many; see tarn demo --help");
    expectRefusal({"upmix", "--mix-fraction", "0.5", "in.wav", "out.wav"}, 64, "--mix-fraction: no such option");
    expectRefusal({"upmix", "--layout", "7.1-remap", "in.wav", "out.wav"}, 64, "add --remap FILE");
    expectRefusal({"upmix", "--remap", "matrix.txt", "in.wav", "out.wav"}, 64,
                  "only --layout 7.1-remap accepts a matrix");
    expectRefusal({"upmix", "--raw", "48000:16", "in.wav", "out.wav"}, 64, "INPUT and OUTPUT are both files");
    expectRefusal({"upmix", "-", "out.wav"}, 65,
                  "standard input: is empty, 0 bytes; check the command before the pipe");
    expectRefusal({"upmix", "--raw", "48000", "-", "out.wav"}, 64, "not RATE:BITS");
    expectRefusal({"upmix", "--raw", "48000:16x", "-", "out.wav"}, 64, "not RATE:BITS");
    expectRefusal({"upmix", "--raw", "1000:16", "-", "out.wav"}, 64, "unsupported sample rate");
    expectRefusal({"upmix", "--raw", "48000:8", "-", "out.wav"}, 64, "use 16, 24 or 32 bits");
    expectRefusal({"upmix", "--raw", "44100:16", "in.wav", "-"}, 64, "in.wav runs at 48000 Hz");
    expectRefusal({"upmix", "--raw", "48000:16", "--bits", "24", "in.wav", "-"}, 64, "contradicts --raw 48000:16");
}

TEST_F(Refusals, MistypedOptionsAndCommandsAreSuggested)
{
    writeStereo("in.wav");
    const auto expectSuggestion = [this](const std::string& typed, const std::string& name) {
        expectRefusal({"upmix", "in.wav", "out.wav", typed}, 64,
                      "tarn: " + typed + ": no such option; did you mean " + name + "? See tarn upmix --help\n");
    };
    expectSuggestion("--center=3", "--centre");
    expectSuggestion("-centre", "--centre");
    expectSuggestion("--surround", "--surrounds");
    expectSuggestion("--no-limitter", "--no-limiter");
    expectSuggestion("--albmu", "--album");
    expectSuggestion("--loudness", "--loudness-match");
    expectSuggestion("--GAIN", "--gain");
    expectRefusal({"upmix", "in.wav", "out.wav", "--center", "3"}, 64, "did you mean --centre?");
    expectRefusal({"info", "--verbos", "in.wav"}, 64, "did you mean --verbose? See tarn info --help\n");
    expectRefusal({"upmix", "in.wav", "out.wav", "--x"}, 64, "--x: no such option (a file of that name is ./--x)");
    expectRefusal({"upmix", "in.wav", "out.wav", "--volume"}, 64, "--volume: no such option (a file of that name");
    expectRefusal({"upmix", "in.wav", "out.wav", "--" + std::string(100000, 'c')}, 64, ": no such option (a file of");
}

TEST_F(Refusals, WrongNumbersOfValues)
{
    writeStereo("in.wav");
    const auto expectProblem = [this](const std::vector<std::string>& options, const std::string& problem) {
        std::vector<std::string> arguments{"upmix", "in.wav", "out.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        expectRefusal(arguments, 64, "tarn: " + problem + "; see tarn upmix --help\n");
    };
    expectProblem({"--gain", "3", "--gain", "4"}, "--gain: is given more than once; leave one out");
    expectProblem({"-j", "3", "--jobs", "4", "--output-dir", "o"}, "--jobs: is given more than once; leave one out");
    expectProblem({"--gain"}, "--gain: needs a value: --gain DB");
    expectProblem({"--preset="}, "--preset: needs a value: --preset NAME");
    expectProblem({"--limiter=-1"}, "--limiter: takes no value; write --limiter alone");
    expectProblem({"--limiter", "-1"}, "--limiter: takes no value; leave -1 out");
    expectProblem({"--json", "0.5", "more.wav"}, "--json: takes no value; leave 0.5 out");
    const Result first = tarn({"upmix", "--limiter", "-1", "in.wav", "out.wav"});
    EXPECT_EQ(first.errors, "tarn: --limiter: takes no value; leave -1 out; see tarn upmix --help\n");
    expectRefusal({"info", "--verbose", "3", "in.wav"}, 64, "--verbose: takes no value; leave 3 out");

    std::filesystem::rename(at("in.wav"), at("3"));
    EXPECT_EQ(tarn({"upmix", "--quiet", "3", "out.wav"}).exitCode, 0) << "a file can have a number as its name";
}

TEST_F(Refusals, BadRemapFilesNameTheLine)
{
    writeStereo("in.wav");
    const auto expectBadMatrix = [this](const std::string& text, int code, const std::string& message) {
        writeBytes(at("m.txt"), text);
        expectRefusal({"upmix", "--layout", "7.1-remap", "--remap", "m.txt", "in.wav", "out.wav"}, code, message);
    };
    expectBadMatrix("1 0 0 0\n# none\n0 1 0\n0 0 0 0\n", 65, "m.txt: line 3: 3 gains; a row has 4");
    expectBadMatrix("1 0 0 0 0\n", 65, "m.txt: line 1: 5 gains; a row has 4");
    expectBadMatrix("1 0 0 0\n0 1 0 0\n", 65, "m.txt: ends after 2 rows; a matrix has 3");
    expectBadMatrix("", 65, "ends after 0 rows");
    expectBadMatrix("1 0 0 0\n0 1 0 0\n0 0 0 0\n\n0 0 0 0\n", 65, "m.txt: line 5: a fourth row");
    expectBadMatrix("1 0 0 0\n0 x 0 0\n", 65, "m.txt: line 2: 'x' is not a decimal number");
    expectBadMatrix("1 0 0 1.5z\n", 65, "m.txt: line 1: '1.5z' is not a decimal number");
    expectBadMatrix("1 0 0 nan\n", 65, "'nan' is not a decimal number");
    expectBadMatrix("1 0 0 -inf\n", 65, "'-inf' is not a decimal number");
    expectBadMatrix("1 0 0 +-1\n", 65, "'+-1' is not a decimal number");
    expectBadMatrix("1 0 0 8\n", 65, "gain 8 is out of range");
    expectBadMatrix("1 0 0 7.9999999999\n", 65, "gain 7.9999999999 is out of range");
    expectBadMatrix("1 0 0 -8.1\n", 65, "gain -8.1 is out of range");
    expectBadMatrix("1 0 0 1e999\n", 65, "gain 1e999 is out of range");
    // Contents of the file are quoted as plain text of limited length.
    expectBadMatrix("1 0 0 \x1b[31m\xc2\x9b\x7f\n", 65, "m.txt: line 1: '?[31m\?\?\?' is not a decimal number");
    expectBadMatrix(std::string(60000, '7') + "\n", 65, "1 gains; a row has 4");
    expectBadMatrix("1 0 0 " + std::string(60000, 'x') + "\n", 65,
                    "m.txt: line 1: '" + std::string(32, 'x') + "...' is not a decimal number");
    expectBadMatrix("1 0 0 1" + std::string(60000, '0') + "\n", 65,
                    "m.txt: line 1: gain 1" + std::string(31, '0') + "... is out of range");
    expectRefusal({"upmix", "--layout", "7.1-remap", "--remap", "/dev/zero", "in.wav", "out.wav"}, 65,
                  "/dev/zero: is not a remap file");
    expectRefusal({"upmix", "--layout", "7.1-remap", "--remap", ".", "in.wav", "out.wav"}, 66,
                  ".: the remap file cannot be read: Is a directory");
    expectRefusal({"upmix", "--layout", "7.1-remap", "--remap", "none.txt", "in.wav", "out.wav"}, 66,
                  "none.txt: the remap file cannot be opened: No such file");
}

TEST_F(Refusals, MatricesThatMayWrapAreNotedAndAccepted)
{
    writeStereo("in.wav");
    writeBytes(at("m.txt"), "-8 0 0.5 0\n0 1 -0.5 0\n0 0 0.25 7.99\n");
    const Result result = tarn({"upmix", "--layout", "7.1-remap", "--remap", "m.txt", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.errors.find("column 1 (FL) sum to 8 in magnitude"), std::string::npos) << result.errors;
    EXPECT_EQ(result.errors.find("column 2"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("column 3 (SL) sum to 1.25 in magnitude"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("column 4 (SR) sum to 7.99 in magnitude"), std::string::npos) << result.errors;
}

} // namespace tarn_cli
