// `tarn report`: the page and its figures.
// SPDX-License-Identifier: MIT
#include "cli/base64.h"
#include "cli/report_entry.h"
#include "cli/report_page.h"
#include "cli/text.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
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

TEST_F(HtmlReport, ShowsTheFiguresOfTheUpmixInTheOrderOfThePicture)
{
    const std::string html = page({"--layout", "7.1", "left.wav"});
    const auto channels = upmixOf("left.wav", {"--layout", "7.1"}).at("channels");
    const std::vector<std::string> cells = groupsOf(html, "<td>([^<]*)</td>");
    const std::array order{"FL", "FC", "FR", "SL", "SR", "BL", "BR", "LFE"};
    ASSERT_EQ(channels.size(), order.size());
    ASSERT_EQ(cells.size(), 3 * order.size());
    const auto shown = [](const nlohmann::json& level) {
        return level.is_null() ? "silent" : tarn::formatted("%.1f", level.get<double>());
    };
    for (std::size_t i = 0; i < order.size(); ++i) {
        const auto channel = std::find_if(channels.begin(), channels.end(),
                                          [&](const nlohmann::json& one) { return one.at("name") == order[i]; });
        EXPECT_EQ(cells[3 * i], order[i]);
        EXPECT_EQ(cells[3 * i + 1], shown(channel->at("peak_dbfs")));
        EXPECT_EQ(cells[3 * i + 2], shown(channel->at("rms_dbfs")));
    }
    EXPECT_NE(html.find("<h2>left.wav</h2>"), std::string::npos);
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
    EXPECT_EQ(cells[4], tarn::formatted("%.1f", channels.at(2).at("peak_dbfs").get<double>()));
    EXPECT_NE(html.find("with the preset voice, --centre 2, --width 0.5, --bass steered, --gain 6, --no-limiter. "),
              std::string::npos);
    EXPECT_EQ(countOf(html, "<dt>Limiter</dt>"), 0u);

    expectRefusal(64, "--lfe: --layout 3.0 has no LFE channel",
                  {"report", "--lfe", "0", "left.wav", "-o", "other.html"});
    expectRefusal(64, "--centre: 13 is out of range", {"report", "--centre", "13", "left.wav", "-o", "other.html"});
}

TEST_F(HtmlReport, ClippedSamplesAreCounted)
{
    const auto upmix = upmixOf("left.wav", {"--no-limiter", "--gain", "18"});
    ASSERT_GT(upmix.at("clipped_samples"), 0);
    const std::string html = page({"left.wav", "--no-limiter", "--gain", "18"});
    EXPECT_NE(html.find("<dt>Clipped in the upmix</dt>\n<dd>" + upmix.at("clipped_samples").dump() + " samples</dd>"),
              std::string::npos);
}

TEST_F(HtmlReport, VerdictsAboutTheMiddleAgreeWithTheShares)
{
    Samples mono;
    for (std::size_t i = 0; i < kFrames; ++i) mono.push_back(i / 240 % 2 == 0 ? 0x10000000 : -0x10000000);
    writeAudio(at("mono.wav"), kWave16, 48000, 1, mono);
    const auto verdict = [this](const std::vector<std::string>& arguments) {
        return groupsOf(page(arguments), "<p class=\"verdict\">([^<]*)</p>").at(0);
    };
    const std::string isMono = "Mono: an upmix moves everything but the bass to the centre.";
    EXPECT_EQ(verdict({"mono.wav"}), isMono);
    EXPECT_EQ(verdict({"middle.wav"}),
              "Dual mono: both sides are nearly identical, so an upmix moves everything but the "
              "bass to the centre.");
    const std::string isSteered = " Here the bass goes there too, because it is steered.";
    EXPECT_EQ(verdict({"mono.wav", "--bass", "steered"}), isMono + isSteered);
    EXPECT_EQ(verdict({"mono.wav", "--preset", "plain"}), isMono + isSteered);
    EXPECT_EQ(verdict({"mono.wav", "--width", "0.25"}),
              isMono + " With a width of 0.25, FL and FR play a part of the centre.");
    EXPECT_EQ(verdict({"mono.wav", "--layout", "2.0"}), isMono + " In 2.0, FL and FR play the centre together.");
}

