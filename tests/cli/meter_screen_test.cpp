// The screens of tarn meter, alone and in a terminal emulator.
// SPDX-License-Identifier: MIT
#include "cli/meter_screen.h"

#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <functional>
#include <iterator>
#include <map>
#include <numbers>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include <unistd.h>

namespace tarn_cli
{

namespace
{

using tarn::ColourMode;
using tarn::MeterValues;
using tarn::Rgb;

/// Silent values of 3.0 at 48 kHz.
MeterValues silentValues()
{
    MeterValues values{.name = "song.flac", .seconds = 62.25, .totalSeconds = 200.0, .layout = "3.0", .mode = "fast"};
    values.momentary = -HUGE_VAL;
    values.integrated = -HUGE_VAL;
    for (int g = 1; g <= 16; ++g) values.groups.push_back({.upperHz = 1500.0 * g});
    for (const char* const name : {"FL", "FR", "FC"}) values.outputs.push_back({.name = name});
    return values;
}

std::vector<std::string> rowsOf(const tarn::Canvas& screen)
{
    std::vector<std::string> rows;
    for (std::size_t row = 0; row < screen.rows(); ++row) rows.push_back(screen.textOf(row));
    return rows;
}

std::vector<std::string> plainScreen(const MeterValues& values, tarn::ScreenSize size = {.columns = 80, .rows = 24})
{
    return rowsOf(tarn::screenOf(values, size, {}));
}

/// What a terminal gets for a screen after an empty one.
std::string sequencesOf(const MeterValues& values, ColourMode mode)
{
    return tarn::screenOf(values, {.columns = 80, .rows = 24}, {.colours = mode, .isUtf8 = true})
        .changesFrom({80, 24}, mode);
}

/// The axis from left to right in a row of 80 ASCII characters, without its ticks.
std::string axisOf(const std::string& row)
{
    std::string axis = row.substr(9, 19);
    std::replace(axis.begin(), axis.end(), ':', ' ');
    return axis;
}

/// The bar for the level in such a row.
std::string barOf(const std::string& row)
{
    std::string bar = row.substr(29, 15);
    while (bar.ends_with(' ')) bar.pop_back();
    return bar;
}

/// An axis with a mark.
std::string marked(std::size_t first, std::size_t last)
{
    return std::string(first, ' ') + std::string(last - first + 1, '#') + std::string(18 - last, ' ');
}

} // namespace

TEST(MeterScreen, SilenceHasNoBars)
{
    const std::vector<std::string> rows = plainScreen(silentValues());
    ASSERT_EQ(rows.size(), 24u);
    for (const std::string& row : rows) {
        EXPECT_EQ(row.size(), 80u);
        EXPECT_EQ(row.find_first_of("#=|\033"), std::string::npos) << row;
    }
    EXPECT_TRUE(rows[0].starts_with(" tarn meter  song.flac  1:02.2 / 3:20 ")) << rows[0];
    EXPECT_TRUE(rows[1].starts_with(" upmix on   mode fast  gain +0.0 dB   centre +0.0 dB   3.0 ")) << rows[1];
    EXPECT_EQ(rows[3], "   up to left  centre  right -60   -30     0    dB      -60    -30     0 peak dB");
    EXPECT_TRUE(rows[4].starts_with("  24 kHz :        :        : ")) << rows[4];
    EXPECT_TRUE(rows[19].starts_with(" 1.5 kHz :        :        : ")) << rows[19];
    EXPECT_NE(rows[8].find("loudness       - LUFS"), std::string::npos) << rows[8];
    EXPECT_TRUE(rows[21].starts_with(" mode: fast ")) << rows[21];
    EXPECT_TRUE(rows[22].starts_with(" limiter: ")) << rows[22];
    EXPECT_TRUE(rows[23].starts_with(" q quit  b upmix ")) << rows[23];
}

// The axis has 19 characters, the bars have 15 for 60 dB.
TEST(MeterScreen, MarksShowThePlaceAndBarsTheLevelOfEveryGroup)
{
    MeterValues values = silentValues();
    values.groups[0] = {.upperHz = 1500.0, .level = 1.0, .place = 1.0, .centre = 0.0};
    values.groups[1] = {.upperHz = 3000.0, .level = 0.1, .place = -1.0, .centre = 0.0};
    values.groups[2] = {.upperHz = 4500.0, .level = 0.01, .place = 0.0, .centre = 1.0};
    values.groups[3] = {.upperHz = 6000.0, .level = std::sqrt(2.0), .place = 0.0, .centre = 0.0};
    values.groups[4] = {.upperHz = 7500.0, .level = 0.1, .place = 1.0 / 3.0, .centre = 2.0 / 3.0};
    values.groups[5] = {.upperHz = 9000.0, .level = 0.1, .place = 0.0, .centre = 2.0 / 3.0};
    const auto rows = plainScreen(values);
    const std::pair<std::string, std::string> wanted[] = {{marked(0, 0), std::string(15, '#')},
                                                          {marked(18, 18), std::string(10, '#')},
                                                          {marked(9, 9), std::string(5, '#')},
                                                          {marked(0, 18), std::string(15, '#')},
                                                          {marked(6, 6), std::string(10, '#')},
                                                          {marked(6, 12), std::string(10, '#')},
                                                          {std::string(19, ' '), ""}};
    for (std::size_t g = 0; g < std::size(wanted); ++g) {
        EXPECT_EQ(axisOf(rows[19 - g]), wanted[g].first) << rows[19 - g];
        EXPECT_EQ(barOf(rows[19 - g]), wanted[g].second) << rows[19 - g];
    }
    EXPECT_NE(rows[17].find(" -40.0 "), std::string::npos) << rows[17];
    // Three rows per group if there is room.
    const auto tall = plainScreen(values, {.columns = 80, .rows = 56});
    for (const std::size_t row : {49u, 50u, 51u}) EXPECT_EQ(barOf(tall[row]), std::string(15, '#')) << tall[row];
}

TEST(MeterScreen, BlocksHaveEighthsAndMarksHalvesOfACharacter)
{
    const auto rowFor = [](double level, double place) {
        MeterValues values = silentValues();
        values.groups[0] = {.upperHz = 1500.0, .level = level, .place = place, .centre = 1.0 - std::fabs(place)};
        return rowsOf(tarn::screenOf(values, tarn::kSmallestScreen, {.isUtf8 = true}))[18];
    };
    EXPECT_NE(rowFor(std::pow(10.0, -21.0 / 20.0), 1.0).find("│ █████▉    -21.0 "), std::string::npos);
    std::set<std::string> rows;
    for (int step = 0; step <= 72; ++step) {
        const std::string row = rowFor(std::pow(10.0, (step - 72) * 60.0 / 72.0 / 20.0 + 1e-6), 1.0);
        const std::size_t bar = row.find("│ ") + 4;
        rows.insert(row.substr(bar, row.find_first_of("-0123456789", bar) - bar));
    }
    EXPECT_EQ(rows.size(), 73u) << "nine characters have 72 steps";
    EXPECT_NE(rowFor(1.0, 0.0).find("│       █       │"), std::string::npos) << rowFor(1.0, 0.0);
    EXPECT_NE(rowFor(1.0, 1.0 / 16.0).find("│      ▐▌       │"), std::string::npos) << rowFor(1.0, 1.0 / 16.0);
}

TEST(MeterScreen, OutputsShowRmsPeakAndHeldPeak)
{
    MeterValues values = silentValues();
    values.outputs[2] = {.name = "FC", .peak = 0.1, .rms = 0.01, .held = 1.0};
    values.momentary = -23.04;
    values.reductionDb = 2.5;
    values.clipped = 7;
    const auto rows = plainScreen(values);
    EXPECT_NE(rows[6].find("FC  #####======    |     0.0"), std::string::npos) << rows[6];
    EXPECT_NE(rows[8].find("loudness   -23.0 LUFS"), std::string::npos) << rows[8];
    EXPECT_NE(rows[10].find("limiter     -2.5 dB"), std::string::npos) << rows[10];
    EXPECT_NE(rows[11].find("clipped        7"), std::string::npos) << rows[11];
}

TEST(MeterScreen, ZeroHasNoSign)
{
    MeterValues values = silentValues();
    values.reductionDb = 0.04;
    values.gainDb = -0.04;
    values.groups[0] = {.upperHz = 1500.0, .level = 1.0, .place = -0.001, .centre = 1.0};
    const auto rows = plainScreen(values);
    EXPECT_NE(rows[10].find("limiter      0.0 dB"), std::string::npos) << rows[10];
    EXPECT_NE(rows[1].find("gain +0.0 dB"), std::string::npos) << rows[1];
    EXPECT_NE(tarn::lineOf(values).find(" 1500=0.0,0.00,1.00 "), std::string::npos) << tarn::lineOf(values);
    EXPECT_EQ(tarn::tenths(-0.06), "-0.1");
    EXPECT_EQ(tarn::tenths(-10.0), "-10.0");
}

TEST(MeterScreen, SaysThatTheUpmixIsOff)
{
    MeterValues values = silentValues();
    values.isOn = false;
    values.gainDb = 18.0;
    values.groups[15] = {.upperHz = 24000.0, .level = 1.0, .place = 1.0, .centre = 0.0};
    for (const tarn::ScreenSize size : {tarn::kSmallestScreen, tarn::ScreenSize{80, 24}}) {
        const auto rows = plainScreen(values, size);
        EXPECT_TRUE(rows[1].starts_with(" upmix OFF, when on: mode fast  gain +18.0 dB  centre +0.0 dB   3.0"))
            << rows[1];
        const std::size_t row = size.rows == 20 ? 12 : 13;
        EXPECT_NE(rows[row].find("off: groups show what"), std::string::npos) << rows[row];
        EXPECT_NE(rows[row + 1].find("the upmix would do"), std::string::npos) << rows[row + 1];
    }
    const Rgb dimmed = tarn::placeColour(1.0, 0.0, 0.0, 0.5);
    EXPECT_NE(sequencesOf(values, ColourMode::Full)
                  .find("38;2;" + std::to_string(dimmed.red) + ";" + std::to_string(dimmed.green) + ";" +
                        std::to_string(dimmed.blue) + ";"),
              std::string::npos);
}

TEST(MeterScreen, TellsWhatColoursAndMarksMean)
{
    const auto rowOf = [](ColourMode mode, std::size_t row) {
        return tarn::screenOf(silentValues(), {.columns = 80, .rows = 24}, {.colours = mode, .isUtf8 = true})
            .textOf(row);
    };
    EXPECT_NE(rowOf(ColourMode::Full, 13).find("█ left █ centre █ right"), std::string::npos);
    EXPECT_NE(rowOf(ColourMode::Cube, 14).find("█ left and right alike"), std::string::npos);
    EXPECT_NE(rowOf(ColourMode::Plain, 13).find("wide mark: left and"), std::string::npos);
    EXPECT_NE(rowOf(ColourMode::Plain, 14).find("right alike"), std::string::npos);
}

TEST(MeterScreen, SendsOnlyChangedCharacters)
{
    MeterValues values = silentValues();
    const auto screenAt = [&] {
        return tarn::screenOf(values, {.columns = 120, .rows = 40}, {.colours = ColourMode::Full, .isUtf8 = true});
    };
    const tarn::Canvas before = screenAt();
    EXPECT_EQ(screenAt().changesFrom(before, ColourMode::Full), "");
    values.seconds += 0.1;
    EXPECT_EQ(screenAt().changesFrom(before, ColourMode::Full), "\033[1;30H3");
    values.outputs[0].rms = std::pow(10.0, -59.0 / 20.0);
    values.outputs[0].peak = values.outputs[0].rms;
    const std::string changes = screenAt().changesFrom(before, ColourMode::Full);
    EXPECT_TRUE(changes.starts_with("\033[1;30H3\033[5;82H\033[38;2;")) << changes;
    EXPECT_TRUE(changes.ends_with("m▌\033[m")) << changes;
}

TEST(MeterScreen, SmallWindowsSayWhatIsMissing)
{
    for (const tarn::ScreenSize size : {tarn::ScreenSize{67, 24}, tarn::ScreenSize{80, 19}}) {
        const auto rows = plainScreen(silentValues(), size);
        EXPECT_EQ(rows.size(), size.rows);
        EXPECT_TRUE(rows[0].starts_with("tarn meter needs 68 columns")) << rows[0];
        EXPECT_TRUE(rows[1].starts_with("and 20 rows; q quits")) << rows[1];
    }
    const auto smallest = plainScreen(silentValues(), tarn::kSmallestScreen);
    EXPECT_EQ(smallest.back(), " q quit  b upmix  m mode  arrows gain, centre  r reset              ");
    MeterValues file = silentValues();
    file.canPause = true;
    file.isPaused = true;
    EXPECT_EQ(plainScreen(file, tarn::kSmallestScreen).back(),
              " q quit  space pause  b upmix  m mode  arrows gain, centre  r reset ");
    EXPECT_EQ(plainScreen(file).back(),
              " q quit  space pause  b upmix  m mode  up/down gain  left/right centre  r reset ");
    EXPECT_TRUE(plainScreen(file)[0].starts_with(" tarn meter  song.flac  1:02.2 / 3:20  PAUSED "));
    for (std::size_t columns = 68; columns < 300; ++columns)
        for (const std::string& row : plainScreen(silentValues(), {.columns = columns, .rows = 24}))
            EXPECT_EQ(row.size(), columns);
    EXPECT_EQ(plainScreen(silentValues(), {.columns = 1, .rows = 1}), std::vector<std::string>{"t"});
}

TEST(MeterScreen, LongNamesKeepTheirEnd)
{
    MeterValues values = silentValues();
    values.name = std::string(100, 'x') + "\033[31m/the song.flac";
    const std::string row = plainScreen(values)[0];
    EXPECT_EQ(row.size(), 80u);
    EXPECT_NE(row.find("?[31m/the song.flac  1:02.2 / 3:20"), std::string::npos) << row;
}

TEST(MeterScreen, ColoursFollowThePlace)
{
    const Rgb left = tarn::placeColour(1.0, 0.0, 0.0, 1.0);
    const Rgb wide = tarn::placeColour(1.0, 0.0, 1.0, 1.0);
    const Rgb right = tarn::placeColour(0.0, 0.0, 1.0, 1.0);
    const Rgb centre = tarn::placeColour(0.0, 1.0, 0.0, 1.0);
    EXPECT_TRUE(left.blue > 200 && left.blue > left.green && left.green > left.red) << "blue";
    EXPECT_TRUE(right.red > 200 && right.red > right.green && right.green > right.blue) << "orange";
    EXPECT_TRUE(wide.red > 180 && wide.blue > 180 && wide.green < 160) << "violet";
    EXPECT_TRUE(centre.red == centre.green && centre.green == centre.blue && centre.red > 230) << "white";
    EXPECT_EQ(tarn::placeColour(0.0, 0.0, 0.0, 1.0), Rgb{});
    EXPECT_EQ(tarn::placeColour(1.0, 0.0, 0.0, 0.0), Rgb{});
    EXPECT_LT(tarn::placeColour(1.0, 0.0, 0.0, 0.5).blue, left.blue) << "softer is darker";
    EXPECT_EQ(tarn::cubeColour({0, 0, 0}), 16);
    EXPECT_EQ(tarn::cubeColour({255, 255, 255}), 231);
    EXPECT_EQ(tarn::cubeColour({95, 0, 215}), 16 + 36 + 4);
    EXPECT_EQ(tarn::cubeColour({128, 130, 127}), 232 + 12);
    EXPECT_EQ(tarn::cubeColour({32, 36, 42}), 232 + 3) << "38";

    MeterValues values = silentValues();
    values.groups[15] = {.upperHz = 24000.0, .level = 1.0, .place = 1.0, .centre = 0.0};
    const std::string full = "\033[38;2;" + std::to_string(left.red) + ";" + std::to_string(left.green) + ";" +
                             std::to_string(left.blue) + ";48;2;32;36;42m█";
    EXPECT_NE(sequencesOf(values, ColourMode::Full).find(full), std::string::npos);
    EXPECT_NE(
        sequencesOf(values, ColourMode::Cube).find("\033[38;5;" + std::to_string(tarn::cubeColour(left)) + ";48;5;"),
        std::string::npos);
    EXPECT_EQ(sequencesOf(values, ColourMode::Plain).find('m', 0),
              sequencesOf(values, ColourMode::Plain).find("meter"));
}

TEST(MeterScreen, OutputsHaveTheColoursOfTheirSides)
{
    MeterValues values = silentValues();
    values.outputs.clear();
    const std::pair<const char*, std::array<double, 3>> outputs[] = {{"FL", {1, 0, 0}}, {"FR", {0, 0, 1}},
                                                                     {"FC", {0, 1, 0}}, {"LFE", {1, 0, 1}},
                                                                     {"BL", {1, 0, 0}}, {"SR", {0, 0, 1}}};
    for (const auto& [name, energies] : outputs) values.outputs.push_back({.name = name});
    const tarn::Canvas silent = tarn::screenOf(values, {80, 24}, {.colours = ColourMode::Full, .isUtf8 = true});
    for (std::size_t i = 0; i < std::size(outputs); ++i) {
        SCOPED_TRACE(outputs[i].first);
        MeterValues loud = values;
        loud.outputs[i].rms = 0.01;
        loud.outputs[i].peak = 0.1;
        const std::string changes = tarn::screenOf(loud, {80, 24}, {.colours = ColourMode::Full, .isUtf8 = true})
                                        .changesFrom(silent, ColourMode::Full);
        for (const double level : {0.97, 0.55}) {
            const auto& [left, centre, right] = outputs[i].second;
            const Rgb colour = tarn::placeColour(left, centre, right, level);
            EXPECT_NE(changes.find("38;2;" + std::to_string(colour.red) + ";" + std::to_string(colour.green) + ";" +
                                   std::to_string(colour.blue)),
                      std::string::npos)
                << changes;
        }
    }
}

TEST(MeterScreen, PeaksAreHeldForTwoSeconds)
{
    tarn::PeakHold hold;
    const auto heldAt = [&](double seconds, double peak) {
        MeterValues values = silentValues();
        values.seconds = seconds;
        values.outputs[0].peak = peak;
        hold.apply(values);
        return values.outputs[0].held;
    };
    EXPECT_EQ(heldAt(1.0, 0.5), 0.5);
    EXPECT_EQ(heldAt(2.9, 0.2), 0.5);
    EXPECT_EQ(heldAt(3.1, 0.1), 0.1);
    EXPECT_EQ(heldAt(3.2, 0.3), 0.3);
    hold.reset();
    EXPECT_EQ(heldAt(3.3, 0.0), 0.0);
}

TEST(MeterScreen, ArrowKeysAreRecognisedAndOtherSequencesDropped)
{
    using tarn::Terminal;
    EXPECT_EQ(tarn::keysOf("b\033[A\033OBq"), std::string({'b', Terminal::kUp, Terminal::kDown, 'q'}));
    EXPECT_EQ(tarn::keysOf("\033[C\033[D\033[1;5A"), std::string({Terminal::kRight, Terminal::kLeft, Terminal::kUp}));
    EXPECT_EQ(tarn::keysOf("\033[5~m"), "m");
    EXPECT_EQ(tarn::keysOf("\033"), "");
    EXPECT_EQ(tarn::keysOf("\033[1"), "");
}

TEST(MeterScreen, ControlKeysAreNotArrowKeys)
{
    std::string typed = "b";
    for (char control = 1; control < 27; ++control) typed += control;
    EXPECT_EQ(tarn::keysOf(typed + "m"), "bm");
}

/// The command in a window of tmux.
class MeterInTerminal : public CommandTest
{
protected:
    void TearDown() override
    {
        tmux("kill-server");
        CommandTest::TearDown();
    }

