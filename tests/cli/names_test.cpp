// File names with control characters or quotes in messages.
// SPDX-License-Identifier: MIT
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <tuple>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

/// A character of three bytes in UTF-8. Literals with changes of direction would mislead a reader of this file.
std::string character(unsigned code)
{
    return {static_cast<char>(0xe0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3f)),
            static_cast<char>(0x80 | (code & 0x3f))};
}

const std::string kOverride = character(0x202e); ///< the text that follows runs from right to left

/// An escape sequence, a newline, a tab, DEL, C1 in UTF-8 and as a byte, a change of direction, quotes, and ordinary
/// characters.
const std::string kName = "a\x1b[31m\n'\\\t\x7f\xc2\x9b\x9b" + kOverride + "\xc3\xa4 b";
const std::string kShown = "a?[31m?'\\?????\xc3\xa4 b";

bool isClean(const std::string& text)
{
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return (c >= 0 && c < 0x20 && c != '\n') || c == 0x7f; }) &&
           tarn::isUtf8(text) && text.find("\xc2\x9b") == std::string::npos &&
           text.find(kOverride) == std::string::npos;
}

std::size_t lines(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

class Names : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at(kName + ".wav"), kWave16, 48000, 2, stereoNoise(9000, 16));
        writeAudio(at(kName + " mono.wav"), kWave16, 48000, 1, stereoNoise(9000, 16));
    }
};

TEST_F(Names, ControlCharactersAreNotShown)
{
    const Result single = tarn({"upmix", kName + ".wav", kName + "-out.wav"});
    EXPECT_EQ(single.exitCode, 0);
    EXPECT_TRUE(isClean(single.errors)) << single.errors;
    EXPECT_EQ(single.errors.find("tarn: " + kShown + ".wav -> " + kShown + "-out.wav: 3.0"), 0u) << single.errors;
    EXPECT_EQ(lines(single.errors), 1u);

    const Result refused = tarn({"upmix", kName + ".wav", kName + "-out.wav"});
    EXPECT_EQ(refused.errors, "tarn: " + kShown +
                                  "-out.wav: exists already; choose another name, or add --force to "
                                  "replace it\n");

    const Result batch = tarn({"upmix", "--output-dir", "out", kName + ".wav", kName + "-none"});
    EXPECT_EQ(batch.exitCode, 66);
    EXPECT_TRUE(isClean(batch.errors)) << batch.errors;
    EXPECT_EQ(lines(batch.errors), 4u);
    EXPECT_NE(batch.errors.find("tarn: " + kShown + "-none: cannot be opened: "), std::string::npos) << batch.errors;

    for (const std::string option : {"--quiet", "--verbose"}) {
        const Result info = tarn({"info", option, kName + ".wav", kName});
        EXPECT_TRUE(isClean(info.output + info.errors)) << info.output << info.errors;
        EXPECT_EQ(info.output.find(kShown + ".wav"), 0u) << info.output;
        EXPECT_EQ(info.errors.find("tarn: " + kShown + ": cannot be opened"), 0u) << info.errors;
        EXPECT_EQ(lines(info.output), option == "--quiet" ? 1u : 15u);
    }

    EXPECT_EQ(tarn({"no\x1b[31m"}).errors.find("tarn: no?[31m: no such command"), 0u);
    const Result demo = tarn({"demo", kName + "-demo.wav"});
    EXPECT_TRUE(isClean(demo.output)) << demo.output;
    EXPECT_NE(demo.output.find(kShown + "-demo.wav contains the scene"), std::string::npos) << demo.output;
}