TEST_F(HtmlReport, VerdictsHaveTheirFigures)
{
    const auto figures = [this](const std::string& name, const Samples& samples) {
        writeAudio(at(name), kWave16, 48000, 2, samples);
        const std::vector<std::string> lines = groupsOf(page({name}), "</p>\n<p class=\"soft\">([^<]*)</p>\n<figure>");
        return lines.empty() ? "" : lines.front();
    };
    // Side to mid is 4000 to 12000, left to right 2 to 1.
    EXPECT_EQ(
        figures("panned.wav", square(8000, 4000)),
        "The correlation of left and right is 1.00 (1: equal, 0: nothing in common, -1: opposite). The side (left "
        "minus right) is 9.5 dB softer than the middle (left plus right). Left is 6.0 dB louder than right.");
    EXPECT_EQ(figures("equal.wav", square(8000, 8000)), "All samples of left and right are equal.");
    EXPECT_EQ(figures("one.wav", square(8000, 0)), "One side has no sound.");
    EXPECT_EQ(figures("silent.wav", Samples(2 * kFrames, 0)), "");

    // Only a tone of 125 Hz is on both sides: 1 / 7.25 of the energy.
    Samples shared;
    for (std::size_t i = 0; i < 2 * kFrames; ++i) {
        const std::size_t frame = i / 2;
        const auto tone = [frame](double hz) {
            return std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(frame) / 48000.0);
        };
        shared.push_back(static_cast<std::int32_t>(4e8 * tone(125.0) + 1e9 * tone(i % 2 == 0 ? 1000.0 : 4000.0)));
    }
    EXPECT_EQ(
        figures("shared.wav", shared),
        "The correlation of left and right is 0.14 (1: equal, 0: nothing in common, -1: opposite). In the octave "
        "around 125 Hz, which has 14 % of the energy, it is 1.00. The side (left minus right) is 1.2 dB softer than "
        "the middle (left plus right). Left is as loud as right.");
}

