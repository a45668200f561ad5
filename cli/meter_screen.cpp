// The screen of tarn meter.
// SPDX-License-Identifier: MIT
#include "cli/meter_screen.h"

#include "cli/bars.h"
#include "cli/decibels.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

namespace tarn
{

namespace
{

constexpr double kRangeDb = 60.0; ///< of the bars, below full scale
constexpr std::size_t kMaxRowsPerGroup = 3;
constexpr std::size_t kRowsWithHelp = 24; ///< smaller screens have no titles and explanations
constexpr std::size_t kColumnsForAllKeys = 80;

// Lightness of sounds, 0 to 1, as in pictures.
constexpr double kSoftest = 0.4;
constexpr double kRms = 0.97;
constexpr double kPeak = 0.55;
constexpr double kDimmed = 0.5; ///< part that remains while the upmix is off

// Steps in which colours change, so that a terminal gets few changes.
constexpr double kLevelSteps = 24.0;
constexpr double kShareSteps = 16.0;

constexpr CellColours kGrey = {.text = Rgb{130, 130, 130}};
constexpr Rgb kAxis = {90, 96, 104};
constexpr Rgb kHeld = {235, 235, 235};

// Widths of columns.
constexpr std::size_t kLabel = 8;  ///< frequency
constexpr std::size_t kNumber = 6; ///< level of a group
constexpr std::size_t kOutputName = 4;
constexpr std::size_t kOutputNumber = 8;
constexpr std::size_t kFigureNumber = 6;

/// Where the columns of a screen are.
struct Columns
{
    std::size_t axis;    ///< width of the axis from left to right, odd
    std::size_t bar;     ///< width of the level of a group
    std::size_t outputs; ///< first column of the block on the right
    std::size_t outputBar;

    static constexpr std::size_t kAxisAt = kLabel + 1;
    std::size_t barAt() const noexcept { return kAxisAt + axis + 1; }
    std::size_t numberAt() const noexcept { return barAt() + bar; }
};

Columns columnsOf(std::size_t width)
{
    const std::size_t right = std::max<std::size_t>(width * 9 / 25, 24);
    const std::size_t left = width - right - 2;
    const std::size_t bars = left - Columns::kAxisAt - 1 - kNumber;
    const std::size_t axis = std::max<std::size_t>(bars * 9 / 16, 16) | 1;
    return {
        .axis = axis, .bar = bars - axis, .outputs = width - right, .outputBar = right - kOutputName - kOutputNumber};
}

/// The part of a bar that a level fills, 0 to 1.
double filledPart(double level)
{
    return level > 0.0 ? std::clamp(1.0 + decibels(level) / kRangeDb, 0.0, 1.0) : 0.0;
}

double inSteps(double value, double steps)
{
    return std::round(value * steps) / steps;
}

std::string decibelText(double level)
{
    return level > 0.0 && decibels(level) > -99.95 ? tenths(decibels(level)) : "-";
}

std::string signedText(double value)
{
    const std::string text = tenths(value);
    return (text.starts_with("-") ? "" : "+") + text + " dB";
}

std::string loudnessText(double lufs)
{
    return rightAligned(std::isfinite(lufs) ? tenths(lufs) : "-", kFigureNumber) + " LUFS";
}

std::string frequencyText(double hertz)
{
    if (hertz < 1000.0) return formatted("%.0f Hz", hertz);
    return formatted(hertz < 9950.0 ? "%.1f kHz" : "%.0f kHz", hertz / 1000.0);
}

/// The colour of an output, by the side in its name.
Rgb outputColour(std::string_view name, double level)
{
    const bool isSide = name != "LFE";
    const double left = !isSide || name.ends_with('L') ? 1.0 : 0.0;
    const double right = !isSide || name.ends_with('R') ? 1.0 : 0.0;
    return placeColour(left, isSide && left + right == 0.0 ? 1.0 : 0.0, right, level);
}

/// Draws values on a canvas.
class Screen
{
public:
    Screen(const MeterValues& meterValues, ScreenSize screenSize, const ScreenStyle& screenStyle)
        : values(meterValues),
          size(screenSize),
          style(screenStyle),
          hasHelp(screenSize.rows >= kRowsWithHelp),
          firstRow(hasHelp ? 4 : 3),
          columns(columnsOf(screenSize.columns)),
          canvas(screenSize.columns, screenSize.rows)
    {}