    Result tmux(const std::string& arguments) const
    {
        return shell("tmux -f /dev/null -S '" + at("tmux" + std::to_string(servers)) + "' " + arguments);
    }

    /// Runs a shell command line in a window.
    void start(const std::string& line, const std::string& variables = "LC_ALL=C",
               const std::string& size = "-x 80 -y 24")
    {
        writeBytes(at("line.sh"), "TARN='" TARN_COMMAND "'\nexport TARN " + variables + "\necho before\n" + line +
                                      "\necho ended with $?\nsleep 600\n");
        ++servers;
        const Result result = tmux("new-session -d " + size + " sh line.sh");
        ASSERT_EQ(result.exitCode, 0) << result.errors;
    }

    /// Runs the meter on a raw stream of sines that then stands still.
    void startOnSines(double left, double right, const std::string& variables = "LC_ALL=C",
                      const std::string& options = "--preset plain")
    {
        Samples samples;
        for (int i = 0; i < 96000; ++i) {
            const double value = 32767.0 * std::sin(2.0 * std::numbers::pi * 5250.0 / 48000.0 * i);
            for (const double level : {left, right})
                samples.push_back(static_cast<std::int32_t>(std::lround(level * value)) * 65536);
        }
        writeBytes(at("in.raw"), pcmOf(samples, 16));
        start("(cat in.raw; sleep 600) | sh -c 'echo $$ >process; exec \"$TARN\" meter --raw 48000:16 " + options + "'",
              variables);
        waitFor("0:02.0");
        waitForStillScreen();
    }