TEST_F(Names, SuggestedCommandsCanBePasted)
{
    const std::string name = kName + " six.wav";
    writeAudio(at(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 6, stereoNoise(3000, 16));
    const Result result = tarn({"upmix", name, "out.wav"});
    EXPECT_EQ(result.exitCode, 65);
    EXPECT_TRUE(isClean(result.errors)) << result.errors;
    const std::string before = "ffmpeg -i ";
    const std::size_t start = result.errors.find(before);
    const std::size_t end = result.errors.rfind(" -ac 2");
    ASSERT_LT(start, end) << result.errors;
    const std::string quoted = result.errors.substr(start + before.size(), end - start - before.size());
    for (const std::string shell : {"bash", "zsh"})
        EXPECT_EQ(runIn(directory, {.arguments = {"-c", "printf %s " + quoted}, .program = shell}).output, name)
            << shell << ": " << quoted;
}

TEST_F(Names, TheCommandItselfIsQuotedInSuggestions)
{
    std::filesystem::create_symlink(TARN_COMMAND, at(kName));
    std::filesystem::create_directory(at("folder"));
    const std::string program = "./" + kName;
    const Result demo = runIn(directory, {.arguments = {"demo"}, .program = program});
    const Result info = runIn(directory, {.arguments = {"info", "folder"}, .program = program});
    for (const auto& [text, before, after] :
         {std::tuple(demo.output, "your own music:          ", " upmix song.flac"),
          std::tuple(info.errors, "tarn: folder: is a folder; type: ", " info --recursive folder\n")}) {
        EXPECT_TRUE(isClean(text)) << text;
        const std::size_t start = text.find(before) + std::string(before).size();
        const std::size_t end = text.find(after);
        ASSERT_LT(start, end) << text;
        const std::string line = "printf %s " + text.substr(start, end - start);
        EXPECT_EQ(runIn(directory, {.arguments = {"-c", line}, .program = "bash"}).output, program) << line;
    }
}

TEST_F(Names, JsonEscapesThemAndIsExact)
{
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"info", "--json"}, {"upmix", "--json", "--output-dir", "out"}}) {
        const std::string name = "a\x7f\xc2\x9b" + kOverride + "\xf3\xa0\x80\x81\xc3\xa4.wav";
        std::filesystem::copy(at(kName + ".wav"), at(name), std::filesystem::copy_options::overwrite_existing);
        std::vector<std::string> arguments = command;
        arguments.push_back(name);
        const Result result = tarn(arguments);
        EXPECT_TRUE(isClean(result.output)) << result.output;
        EXPECT_NE(result.output.find("\"a\\u007f\\u009b\\u202e\\udb40\\udc01\xc3\xa4.wav\""), std::string::npos)
            << result.output;
        EXPECT_EQ(nlohmann::json::parse(result.output)["files"][0]["input"], name);
    }
}

TEST_F(Names, QuotingIsMinimal)
{
    EXPECT_EQ(tarn::shellQuoted("a/b-1.wav"), "a/b-1.wav");
    EXPECT_EQ(tarn::shellQuoted("a b.wav"), "'a b.wav'");
    EXPECT_EQ(tarn::shellQuoted("it's \xc3\xa4"), "'it'\\''s \xc3\xa4'");
    EXPECT_EQ(tarn::shellQuoted(""), "''");
    EXPECT_EQ(tarn::shellQuoted("\n'\\"), "$'\\012\\'\\\\'");
    EXPECT_EQ(tarn::shellQuoted("\x9b"
                                "1\xc3\xa4"),
              "$'\\2331\xc3\xa4'");
}

TEST_F(Names, EveryCharacterIsShownUnchangedOrAsAQuestionMark)
{
    EXPECT_EQ(tarn::printable("a \xc3\xa4 \xe2\x82\xac \xf0\x9f\x8e\xb5"), "a \xc3\xa4 \xe2\x82\xac \xf0\x9f\x8e\xb5");
    EXPECT_EQ(tarn::printable("\xc2\xa0\xed\x9f\xbf\xf4\x8f\xbf\xbf"), "\xc2\xa0\xed\x9f\xbf\xf4\x8f\xbf\xbf");
    EXPECT_EQ(tarn::printable(std::string("\0\x1f\x7f", 3)), "???");
    EXPECT_EQ(tarn::printable("\xc2\x80x\xc2\x9fx"), "?x?x");
    // Changes of direction, invisible characters, and neighbours of them that scripts need, such as the joiners.
    for (const unsigned code : {0x180eu, 0x200bu, 0x200eu, 0x200fu, 0x2028u, 0x2029u, 0x202au, 0x202bu, 0x202cu,
                                0x202du, 0x202eu, 0x2060u, 0x2066u, 0x2067u, 0x2068u, 0x2069u, 0xfeffu})
        EXPECT_EQ(tarn::printable(character(code) + "a"), "?a") << code;
    for (const unsigned code : {0x200au, 0x200cu, 0x200du, 0x2010u, 0x2027u, 0x202fu, 0x2070u, 0xfefeu})
        EXPECT_EQ(tarn::printable(character(code)), character(code)) << code;
    EXPECT_EQ(tarn::printable("\xd8\x9c\xf3\xa0\x81\xa1"), "??");
    EXPECT_EQ(tarn::shellQuoted("a" + kOverride), "$'a\\342\\200\\256'");
    // An overlong slash, half a surrogate pair, a code point out of range, a truncated and a misplaced character.
    EXPECT_EQ(tarn::printable("\xc0\xaf"), "??");
    EXPECT_EQ(tarn::printable("\xed\xa0\x80"), "???");
    EXPECT_EQ(tarn::printable("\xf4\x90\x80\x80"), "????");
    EXPECT_EQ(tarn::printable("\xe2\x82"), "??");
    EXPECT_EQ(tarn::printable("\xe2\x82z"), "??z");
    EXPECT_EQ(tarn::printable("\x80"), "?");
}

} // namespace tarn_cli