    Canvas draw()
    {
        drawHead();
        drawHeadings();
        const std::size_t groups = values.groups.size();
        const std::size_t rowsBelow = hasHelp ? 4 : 1;
        const std::size_t rowsPerGroup =
            std::clamp<std::size_t>((size.rows - firstRow - rowsBelow) / groups, 1, kMaxRowsPerGroup);
        for (std::size_t g = 0; g < groups; ++g) {
            const std::size_t row = firstRow + (groups - 1 - g) * rowsPerGroup;
            for (std::size_t i = 0; i < rowsPerGroup; ++i) drawGroup(row + i, values.groups[g]);
            drawFrequencyAndLevel(row, values.groups[g]);
        }
        std::size_t row = firstRow;
        for (const OutputValue& output : values.outputs) drawOutput(row++, output);
        drawFigures(row + 1);
        drawKeyToColours(row + 6);
        drawKeys();
        return std::move(canvas);
    }

private:
    void drawHead()
    {
        std::string time = durationText(static_cast<std::uint64_t>(values.seconds * 1000.0), 1000);
        time.resize(time.size() - 2); // tenths
        if (values.totalSeconds)
            time += " / " + shortDurationText(static_cast<std::uint64_t>(*values.totalSeconds * 1000.0), 1000);
        if (values.isPaused) time += "  PAUSED";
        const std::size_t room = size.columns - time.size() - 16;
        canvas.put(0, 1, "tarn meter  " + lastCharacters(printable(values.name), room) + "  " + time);
        canvas.put(1, 1,
                   (values.isOn ? "upmix on   " : "upmix OFF, when on: ") + padded("mode " + values.mode, 11) +
                       "gain " + padded(signedText(values.gainDb), 10) + "centre " +
                       padded(signedText(values.centreDb), 10) + values.layout);
    }

    void drawHeadings()
    {
        const std::size_t row = firstRow - 1;
        if (hasHelp) {
            const char* const title =
                values.isOn ? "where each frequency plays, and how loud" : "where the upmix would play (it is off)";
            canvas.put(row - 1, 1, title, kGrey);
            canvas.put(row - 1, columns.outputs, "outputs: rms, peak, held", kGrey);
        }
        canvas.put(row, 0, rightAligned("up to", kLabel), kGrey);
        canvas.put(row, Columns::kAxisAt, "left", {.text = placeColour(1.0, 0.0, 0.0, kRms)});
        canvas.put(row, Columns::kAxisAt + columns.axis / 2 - 3, "centre", {.text = placeColour(0.0, 1.0, 0.0, kRms)});
        canvas.put(row, Columns::kAxisAt + columns.axis - 5, "right", {.text = placeColour(0.0, 0.0, 1.0, kRms)});
        drawScale(row, columns.barAt(), columns.bar);
        canvas.put(row, columns.numberAt(), rightAligned("dB", kNumber), kGrey);
        drawScale(row, columns.outputs + kOutputName, columns.outputBar);
        canvas.put(row, size.columns - kOutputNumber, rightAligned("peak dB", kOutputNumber), kGrey);
    }

    /// Labels for -60, -30 and 0 dB over a bar.
    void drawScale(std::size_t row, std::size_t column, std::size_t width)
    {
        canvas.put(row, column, "-60", kGrey);
        if (width >= 11) canvas.put(row, column + width / 2 - 1, "-30", kGrey);
        canvas.put(row, column + width - 1, "0", kGrey);
    }

    BarPlace barAt(std::size_t row, std::size_t column, std::size_t width)
    {
        return {.canvas = canvas, .style = style, .row = row, .column = column, .width = width};
    }

    void drawFrequencyAndLevel(std::size_t row, const GroupValue& group)
    {
        canvas.put(row, 0, rightAligned(frequencyText(group.upperHz), kLabel), kGrey);
        canvas.put(row, columns.numberAt(), rightAligned(decibelText(group.level), kNumber),
                   values.isOn ? CellColours{} : kGrey);
    }

    /// The mark is where the sound plays; what left and right play alike makes it wide.
    void drawGroup(std::size_t row, const GroupValue& group)
    {
        const BarPlace axis = barAt(row, Columns::kAxisAt, columns.axis);
        drawTrack(axis);
        for (const std::size_t cell : {std::size_t{0}, columns.axis / 2, columns.axis - 1})
            drawCell(axis, cell, style.isUtf8 ? "│" : ":", kAxis);
        const BarPlace bar = barAt(row, columns.barAt(), columns.bar);
        const double part = filledPart(group.level);
        const Rgb colour = groupColour(group, part);
        drawBar(bar, part, colour);
        if (part == 0.0) return;
        const double wide = 2.0 * std::clamp(std::min(group.leftShare(), group.rightShare()), 0.0, 0.5);
        const double place = -group.place;
        drawMark(axis, (1.0 + place - wide) / 2.0, (1.0 + place + wide) / 2.0, colour);
    }