    /// The rows of the window.
    std::vector<std::string> rows(const std::string& options = "") const
    {
        std::vector<std::string> result;
        std::istringstream in(tmux("capture-pane -p " + options).output);
        for (std::string row; std::getline(in, row);) result.push_back(row);
        return result;
    }

    std::string text() const { return tmux("capture-pane -p").output; }

    /// Waits until a condition holds. The deadline is for faults only: a busy machine makes everything late.
    void waitUntil(const std::function<bool()>& holds, const std::string& name) const
    {
        using namespace std::chrono_literals;
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        while (!holds()) {
            if (std::chrono::steady_clock::now() > deadline) FAIL() << "no " << name << " in\n" << text();
            std::this_thread::sleep_for(20ms);
        }
    }

    /// Waits until the window has a text, which must stay there: a busy machine does not see every screen.
    void waitFor(const std::string& wanted) const
    {
        waitUntil([&] { return text().find(wanted) != std::string::npos; }, wanted);
    }

    /// Waits until the window stays as it is for half a second, because tmux can show a part of a new screen.
    void waitForStillScreen() const
    {
        using namespace std::chrono_literals;
        std::string last;
        int same = 0;
        waitUntil(
            [&] {
                std::string now = text();
                same = now == last ? same + 1 : 0;
                last = std::move(now);
                if (same < 5) std::this_thread::sleep_for(80ms);
                return same == 5;
            },
            "rest");
    }

