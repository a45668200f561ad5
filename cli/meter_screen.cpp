// The screen of tarn meter.
// SPDX-License-Identifier: MIT
#include "cli/meter_screen.h"

#include "cli/decibels.h"
#include "cli/environment.h"
#include "cli/text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string_view>

namespace tarn
{

namespace
{

constexpr double kRangeDb = 60.0; ///< of the bars, below full scale
constexpr double kFirstLightness = 0.4;
constexpr std::size_t kFirstRow = 3; ///< of groups and outputs
constexpr std::size_t kMaxRowsPerGroup = 3;
constexpr std::string_view kKeys = " q quit  b on/off  m mode  up/down gain  left/right centre  r reset";
constexpr Rgb kGrey = {130, 130, 130};
constexpr Rgb kLight = {230, 230, 230};
constexpr Rgb kMiddle = {150, 150, 150};

/// Where the columns of a screen are.
struct Columns
{
    std::size_t bar;     ///< width of the bar of an output of the engine
    std::size_t outputs; ///< first column of the block on the right
    std::size_t outputBar;
};

constexpr std::size_t kLabel = 6;
constexpr std::size_t kNumber = 6;
constexpr std::size_t kSwatch = 2;

Columns columnsOf(std::size_t width)
{
    const std::size_t right = std::clamp<std::size_t>(width * 9 / 25, 24, 60);
    const std::size_t left = width - right - 2;
    const std::size_t bar = (left - kLabel - kNumber - kSwatch - 7) / 3;
    return {.bar = bar, .outputs = width - right, .outputBar = right - 4 - kNumber - 2};
}

/// The part of a bar that a level fills, 0 to 1.
double filledPart(double level)
{
    return level > 0.0 ? std::clamp(1.0 + decibels(level) / kRangeDb, 0.0, 1.0) : 0.0;
}

std::string decibelText(double level)
{
    return level > 0.0 && decibels(level) > -99.95 ? formatted("%.1f", decibels(level)) : "-";
}

std::string signedText(double value)
{
    return formatted("%+.1f dB", value);
}

std::string loudnessText(double lufs)
{
    return rightAligned(std::isfinite(lufs) ? formatted("%.1f", lufs) : "-", kNumber) + " LUFS";
}

std::string frequencyText(double hertz)
{
    if (hertz < 1000.0) return formatted("%.0f", hertz);
    return formatted(hertz < 9950.0 ? "%.1fk" : "%.0fk", hertz / 1000.0);
}

std::string repeated(std::string_view text, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

/// Draws values on a canvas.
class Screen
{
public:
    Screen(const MeterValues& meterValues, ScreenSize screenSize, const ScreenStyle& screenStyle)
        : values(meterValues),
          size(screenSize),
          style(screenStyle),
          columns(columnsOf(screenSize.columns)),
          canvas(screenSize.columns, screenSize.rows)
    {}

    std::vector<std::string> draw()
    {
        drawHead();
        const std::size_t groups = values.groups.size();
        const std::size_t rowsPerGroup =
            std::clamp<std::size_t>((size.rows - kFirstRow - 1) / groups, 1, kMaxRowsPerGroup);
        for (std::size_t g = 0; g < groups; ++g) {
            const std::size_t row = kFirstRow + (groups - 1 - g) * rowsPerGroup;
            for (std::size_t i = 0; i < rowsPerGroup; ++i) drawBars(row + i, values.groups[g]);
            drawFrequencyAndLevel(row, values.groups[g]);
        }
        std::size_t row = kFirstRow;
        for (const OutputValue& output : values.outputs) drawOutput(row++, output);
        drawFigures(row + 1);
        canvas.put(size.rows - 1, 0, kKeys, kGrey);
        return canvas.rows(style.colours);
    }

private:
    std::string_view full() const { return style.isUtf8 ? "█" : "#"; }

    void drawHead()
    {
        std::string time = durationText(static_cast<std::uint64_t>(values.seconds * 1000.0), 1000);
        time.resize(time.size() - 2); // tenths
        if (values.totalSeconds)
            time += " / " + shortDurationText(static_cast<std::uint64_t>(*values.totalSeconds * 1000.0), 1000);
        const std::size_t room = size.columns - time.size() - 16;
        canvas.put(0, 1, "tarn meter  " + lastCharacters(printable(values.name), room) + "  " + time);
        canvas.put(1, 1,
                   padded(values.isOn ? "upmix on" : "upmix OFF", 11) + padded("mode " + values.mode, 11) +
                       padded("gain " + signedText(values.gainDb), 16) +
                       padded("centre " + signedText(values.centreDb), 18) + values.layout);
        canvas.put(2, 0, rightAligned("to Hz", kLabel), kGrey);
        canvas.put(2, barColumn(0), "left", kGrey);
        canvas.put(2, barColumn(1) + (columns.bar - std::min<std::size_t>(columns.bar, 6)) / 2, "centre", kGrey);
        canvas.put(2, barColumn(2) + columns.bar - 5, "right", kGrey);
        canvas.put(2, barColumn(3), rightAligned("dB", kNumber), kGrey);
        canvas.put(2, columns.outputs, "output", kGrey);
        canvas.put(2, size.columns - 10, "peak, dB", kGrey);
    }

    /// The first column of the bar of an output of the engine; that of the level for 3.
    std::size_t barColumn(std::size_t output) const { return kLabel + 2 + output * (columns.bar + 1); }

    void drawFrequencyAndLevel(std::size_t row, const GroupValue& group)
    {
        canvas.put(row, 0, rightAligned(frequencyText(group.upperHz), kLabel), kGrey);
        canvas.put(row, barColumn(3), rightAligned(decibelText(group.level), kNumber));
    }

    void drawBars(std::size_t row, const GroupValue& group)
    {
        for (std::size_t output = 0; output < 4; ++output)
            canvas.put(row, barColumn(output) - 1, style.isUtf8 ? "│" : ":", kGrey);
        const auto width = static_cast<double>(columns.bar);
        const auto cellsOf = [&](double share) {
            return static_cast<std::size_t>(
                std::lround(width * filledPart(group.level * std::sqrt(std::max(share, 0.0)))));
        };
        const double level = kFirstLightness + (1.0 - kFirstLightness) * filledPart(group.level);
        const std::size_t left = cellsOf(group.leftShare());
        const std::size_t centre = cellsOf(group.centre);
        const std::size_t right = cellsOf(group.rightShare());
        canvas.put(row, barColumn(0), repeated(full(), left), placeColour(1.0, 0.0, 0.0, level));
        canvas.put(row, barColumn(1) + (columns.bar - centre) / 2, repeated(full(), centre),
                   placeColour(0.0, 1.0, 0.0, level));
        canvas.put(row, barColumn(2) + columns.bar - right, repeated(full(), right), placeColour(0.0, 0.0, 1.0, level));
        if (filledPart(group.level) == 0.0 || style.colours == ColourMode::Plain) return;
        canvas.put(row, barColumn(3) + kNumber + 1, repeated(full(), kSwatch),
                   placeColour(group.leftShare(), group.centre, group.rightShare(), level));
    }

    /// Rms bright, peak darker, and a mark at the held peak.
    void drawOutput(std::size_t row, const OutputValue& output)
    {
        canvas.put(row, columns.outputs, output.name);
        const std::size_t first = columns.outputs + 4;
        const auto cellsOf = [&](double level) {
            return static_cast<std::size_t>(std::lround(static_cast<double>(columns.outputBar) * filledPart(level)));
        };
        const std::size_t rms = cellsOf(output.rms);
        const std::size_t peak = std::max(cellsOf(output.peak), rms);
        const std::size_t held = cellsOf(output.held);
        canvas.put(row, first, repeated(full(), rms), kLight);
        canvas.put(row, first + rms, repeated(style.isUtf8 ? "▒" : "=", peak - rms), kMiddle);
        if (held > 0) canvas.put(row, first + held - 1, style.isUtf8 ? "┃" : "|", kLight);
        canvas.put(row, first + columns.outputBar, rightAligned(decibelText(output.held), kNumber));
    }

    void drawFigures(std::size_t row)
    {
        canvas.put(row, columns.outputs, "loudness  " + loudnessText(values.momentary));
        canvas.put(row + 1, columns.outputs, "from start" + loudnessText(values.integrated));
        canvas.put(row + 2, columns.outputs,
                   "limiter   " + rightAligned(formatted("%.1f", 0.0 - values.reductionDb), kNumber) + " dB");
        if (values.clipped > 0)
            canvas.put(row + 3, columns.outputs, "clipped   " + rightAligned(std::to_string(values.clipped), kNumber));
    }

    const MeterValues& values;
    ScreenSize size;
    ScreenStyle style;
    Columns columns;
    Canvas canvas;
};

bool isUtf8Locale()
{
    std::string_view locale;
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (locale.empty()) locale = environmentVariable(name);
    std::string upper(locale);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return upper.find("UTF-8") != std::string::npos || upper.find("UTF8") != std::string::npos;
}

ColourMode coloursOfEnvironment()
{
    if (!environmentVariable("NO_COLOR").empty()) return ColourMode::Plain;
    if (environmentVariable("COLORTERM") == "truecolor" || environmentVariable("COLORTERM") == "24bit")
        return ColourMode::Full;
    const std::string_view type = environmentVariable("TERM");
    for (const std::string_view known : {"xterm", "screen", "tmux", "rxvt", "alacritty", "foot", "konsole"})
        if (type.starts_with(known)) return ColourMode::Cube;
    return type.find("256color") != std::string_view::npos ? ColourMode::Cube : ColourMode::Plain;
}

} // namespace

ScreenStyle styleOfEnvironment()
{
    return {.colours = coloursOfEnvironment(), .isUtf8 = isUtf8Locale()};
}

std::vector<std::string> screenOf(const MeterValues& values, ScreenSize size, const ScreenStyle& style)
{
    if (size.columns >= kSmallestScreen.columns && size.rows >= kSmallestScreen.rows)
        return Screen(values, size, style).draw();
    Canvas canvas(size.columns, size.rows);
    canvas.put(0, 0, "tarn meter needs " + std::to_string(kSmallestScreen.columns) + " columns");
    canvas.put(1, 0, "and " + std::to_string(kSmallestScreen.rows) + " rows; q quits");
    return canvas.rows(style.colours);
}

} // namespace tarn
