// `tarn report`: the page and its figures.
// SPDX-License-Identifier: MIT
#include "cli/base64.h"
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <regex>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr std::size_t kFrames = 24000;

/// A square wave of 100 Hz with these levels, in 16-bit steps.
Samples square(std::int32_t left, std::int32_t right)
{
    Samples samples;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const int sign = i / 240 % 2 == 0 ? 1 : -1;
        samples.push_back(sign * left * 0x10000);
        samples.push_back(sign * right * 0x10000);
    }
    return samples;
}

std::size_t countOf(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::vector<std::string> groupsOf(const std::string& text, const std::string& pattern)
{
    const std::regex regex(pattern);
    std::vector<std::string> groups;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        groups.push_back((*match)[1]);
    return groups;
}

} // namespace

class HtmlReport : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("left.wav"), kWave16, 48000, 2, square(8000, 0));
        writeAudio(at("middle.wav"), kWave16, 48000, 2, square(6000, 6000));
    }

    std::string page(const std::vector<std::string>& arguments, int exitCode = 0) const
    {
        std::vector<std::string> all{"report", "--force", "-o", "page.html"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Result result = tarn(all);
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        return bytesOf(at("page.html"));
    }

    /// The report of tarn upmix about a file, with these options.
    nlohmann::json upmixOf(const std::string& file, const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> all{"upmix", "--force", "--json", file, "upmixed.wav"};
        all.insert(all.end(), options.begin(), options.end());
        return nlohmann::json::parse(tarn(all).output);
    }

    /// A terminal that shows what a report prints.
    std::string onTerminal(const std::string& arguments) const
    {
        const std::string command = "'" TARN_COMMAND "' report --force -o page.html " + arguments;
        return runIn(directory, {.arguments = {"-qec", command, "/dev/null"}, .program = "script"}).output;
    }

    void expectRefusal(int exitCode, const std::string& message, const std::vector<std::string>& arguments) const
    {
        const std::vector<std::string> before = files();
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        EXPECT_EQ(files(), before);
    }
};

TEST_F(HtmlReport, Base64IsThatOfTheStandard)
{
    const std::vector<std::string> texts{"", "f", "fo", "foo", "foob", "fooba", "foobar"};
    const std::vector<std::string> expected{"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(tarn::base64Of(texts[i]), expected[i]);
    EXPECT_EQ(tarn::base64Of("\xff\xfe\xfd"), "//79");
}

TEST_F(HtmlReport, ShowsTheFiguresOfTheUpmix)
{
    const std::string html = page({"middle.wav"});
    const Result upmix = tarn({"upmix", "--json", "middle.wav", "middle-3.0.wav"});
    const auto report = nlohmann::json::parse(upmix.output);
    const std::vector<std::string> cells = groupsOf(html, "<td>([^<]*)</td>");
    ASSERT_EQ(cells.size(), 9u);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& channel = report.at("channels").at(i);
        EXPECT_EQ(cells[3 * i], channel.at("name").get<std::string>());
        EXPECT_EQ(cells[3 * i + 1], tarn::formatted("%.1f", channel.at("peak_dbfs").get<double>()));
        EXPECT_EQ(cells[3 * i + 2], tarn::formatted("%.1f", channel.at("rms_dbfs").get<double>()));
    }
    EXPECT_NE(html.find("<h2>middle.wav</h2>"), std::string::npos);
    EXPECT_NE(html.find("<p class=\"verdict\">Dual mono: "), std::string::npos);
    EXPECT_EQ(countOf(html, "src=\"data:image/png;base64,iVBORw0KGgo"), 1u);
    EXPECT_EQ(countOf(html, "<script"), 0u);
}