    /// The position of in.wav on the screen: "0:01.2" is 1.2; -1 if there is none.
    double position() const
    {
        const std::string screen = text();
        std::smatch match;
        return std::regex_search(screen, match, std::regex("in\\.wav  0:([0-9.]+) /")) ? std::stod(match[1]) : -1.0;
    }

    /// Waits until in.wav has been played to a position.
    void waitForPosition(double seconds) const
    {
        waitUntil([&] { return position() >= seconds; }, "position");
    }

    void press(const std::string& keys) const { tmux("send-keys " + keys); }

    std::string state() const
    {
        return tmux("display-message -p 'screen #{alternate_on} cursor #{cursor_flag}'").output;
    }

private:
    int servers = 0; ///< of tmux; each has a socket of its own, because the one before may still end
};

TEST_F(MeterInTerminal, ASineOnTheLeftHasItsBarInItsGroup)
{
    startOnSines(0.5, 0.0);
    const auto screen = rows();
    ASSERT_EQ(screen.size(), 24u);
    EXPECT_TRUE(screen[0].starts_with(" tarn meter  standard input  0:02.0")) << screen[0];
    for (std::size_t row = 4; row < 20; ++row) {
        const bool isGroup = screen[row].starts_with(" 6.0 kHz ");
        EXPECT_EQ(axisOf(screen[row]), isGroup ? marked(0, 0) : std::string(19, ' ')) << screen[row];
        EXPECT_EQ(barOf(screen[row]), isGroup ? std::string(12, '#') : "") << screen[row];
        EXPECT_EQ(screen[row].find(" -12.0") != std::string::npos, isGroup) << screen[row];
    }
    EXPECT_NE(screen[4].find("FL  ##"), std::string::npos) << screen[4];
    EXPECT_EQ(screen[5].find('#'), std::string::npos) << screen[5];
}

TEST_F(MeterInTerminal, ACentredSineIsInTheMiddleAndAWideOneOnBothSides)
{
    const auto axisFor = [this](double left, double right) {
        startOnSines(left, right);
        const auto screen = rows();
        tmux("kill-server");
        for (const std::string& row : screen)
            if (row.starts_with(" 6.0 kHz ")) return axisOf(row);
        return std::string();
    };
    EXPECT_EQ(axisFor(0.5, 0.5), marked(9, 9));
    EXPECT_EQ(axisFor(0.5, -0.5), marked(0, 18));
    EXPECT_EQ(axisFor(0.0, 0.0), std::string(19, ' '));
}

TEST_F(MeterInTerminal, ColoursFollowTheEnvironment)
{
    startOnSines(0.5, 0.0, "LC_ALL=C.UTF-8");
    const auto has = [this](const std::string& wanted) {
        return tmux("capture-pane -p -e").output.find(wanted) != std::string::npos;
    };
    EXPECT_TRUE(has("38;5;")) << "256 colours";
    EXPECT_FALSE(has("38;2;"));
    tmux("kill-server");
    startOnSines(0.5, 0.0, "LC_ALL=C.UTF-8 COLORTERM=truecolor");
    EXPECT_TRUE(has("38;2;"));
    tmux("kill-server");
    startOnSines(0.5, 0.0, "LC_ALL=C.UTF-8 COLORTERM=truecolor NO_COLOR=1");
    EXPECT_FALSE(has("38;"));
}

TEST_F(MeterInTerminal, KeysChangeTheSettings)
{
    startOnSines(0.5, 0.5, "LC_ALL=C", "--layout 5.1");
    EXPECT_NE(rows()[1].find("upmix on   mode fast  gain +3.0 dB   centre +0.0 dB   5.1"), std::string::npos);
    press("Up Up Down Left Left Left m b");
    waitFor("upmix OFF, when on: mode calm  gain +4.0 dB   centre -3.0 dB   5.1");
    press("b m Right Down x F5 Space");
    waitFor("upmix on   mode fast  gain +3.0 dB   centre -2.0 dB   5.1");
    EXPECT_EQ(text().find("PAUSED"), std::string::npos) << "a stream goes on";
    ASSERT_EQ(text().find("from start     - LUFS"), std::string::npos) << text();
    press("r");
    waitFor("from start     - LUFS");
    for (int i = 0; i < 20; ++i) press("Up");
    waitFor("gain +18.0 dB");
}

TEST_F(MeterInTerminal, KeysChangeTheUpmixThatIsWritten)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(48000, 16), 16));
    start("(while [ ! -e typed ]; do sleep 0.1; done; cat in.raw) | "
          "\"$TARN\" meter --raw 48000:16 --preset plain --upmix >out.raw");
    waitFor("0:00.0");
    press("Up Up m");
    waitFor("mode calm  gain +2.0 dB");
    writeBytes(at("typed"), "");
    waitFor("ended with 0");
    const Result upmix =
        shell("\"$TARN\" upmix --quiet --raw 48000:16 --preset plain --gain 2 --mode calm - - <in.raw");
    EXPECT_TRUE(bytesOf(at("out.raw")) == upmix.output);
}