TEST_F(HtmlReport, LoudnessDiffersByTheFiguresThatAreShown)
{
    std::vector<std::string> names;
    for (int i = 0; i < 12; ++i) {
        names.push_back(std::to_string(i) + ".wav");
        writeAudio(at(names.back()), kWave16, 48000, 2, square(1000 + 137 * i, 300 * i));
    }
    const std::string html = page(names);
    const std::vector<std::string> before = groupsOf(html, "before</dt>\n<dd>([-0-9.]+) LUFS</dd>");
    const std::vector<std::string> after = groupsOf(html, "after</dt>\n<dd>([-0-9.]+) LUFS \\(");
    const std::vector<std::string> difference = groupsOf(html, "LUFS \\(([-+0-9.]+) LU\\)</dd>");
    ASSERT_EQ(difference.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        EXPECT_EQ(difference[i], tarn::formatted("%+.1f", std::stod(after[i]) - std::stod(before[i]))) << names[i];
}

TEST_F(HtmlReport, LimiterHasItsShareOfTheTimeAndAdvice)
{
    writeAudio(at("loud.wav"), kWave16, 48000, 2, square(30000, 20000));
    const auto limiter = upmixOf("loud.wav").at("limiter");
    const std::string html = page({"loud.wav"});
    EXPECT_EQ(groupsOf(html, "<dt>Limiter</dt>\n<dd>([^<]*)</dd>").at(0),
              tarn::formatted("up to %.1f dB, ", limiter.at("largest_reduction_db").get<double>()) +
                  tarn::formatted("%.0f %% of the time", 100.0 * limiter.at("seconds").get<double>() / 0.5));
    const std::vector<std::string> gains =
        groupsOf(html, "The limiter works much of the time\\. With --gain ([-0-9.]+), the upmix needs none\\.</p>");
    ASSERT_EQ(gains.size(), 1u);
    const std::string softer = page({"loud.wav", "--gain", gains.front()});
    EXPECT_EQ(groupsOf(softer, "<dt>Limiter</dt>\n<dd>([^<]*)</dd>").at(0), "not needed");
    EXPECT_EQ(countOf(softer, "class=\"advice\""), 0u);

    // Only louder upmixes become softer with --loudness-match.
    EXPECT_EQ(countOf(html, "--loudness-match"), 0u);
    EXPECT_EQ(countOf(page({"middle.wav", "--gain", "18"}),
                      "--loudness-match of tarn upmix lowers the gain until the upmix is as loud as the source.</p>"),
              1u);

    // Loud for 20 ms of 20 seconds.
    Samples samples = square(30000, 20000);
    samples.resize(1920);
    samples.resize(1920000);
    writeAudio(at("short.wav"), kWave16, 48000, 2, samples);
    const std::string rare = page({"short.wav"});
    EXPECT_EQ(groupsOf(rare, "<dd>up to [0-9.]+ dB, ([1-9] %) of the time</dd>").size(), 1u);
    EXPECT_EQ(countOf(rare, "class=\"advice\""), 0u);
}

TEST_F(HtmlReport, LoudnessThatStaysHasNoMinus)
{
    // The engine makes a source at a side 3 dB softer; the gain makes up for it, except for less than 0.05 dB.
    writeAudio(at("soft.wav"), kWave16, 48000, 2, square(7000, 0));
    EXPECT_NE(page({"soft.wav"}).find(" LUFS (+0.0 LU)</dd>"), std::string::npos);
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
    EXPECT_NE(html.find("2 recordings. Upmixed to 5.1 (FL FR FC LFE BL BR) with the preset film."), std::string::npos);
}

TEST_F(HtmlReport, TheTableHasTheColumnsThatThePageNeeds)
{
    const auto headings = [this](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"left.wav", "middle.wav"});
        return groupsOf(page(arguments), "<button type=\"button\">([^<]*)</button>");
    };
    using Words = std::vector<std::string>;
    EXPECT_EQ(headings({}), (Words{"Recording", "Length", "Worth it?", "Before, LUFS", "After, LUFS", "Limited", "Left",
                                   "Centre", "Right"}));
    EXPECT_EQ(headings({"--no-limiter"}), (Words{"Recording", "Length", "Worth it?", "Before, LUFS", "After, LUFS",
                                                 "Peak, dBFS", "Left", "Centre", "Right"}));
    writeAudio(at("wide.wav"), kWave16, 48000, 2, stereoNoise(kFrames, 16));
    EXPECT_EQ(headings({"--layout", "5.1", "wide.wav"}).back(), "Surround");
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
    EXPECT_NE(html.find("One recording, <a href=\"#failures\">2 not upmixed</a>. Upmixed to 3.0"), std::string::npos);
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0].substr(0, 9), "text.wav:");
    EXPECT_EQ(failures[1].substr(0, 12), "missing.wav:");
}

TEST_F(HtmlReport, LossesAreShown)
{
    const std::string whole = bytesOf(at("left.wav"));
    writeBytes(at("cut.wav"), whole.substr(0, whole.size() / 2));
    const std::string html = page({"cut.wav"});
    const auto upmix = nlohmann::json::parse(tarn({"upmix", "--json", "cut.wav", "cut-3.0.wav"}).output);
    std::string message = upmix.at("loss").at("message").get<std::string>() + ".";
    message.front() = static_cast<char>(message.front() - 'a' + 'A');
    EXPECT_EQ(groupsOf(html, "<p class=\"damage\">([^<]*)<"), std::vector<std::string>{message});
}

