// `tarn report`: the page and its figures.
// SPDX-License-Identifier: MIT
#include "cli/base64.h"
#include "cli/report_entry.h"
#include "cli/report_page.h"
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
        std::vector<std::string> all{"report", "-o", "page.html"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Result result = tarn(all);
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        return bytesOf(at("page.html"));
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

TEST_F(HtmlReport, LoudnessThatStaysHasNoMinus)
{
    // The engine makes a source at a side 3 dB softer; the gain makes up for it.
    EXPECT_NE(page({"left.wav"}).find(" LUFS (+0.0 LU)</dd>"), std::string::npos);
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

TEST_F(HtmlReport, TheTableHasTheWordsOfThePictureAndOfInfo)
{
    const std::vector<std::string> front{"Recording",  "Length", "Upmixing gains", "Before, LUFS", "After, LUFS",
                                         "Peak, dBFS", "Left",   "Centre",         "Right"};
    EXPECT_EQ(groupsOf(page({"left.wav", "middle.wav"}), "<button type=\"button\">([^<]*)<"), front);
    writeAudio(at("noise.wav"), kWave16, 48000, 2, stereoNoise(kFrames, 16));
    std::vector<std::string> all = front;
    all.emplace_back("Surround");
    EXPECT_EQ(
        groupsOf(page({"--force", "--layout", "5.1", "noise.wav", "middle.wav"}), "<button type=\"button\">([^<]*)<"),
        all);
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
    EXPECT_EQ(countOf(page({"--force", "left.wav"}), "<dt>Input</dt>"), 0u);
}

TEST_F(HtmlReport, FoldersAreSearched)
{
    std::filesystem::create_directory(at("music"));
    std::filesystem::rename(at("left.wav"), at("music/left.wav"));
    EXPECT_EQ(countOf(page({"-r", "music"}), "<article"), 1u);
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
    const tarn::ReportStyle style{.layout = "3.0", .theme = "dark", .preset = {}};
    tarn::ReportPage page{.title = "Upmix report", .theme = "dark", .layout = "3.0 (FL FR FC)", .preset = "film"};
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