TEST_F(MeterInTerminal, FollowsTheSizeOfTheWindow)
{
    startOnSines(0.5, 0.0);
    tmux("resize-window -x 120 -y 40");
    const auto hasKeysInRow = [this](std::size_t row) {
        const auto screen = rows();
        return screen.size() == row + 1 && screen[row].starts_with(" q quit ");
    };
    waitUntil([&] { return hasKeysInRow(39); }, "keys in row 39");
    tmux("resize-window -x 50 -y 10");
    waitFor("tarn meter needs 68 columns");
    tmux("resize-window -x 68 -y 20");
    waitUntil([&] { return hasKeysInRow(19); }, "keys in row 19");
}

TEST_F(MeterInTerminal, RestoresTheTerminalOnEveryExit)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(48000 * 60, 16));
    const std::pair<std::string, std::string> exits[] = {{"tmux send-keys q", "status 0"},
                                                         {"tmux send-keys C-c", "status 130"},
                                                         {"kill -TERM $(cat process)", "status 143"},
                                                         {"kill -HUP $(cat process)", "status 129"}};
    for (const auto& [action, status] : exits) {
        SCOPED_TRACE(action);
        start("trap : INT\nstty -a >stty-before\nsh -c 'echo $$ >process; exec \"$TARN\" meter in.wav'\n"
              "echo status $?\nstty -a >stty-after");
        waitForPosition(0.5);
        EXPECT_EQ(state(), "screen 1 cursor 0\n");
        if (action.starts_with("tmux ")) {
            tmux(action.substr(5));
        } else {
            shell(action);
        }
        waitFor("ended with");
        const std::string screen = text();
        EXPECT_TRUE(screen.starts_with("before\n")) << screen;
        EXPECT_EQ(screen.find("r reset"), std::string::npos) << screen;
        EXPECT_EQ(std::regex_search(screen, std::regex("tarn: in\\.wav: 0:0[0-9.]+, -[0-9.]+ LUFS\n")),
                  status == "status 0")
            << screen;
        EXPECT_NE(screen.find(status + "\n"), std::string::npos) << screen;
        EXPECT_EQ(state(), "screen 0 cursor 1\n");
        EXPECT_EQ(bytesOf(at("stty-before")), bytesOf(at("stty-after")));
        tmux("kill-server");
    }
}