TEST_F(HtmlReport, InputsAboveFullScaleAreShown)
{
    // 6 dB above full scale; one sample is 40 dB above it.
    std::vector<float> samples(2 * kFrames, 0.0f);
    samples[2 * 480] = 2.0f;
    writeFloats(at("loud.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    samples[2 * 9600] = 100.0f;
    writeFloats(at("damaged.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples);
    const std::string scaled = page({"--preset", "plain", "loud.wav"});
    EXPECT_NE(scaled.find("<dt>Input</dt>\n<dd>scaled down by 6.0 dB, because it exceeds full scale</dd>"),
              std::string::npos);
    EXPECT_EQ(countOf(scaled, "Clipped"), 0u);
    const Result damaged = tarn({"report", "--force", "--quiet", "damaged.wav", "-o", "page.html"});
    EXPECT_EQ(damaged.errors,
              "tarn: damaged.wav: 1 sample is more than 24 dB above full scale and is clipped; the file is "
              "probably damaged: check where it comes from\n");
    const std::string clipped = bytesOf(at("page.html"));
    EXPECT_NE(clipped.find("<dt>Clipped in the input</dt>\n<dd>1 sample</dd>"), std::string::npos);
    EXPECT_EQ(countOf(clipped, "<dt>Input</dt>"), 0u);
    EXPECT_EQ(countOf(page({"left.wav"}), "<dt>Input</dt>"), 0u);
}

TEST_F(HtmlReport, FoldersAreSearched)
{
    std::filesystem::create_directory(at("music"));
    std::filesystem::rename(at("left.wav"), at("music/left.wav"));
    const std::string html = page({"-r", "music"});
    EXPECT_EQ(countOf(html, "<article"), 1u);
    EXPECT_NE(html.find("<p class=\"soft\">in music<br>"), std::string::npos);
    expectRefusal(66, "music: is a folder; add --recursive to include the audio files below it",
                  {"report", "middle.wav", "music", "-o", "other.html"});
}

TEST_F(HtmlReport, ANameThatIsTheTitleIsNotRepeated)
{
    EXPECT_EQ(groupsOf(page({"left.wav"}), "</h2>\n<p class=\"soft\">([^<]*)</p>"),
              (std::vector<std::string>{"0:00, WAV (Microsoft), Signed 16 bit PCM, 48 kHz"}));
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

TEST_F(HtmlReport, AShortSoundHasNoLoudnessButIsNotSilent)
{
    Samples samples = square(8000, 0);
    samples.resize(2 * 19199); // a frame less than 0.4 s
    writeAudio(at("short.wav"), kWave16, 48000, 2, samples);
    const std::string html = page({"short.wav", "left.wav"});
    EXPECT_EQ(countOf(html, "<dd>none</dd>"), 2u);
    EXPECT_EQ(countOf(html, "<td data-key=\"-1000\">none</td>"), 2u);
    EXPECT_EQ(countOf(html, "<dd>silent</dd>"), 0u);
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

TEST_F(HtmlReport, AnInputIsNeverReplaced)
{
    const std::string audio = bytesOf(at("left.wav"));
    writeBytes(at("audio.html"), audio);
    std::filesystem::create_symlink("left.wav", at("link.html"));
    expectRefusal(64, "audio.html: is the input file audio.html; choose another name for the page",
                  {"report", "--force", "middle.wav", "audio.html", "-o", "audio.html"});
    expectRefusal(64, "link.html: is the input file left.wav; choose another name for the page",
                  {"report", "--force", "left.wav", "-o", "link.html"});
    EXPECT_TRUE(bytesOf(at("audio.html")) == audio);
    EXPECT_TRUE(bytesOf(at("left.wav")) == audio);
}

TEST_F(HtmlReport, IsWrittenInAPartPerRecordingToNeedLittleMemory)
{
    const tarn::ReportStyle style{.layout = "3.0", .theme = "dark", .room = {}};
    tarn::ReportPage page{
        .title = "Upmix report", .theme = "dark", .layout = "3.0 (FL FR FC)", .settings = "the preset film"};
    for (const char* const name : {"left.wav", "middle.wav", "left.wav"})
        page.entries.push_back(tarn::measureEntry(at(name), style, false, true));
    std::vector<std::string> parts;
    tarn::writePage(page, [&parts](const std::string& part) { parts.push_back(part); });
    ASSERT_EQ(parts.size(), 5u);
    EXPECT_TRUE(parts.front().starts_with("<!DOCTYPE html>\n"));
    EXPECT_TRUE(parts.back().ends_with("</body>\n</html>\n"));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(parts[i + 1].starts_with("<article id=\"recording-" + std::to_string(i + 1) + "\">"));
    for (const std::string& part : parts) EXPECT_LE(countOf(part, "data:image/png"), 1u);
}

TEST_F(HtmlReport, FullDiskLeavesNothing)
{
    const Result result = tarnOnFullDisk({"report", "left.wav", "-o", "page.html"});
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find("No space left on device"), std::string::npos) << result.errors;
    EXPECT_EQ(files(), (std::vector<std::string>{"left.wav", "middle.wav"}));
}

} // namespace tarn_cli