    Rgb groupColour(const GroupValue& group, double part) const
    {
        const double level = inSteps(kSoftest + (1.0 - kSoftest) * part, kLevelSteps);
        return placeColour(inSteps(group.leftShare(), kShareSteps), inSteps(group.centre, kShareSteps),
                           inSteps(group.rightShare(), kShareSteps), values.isOn ? level : kDimmed * level);
    }

    /// Rms bright, peak darker, and a mark at the held peak.
    void drawOutput(std::size_t row, const OutputValue& output)
    {
        canvas.put(row, columns.outputs, output.name);
        const BarPlace bar = barAt(row, columns.outputs + kOutputName, columns.outputBar);
        drawDoubleBar(bar, filledPart(output.rms), filledPart(output.peak), outputColour(output.name, kRms),
                      outputColour(output.name, kPeak));
        const auto held = static_cast<std::size_t>(std::ceil(static_cast<double>(bar.width) * filledPart(output.held)));
        if (held > 0) drawCell(bar, held - 1, style.isUtf8 ? "┃" : "|", kHeld);
        canvas.put(row, size.columns - kOutputNumber, rightAligned(decibelText(output.held), kOutputNumber));
    }

    void drawFigures(std::size_t row)
    {
        canvas.put(row, columns.outputs, "loudness  " + loudnessText(values.momentary));
        canvas.put(row + 1, columns.outputs, "from start" + loudnessText(values.integrated));
        canvas.put(row + 2, columns.outputs,
                   "limiter   " + rightAligned(tenths(-values.reductionDb), kFigureNumber) + " dB");
        if (values.clipped > 0)
            canvas.put(row + 3, columns.outputs,
                       "clipped   " + rightAligned(std::to_string(values.clipped), kFigureNumber));
    }

    /// What colours and marks tell; while the upmix is off, what the groups show.
    void drawKeyToColours(std::size_t row)
    {
        const std::size_t column = columns.outputs;
        if (!values.isOn) {
            canvas.put(row, column, "off: groups show what");
            canvas.put(row + 1, column, "the upmix would do");
        } else if (style.colours == ColourMode::Plain) {
            canvas.put(row, column, "wide mark: left and", kGrey);
            canvas.put(row + 1, column, "right alike", kGrey);
        } else {
            struct Sample
            {
                std::size_t row;
                std::size_t column;
                const char* name;
                std::array<double, 3> energies; ///< left, centre, right
            };
            for (const Sample& sample :
                 {Sample{0, 0, "left", {1.0, 0.0, 0.0}}, Sample{0, 7, "centre", {0.0, 1.0, 0.0}},
                  Sample{0, 16, "right", {0.0, 0.0, 1.0}}, Sample{1, 0, "left and right alike", {1.0, 0.0, 1.0}}}) {
                const auto& [left, centre, right] = sample.energies;
                canvas.put(row + sample.row, column + sample.column, fullCell(style),
                           {.text = placeColour(left, centre, right, kRms)});
                canvas.put(row + sample.row, column + sample.column + 2, sample.name, kGrey);
            }
        }
    }

    void drawKeys()
    {
        const std::size_t row = size.rows - 1;
        if (hasHelp) {
            canvas.put(row - 2, 1, "mode: fast follows sounds at once, calm is slower and steadier", kGrey);
            canvas.put(row - 1, 1, "limiter: turns all outputs down while a peak would clip", kGrey);
        }
        const std::string pause = values.canPause ? "  space pause" : "";
        canvas.put(
            row, 1,
            "q quit" + pause + "  b upmix  m mode  " +
                (size.columns >= kColumnsForAllKeys ? "up/down gain  left/right centre" : "arrows gain, centre") +
                "  r reset",
            kGrey);
    }

    const MeterValues& values;
    ScreenSize size;
    ScreenStyle style;
    bool hasHelp;
    std::size_t firstRow; ///< of groups and outputs
    Columns columns;
    Canvas canvas;
};

} // namespace

Canvas screenOf(const MeterValues& values, ScreenSize size, const ScreenStyle& style)
{
    if (size.columns >= kSmallestScreen.columns && size.rows >= kSmallestScreen.rows)
        return Screen(values, size, style).draw();
    Canvas canvas(size.columns, size.rows);
    canvas.put(0, 0, "tarn meter needs " + std::to_string(kSmallestScreen.columns) + " columns");
    canvas.put(1, 0, "and " + std::to_string(kSmallestScreen.rows) + " rows; q quits");
    return canvas;
}

} // namespace tarn