/// The time since a point in seconds.
double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(MeterInTerminal, CtrlZStopsItWithTheTerminalRestoredAndFgShowsTheScreenAgain)
{
    using namespace std::chrono_literals;
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(48000 * 60, 16));
    start(
        "set -m\nstty -a >stty-before\n\"$TARN\" meter in.wav\nstty -a >stty-stopped\necho was stopped\nread word\nfg");
    waitForPosition(0.5);
    const auto start = std::chrono::steady_clock::now();
    const double before = position();
    press("C-z");
    waitFor("was stopped");
    EXPECT_EQ(state(), "screen 0 cursor 1\n");
    EXPECT_EQ(text().find("r reset"), std::string::npos) << text();
    EXPECT_EQ(bytesOf(at("stty-before")), bytesOf(at("stty-stopped")));
    std::this_thread::sleep_for(4s);
    press("word Enter");
    waitForPosition(before);
    EXPECT_LT(position(), before + secondsSince(start) - 2.0) << "the file was stopped too";
    EXPECT_EQ(state(), "screen 1 cursor 0\n");
    press("C-z");
    waitFor("ended with");
    EXPECT_EQ(state(), "screen 0 cursor 1\n") << "stops a second time";
}

/// Rows with escape sequences, with every character behind its own colours. A space has no colour of its text.
std::string visibleCells(const std::vector<std::string>& rows)
{
    std::string cells;
    std::map<char, std::string> colours; // by kind: 3 for the text, 4 for the background
    for (const std::string& row : rows) {
        static const std::regex kPart("\033\\[([34])([0-9;]*)m|[^\033]");
        for (std::sregex_iterator part(row.begin(), row.end(), kPart), end; part != end; ++part) {
            if ((*part)[1].matched) {
                colours[(*part)[1].str()[0]] = (*part)[2];
            } else {
                cells += part->str() + (part->str() == " " ? "" : colours['3']) + "/" + colours['4'] + " ";
            }
        }
        cells += "\n";
    }
    return cells;
}