TEST_F(HtmlReport, SoundOptionsAreThoseOfUpmix)
{
    const std::vector<std::string> options{"--preset", "voice",   "--centre", "2", "--width",     "0.5",
                                           "--bass",   "steered", "--gain",   "6", "--no-limiter"};
    std::vector<std::string> arguments{"middle.wav"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const std::string html = page(arguments);
    const auto channels = upmixOf("middle.wav", options).at("channels");
    const std::vector<std::string> cells = groupsOf(html, "<td>([^<]*)</td>");
    ASSERT_EQ(cells.size(), 9u);
    EXPECT_EQ(cells[1], tarn::formatted("%.1f", channels.at(0).at("peak_dbfs").get<double>()));
    EXPECT_EQ(cells[7], tarn::formatted("%.1f", channels.at(2).at("peak_dbfs").get<double>()));
    EXPECT_NE(html.find("with the preset voice, --centre 2, --width 0.5, --bass steered, --gain 6, --no-limiter. "),
              std::string::npos);
    EXPECT_EQ(countOf(html, "<dt>Limiter</dt>"), 0u);

    expectRefusal(64, "--lfe: --layout 3.0 has no LFE channel",
                  {"report", "--lfe", "0", "left.wav", "-o", "other.html"});
    expectRefusal(64, "--centre: 13 is out of range", {"report", "--centre", "13", "left.wav", "-o", "other.html"});
}

TEST_F(HtmlReport, PicturesAreThoseOfTheCommand)
{
    const std::string html = page({"left.wav"});
    EXPECT_EQ(tarn({"picture", "--size", "1200x780", "left.wav", "left.png"}).exitCode, 0);
    EXPECT_NE(html.find(tarn::base64Of(bytesOf(at("left.png")))), std::string::npos);
}

TEST_F(HtmlReport, SeveralRecordingsHaveATable)
{
    const std::string html =
        page({"-j", "2", "--layout", "5.1", "--theme", "light", "--title", "A & B", "left.wav", "middle.wav"});
    EXPECT_EQ(groupsOf(html, "href=\"#recording-[0-9]+\">([^<]*)<"),
              (std::vector<std::string>{"left.wav", "middle.wav"}));
    EXPECT_EQ(groupsOf(html, "<article id=\"recording-([0-9]+)\">"), (std::vector<std::string>{"1", "2"}));
    EXPECT_NE(html.find("<h1>A &amp; B</h1>"), std::string::npos);
    EXPECT_NE(html.find("<html lang=\"en\" class=\"light\">"), std::string::npos);
    EXPECT_NE(html.find("2 recordings, upmixed to 5.1 (FL FR FC LFE BL BR) with the preset film."), std::string::npos);
}

TEST_F(HtmlReport, TextsFromFilesAreEscaped)
{
    std::filesystem::rename(at("left.wav"), at("<b>\"&'.wav"));
    const std::string html = page({"<b>\"&'.wav"});
    EXPECT_EQ(html.find("<b>"), std::string::npos);
    EXPECT_NE(html.find("<h2>&lt;b&gt;&quot;&amp;'.wav</h2>"), std::string::npos);
}

TEST_F(HtmlReport, InputsThatFailAreListed)
{
    writeBytes(at("text.wav"), "no audio");
    const std::string html = page({"text.wav", "left.wav", "missing.wav"}, 65);
    EXPECT_EQ(countOf(html, "<article"), 1u);
    const std::vector<std::string> failures = groupsOf(html, "<li>([^<]*)</li>");
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0].substr(0, 9), "text.wav:");
    EXPECT_EQ(failures[1].substr(0, 12), "missing.wav:");
}

TEST_F(HtmlReport, LossesAreShown)
{
    const std::string whole = bytesOf(at("left.wav"));
    writeBytes(at("cut.wav"), whole.substr(0, whole.size() / 2));
    const std::string html = page({"cut.wav"});
    EXPECT_EQ(countOf(html, "<p class=\"damage\">"), 1u);
}

TEST_F(HtmlReport, FoldersAreSearched)
{
    std::filesystem::create_directory(at("music"));
    std::filesystem::rename(at("left.wav"), at("music/left.wav"));
    const std::string html = page({"-r", "music"});
    EXPECT_EQ(countOf(html, "<article"), 1u);
    expectRefusal(66, "music: is a folder; add --recursive to include the audio files below it",
                  {"report", "middle.wav", "music", "-o", "other.html"});
}

TEST_F(HtmlReport, ProgressIsShownOnATerminalUnlessQuiet)
{
    const std::string several = onTerminal("left.wav middle.wav");
    EXPECT_NE(several.find("upmixing 1 of 2: left.wav"), std::string::npos) << several;
    EXPECT_NE(several.find("upmixing 2 of 2: middle.wav"), std::string::npos) << several;
    EXPECT_EQ(onTerminal("--quiet left.wav middle.wav"), "");
    // Long enough for a fast machine to draw the bar before the end.
    writeAudio(at("long.wav"), kWave16, 48000, 2, Samples(2 * 48000 * 120));
    EXPECT_NE(onTerminal("long.wav").find("upmixing ["), std::string::npos);
}

TEST_F(HtmlReport, SilenceHasNoLoudness)
{
    writeAudio(at("silence.wav"), kWave16, 48000, 2, Samples(2 * kFrames, 0));
    const std::string html = page({"silence.wav", "left.wav"});
    EXPECT_NE(html.find("<dd>silent</dd>"), std::string::npos);
    EXPECT_EQ(groupsOf(html, "[>\"](-?nan|-?inf)"), std::vector<std::string>());
}

TEST_F(HtmlReport, WrongArgumentsLeaveNothing)
{
    expectRefusal(64, "--output: page.txt is not a page; end the name in .html",
                  {"report", "left.wav", "-o", "page.txt"});
    expectRefusal(64, "--output is required; write -o report.html", {"report", "left.wav"});
    expectRefusal(64, "--output is required; write -o 'my page.html'", {"report", "left.wav", "my page.html"});
    expectRefusal(64, "-: a report reads files only", {"report", "-", "-o", "page.html"});
    expectRefusal(66, "page.html: not written, because no input could be upmixed",
                  {"report", "missing.wav", "-o", "page.html"});
    expectRefusal(73, "No such file or directory", {"report", "left.wav", "-o", "no/page.html"});
    writeBytes(at("page.html"), "kept");
    expectRefusal(64, "page.html", {"report", "left.wav", "-o", "page.html"});
    EXPECT_EQ(bytesOf(at("page.html")), "kept");
    EXPECT_EQ(tarn({"report", "--force", "left.wav", "-o", "page.html"}).exitCode, 0);
}

TEST_F(HtmlReport, FullDiskLeavesNothing)
{
    const Result result = tarnOnFullDisk({"report", "left.wav", "-o", "page.html"});
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("No space left on device"), std::string::npos) << result.errors;
    EXPECT_EQ(files(), (std::vector<std::string>{"left.wav", "middle.wav"}));
}

} // namespace tarn_cli