TEST_F(MeterInTerminal, KeysWorkAfterTheProcessWasStopped)
{
    startOnSines(0.5, 0.1, "LC_ALL=C.UTF-8 COLORTERM=truecolor");
    press("m");
    waitFor("mode calm");
    waitForStillScreen();
    const auto screen = visibleCells(rows("-e"));
    shell("kill -STOP $(cat process)");
    tmux("send-keys -R");
    EXPECT_EQ(text().find("r reset"), std::string::npos) << "the reset erases the window";
    shell("kill -CONT $(cat process)");
    waitFor("r reset");
    waitForStillScreen();
    EXPECT_EQ(visibleCells(rows("-e")), screen) << "as many changes had drawn it";
    press("m");
    waitFor("mode fast");
    press("q");
    waitFor("tarn: standard input: 0:02.000, ");
}

TEST_F(MeterInTerminal, SpacePausesAFile)
{
    using namespace std::chrono_literals;
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(48000 * 60, 16));
    start("\"$TARN\" meter in.wav");
    waitForPosition(0.0);
    press("Space");
    waitFor("PAUSED");
    waitForStillScreen();
    const double paused = position();
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(position(), paused);
    const auto start = std::chrono::steady_clock::now();
    press("Space");
    waitForPosition(paused + 0.1);
    EXPECT_LT(position(), paused + secondsSince(start) + 1.0) << "goes on where it was";
    press("Space q");
    waitFor("ended with 0");
}

TEST_F(MeterInTerminal, BeginsAtAStart)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(48000 * 20, 16));
    start("\"$TARN\" meter --start 0:02.5 in.wav");
    waitForPosition(0.0);
    EXPECT_GE(position(), 2.5);
    press("q");
    waitFor("ended with 0");
    EXPECT_NE(text().find("tarn: in.wav: 0:02.500 to 0:"), std::string::npos) << text();
    tmux("kill-server");
    start("\"$TARN\" meter --start 0:18.5 in.wav");
    waitFor("ended with 0");
    EXPECT_TRUE(
        std::regex_search(text(), std::regex("tarn: in\\.wav: 0:18\\.500 to 0:20\\.000, -[0-9]+\\.[0-9] LUFS\nended")))
        << text();
    tmux("kill-server");
    start("\"$TARN\" meter --start 21 in.wav");
    waitFor("ended with 64");
    EXPECT_NE(text().find("tarn: --start 21: in.wav ends at 0:20; give an earlier start\nended"), std::string::npos)
        << text();
}

TEST_F(MeterInTerminal, ThePassedStreamIsUnchangedAndItsReaderEndsTheMeter)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(20000, 16), 16) + "x");
    start("(cat in.raw; while [ ! -e seen ]; do sleep 0.1; done) | \"$TARN\" meter --raw 48000:16 --pass >out.raw");
    waitFor("tarn meter  standard input  0:00.4");
    writeBytes(at("seen"), "");
    waitFor("ended with 0");
    EXPECT_TRUE(bytesOf(at("out.raw")) == bytesOf(at("in.raw")));
    EXPECT_NE(text().find("tarn: standard input: ends inside a frame: 1 byte"), std::string::npos) << text();
    tmux("kill-server");

    start("(cat in.raw; sleep 1; cat in.raw in.raw) | { \"$TARN\" meter --raw 48000:16 --pass; echo status $? >&2; } | "
          "head -c 80001 >out.raw");
    waitFor("status 141");
    EXPECT_EQ(state(), "screen 0 cursor 1\n");
}

TEST_F(MeterInTerminal, AFileThatEndsLeavesItsLengthAndLoudness)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(72000, 16));
    start("\"$TARN\" meter --speed 10 in.wav");
    waitFor("ended with 0");
    EXPECT_TRUE(
        std::regex_search(text(), std::regex("before\ntarn: in\\.wav: 0:01\\.500, -[0-9]+\\.[0-9] LUFS\nended")))
        << text();
}

TEST_F(MeterInTerminal, AShortFileHasNoLoudness)
{
    // Less than the 0.4 s that BS.1770 measures.
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(4800, 16));
    start("\"$TARN\" meter in.wav");
    waitFor("ended with 0");
    EXPECT_NE(text().find("tarn: in.wav: 0:00.100, no loudness\n"), std::string::npos) << text();
}

TEST_F(MeterInTerminal, TypedKeysAreNoStream)
{
    start("\"$TARN\" meter --raw 48000:16");
    waitFor("ended with 64");
    EXPECT_NE(text().find("tarn: standard input: is a terminal; pipe a raw stream into it"), std::string::npos)
        << text();
}

// The emulator of `script` stops when nobody reads what it shows; the terminal is then full.
TEST_F(MeterInTerminal, AStuckTerminalDelaysNeitherTheStreamNorItsEnd)
{
    writeBytes(at("in.raw"), pcmOf(stereoNoise(4800, 16), 16));
    const Result result =
        shell("echo 'for i in $(seq 60); do cat in.raw; sleep 0.04; done | '\"$TARN\"' meter --raw 48000:16 --pass "
              ">out.raw; touch ended' "
              ">line.sh; export TERM=xterm COLORTERM=truecolor LC_ALL=C.UTF-8; "
              "{ script -qec 'stty rows 50 cols 200; sh line.sh' /dev/null </dev/null; } | "
              "{ for i in $(seq 600); do [ ! -e ended ] || break; sleep 0.1; done; [ -e ended ] && wc -c <out.raw; }");
    EXPECT_EQ(result.output, std::to_string(60 * 4800 * 4) + "\n") << result.errors;
}

} // namespace tarn_cli
