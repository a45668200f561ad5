// The parts of a picture, from title to time axis.
// SPDX-License-Identifier: MIT
#include "picture/drawing.h"

#include "picture/canvas.h"
#include "picture/time_axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace tarn
{

namespace
{

/// Colours of everything but sounds.
struct Ink
{
    std::uint32_t background;
    std::uint32_t lane;
    std::uint32_t line;
    std::uint32_t title;
    std::uint32_t label;
};

constexpr Ink kDarkInk{
    .background = 0x0d0f12, .lane = 0x14171b, .line = 0x2b3036, .title = 0xf1f2f4, .label = 0xa3a9b1};
constexpr Ink kLightInk{
    .background = 0xffffff, .lane = 0xf4f5f7, .line = 0xc9cdd2, .title = 0x14171b, .label = 0x50565e};

/// The place of an output as energies, for its colour.
PlaceEnergies energiesOf(ChannelPlace place) noexcept
{
    switch (place) {
    case ChannelPlace::Left:
    case ChannelPlace::LeftBehind:
        return {.left = 1.0f};
    case ChannelPlace::Right:
    case ChannelPlace::RightBehind:
        return {.right = 1.0f};
    case ChannelPlace::Centre:
        return {.centre = 1.0f};
    case ChannelPlace::Bass:
        break;
    }
    return {.left = 1.0f, .right = 1.0f};
}

/// Draws one picture.
class Drawing
{
public:
    Drawing(const PictureAnalysis& pictureAnalysis, const PictureStyle& pictureStyle)
        : analysis(pictureAnalysis),
          style(pictureStyle),
          ink(style.theme == Theme::Dark ? kDarkInk : kLightInk),
          colours(style.theme),
          page(pageOf(style.size, analysis.source().channels.size(), analysis.hasBehind())),
          canvas(style.format, style.size)
    {}

    std::string draw()
    {
        canvas.fill({0, 0, page.size.width, page.size.height}, ink.background);
        drawTitle();
        drawKey();
        drawSpectrograms();
        drawPlaces();
        for (std::size_t lane = 0; lane < page.lanes.size(); ++lane) drawLane(lane);
        drawTimeAxis();
        return canvas.finish();
    }

private:
    TextStyle label(TextAnchor anchor) const noexcept
    {
        return {.size = page.text, .colour = ink.label, .isBold = false, .anchor = anchor};
    }

    /// The baseline of a label whose middle is at a height.
    double baselineAt(double middle) const noexcept { return middle + 0.36 * page.text; }

    double seconds() const noexcept { return static_cast<double>(analysis.frames()) / analysis.source().sampleRate; }

    void drawTitle();
    void drawKey();
    void drawSpectrograms();
    void drawFrequencyLabels(const PixelArea& area);
    void drawPanelName(const PixelArea& area, const std::string& name);
    void drawPlaces();
    void drawLane(std::size_t index);
    void drawTimeAxis();
    void drawPanel(const PixelArea& area, const PixelImage& image);
    std::string figures() const;

    const PictureAnalysis& analysis;
    const PictureStyle& style;
    const Ink& ink;
    PlaceColours colours;
    Page page;
    Canvas canvas;
};

/// A length as minutes, seconds and tenths: "0:12.8".
std::string lengthText(double seconds)
{
    const double tenths = std::floor(seconds * 10.0 + 0.5);
    const double minutes = std::floor(tenths / 600.0);
    const double rest = (tenths - 600.0 * minutes) / 10.0;
    std::array<char, 64> text{};
    if (minutes >= 60.0) {
        const double hours = std::floor(minutes / 60.0);
        std::snprintf(text.data(), text.size(), "%.0f:%02.0f:%04.1f", hours, minutes - 60.0 * hours, rest);
    } else {
        std::snprintf(text.data(), text.size(), "%.0f:%04.1f", minutes, rest);
    }
    return text.data();
}

/// Length, rate, layout, the shares of the energy, and the peak.
std::string Drawing::figures() const
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.4g kHz", analysis.source().sampleRate / 1000.0);
    std::string all = lengthText(seconds()) + " at " + text.data() + "  \u00b7  " + style.layout;
    const EnergyShares shares = analysis.shares();
    if (shares.left + shares.centre + shares.right + shares.behind == 0.0) return all + "  \u00b7  silence";
    const auto [left, centre, right, behind] = percentagesOf(shares);
    all += "  \u00b7  energy: left " + std::to_string(left);
    if (analysis.hasCentre()) all += " %, centre " + std::to_string(centre);
    all += " %, right " + std::to_string(right);
    if (analysis.hasBehind()) all += " %, surround " + std::to_string(behind);
    const auto peak = static_cast<double>(analysis.envelope().peak());
    const double decibels = 20.0 * std::log10(peak);
    std::snprintf(text.data(), text.size(), " %%  \u00b7  peak %s%.1f dB", decibels < -0.05 ? "\u2212" : "",
                  std::abs(decibels));
    return all + text.data();
}

void Drawing::drawTitle()
{
    const double left = page.front.x;
    const double levelLabels = 4.2 * page.text;
    const double width = page.levelKey.x - levelLabels - left;
    canvas.write(style.title, left, page.titleLine,
                 {.size = page.titleText, .colour = ink.title, .isBold = true, .maxWidth = width});
    TextStyle plain = label(TextAnchor::Left);
    plain.maxWidth = width;
    canvas.write(figures(), left, page.figuresLine, plain);
}

/// The places from left to right, with the centre's share growing upwards; and the levels.
void Drawing::drawKey()
{
    PixelImage image{.width = page.key.width, .height = page.key.height};
    PixelImage levels{.width = page.levelKey.width, .height = page.levelKey.height};
    constexpr float kKeyLevel = 0.9f;
    for (int y = 0; y < image.height; ++y) {
        const float up = 1.0f - (static_cast<float>(y) + 0.5f) / static_cast<float>(image.height);
        const float centre = analysis.hasCentre() ? up : 0.0f;
        for (int x = 0; x < image.width; ++x) {
            const float right = (static_cast<float>(x) + 0.5f) / static_cast<float>(image.width);
            image.pixels.push_back(colours.pixelOf(
                {.left = (1.0f - centre) * (1.0f - right), .centre = centre, .right = (1.0f - centre) * right},
                kKeyLevel));
        }
        const PlaceEnergies white{.centre = 1.0f};
        for (int x = 0; x < levels.width; ++x) levels.pixels.push_back(colours.pixelOf(white, shownLevel(up)));
    }
    drawPanel(page.key, image);
    drawPanel(page.levelKey, levels);

    const double below = page.key.bottom() + 1.35 * page.text;
    canvas.write("left", page.key.x, below, label(TextAnchor::Left));
    canvas.write("both", page.key.x + 0.5 * page.key.width, below, label(TextAnchor::Middle));
    canvas.write("right", page.key.right(), below, label(TextAnchor::Right));
    if (analysis.hasCentre()) {
        TextStyle inside = label(TextAnchor::Middle);
        inside.colour = ink.background;
        canvas.write("centre", page.key.x + 0.5 * page.key.width, page.key.y + 1.15 * page.text, inside);
    }
    const double besides = page.levelKey.x - 0.45 * page.text;
    canvas.write("loudest", besides, page.levelKey.y + 0.75 * page.text, label(TextAnchor::Right));
    canvas.write("\u221262 dB", besides, page.levelKey.bottom(), label(TextAnchor::Right));
}

void Drawing::drawPanel(const PixelArea& area, const PixelImage& image)
{
    canvas.draw(image, area.x, area.y);
    if (style.theme == Theme::Light) canvas.outline(area, ink.line);
}

void Drawing::drawSpectrograms()
{
    drawPanel(page.front, frontSpectrogram(analysis, colours, page.front.width, page.front.height));
    drawFrequencyLabels(page.front);
    if (!analysis.hasBehind()) return;
    drawPanel(page.behind, behindSpectrogram(analysis, colours, page.behind.width, page.behind.height));
    drawFrequencyLabels(page.behind);
    drawPanelName(page.front, "front");
    drawPanelName(page.behind, "surround");
}

/// Labels frequencies, the most important first. Leaves out those without room.
void Drawing::drawFrequencyLabels(const PixelArea& area)
{
    struct Mark
    {
        double frequencyHz;
        const char* text;
    };
    constexpr std::array kMarks{Mark{1000, "1 kHz"},   Mark{100, "100 Hz"},   Mark{5000, "5 kHz"},
                                Mark{10000, "10 kHz"}, Mark{16000, "16 kHz"}, Mark{500, "500 Hz"},
                                Mark{2000, "2 kHz"},   Mark{200, "200 Hz"},   Mark{50, "50 Hz"}};
    std::vector<double> taken;
    for (const Mark& mark : kMarks) {
        const double y = area.bottom() - axisPosition(mark.frequencyHz) * area.height;
        const bool isFree = std::all_of(taken.begin(), taken.end(),
                                        [&](double other) { return std::abs(other - y) >= 1.25 * page.text; });
        if (!isFree || y < area.y + 0.3 * page.text || y > area.bottom() - 0.3 * page.text) continue;
        taken.push_back(y);
        canvas.write(mark.text, area.x - 0.6 * page.text, baselineAt(y), label(TextAnchor::Right));
        canvas.fill({area.x - 4, static_cast<int>(std::lround(y)), 4, 1}, ink.line);
    }
}

/// Writes a name into the upper left corner of a panel.
void Drawing::drawPanelName(const PixelArea& area, const std::string& name)
{
    TextStyle text = label(TextAnchor::Left);
    text.colour = ink.title;
    const int height = static_cast<int>(std::lround(1.7 * page.text));
    const int width = static_cast<int>(std::lround(canvas.widthOf(name, text) + 1.1 * page.text));
    canvas.fill({area.x, area.y, width, height}, ink.background, 0.72);
    canvas.write(name, area.x + 0.55 * page.text, baselineAt(area.y + 0.5 * height), text);
}

void Drawing::drawPlaces()
{
    const PixelArea& area = page.places;
    drawPanel(area, placePanel(analysis, colours, area.width, area.height));
    const double x = area.x - 0.6 * page.text;
    canvas.write("left", x, baselineAt(area.y + 0.5 * page.text), label(TextAnchor::Right));
    if (area.height > 3.4 * page.text)
        canvas.write("centre", x, baselineAt(area.y + 0.5 * area.height), label(TextAnchor::Right));
    canvas.write("right", x, baselineAt(area.bottom() - 0.5 * page.text), label(TextAnchor::Right));
}

/// Peak and RMS of an output, both relative to the largest peak of all outputs.
void Drawing::drawLane(std::size_t index)
{
    const PixelArea& area = page.lanes[index];
    const PictureChannel& channel = analysis.source().channels[index];
    const Envelope& envelope = analysis.envelope();
    const double middle = area.y + 0.5 * area.height;
    canvas.fill(area, ink.lane);
    canvas.fill({area.x, static_cast<int>(middle), area.width, 1}, ink.line);
    canvas.write(channel.name, area.x - 0.6 * page.text, baselineAt(middle), label(TextAnchor::Right));
    if (envelope.peak() == 0.0f) return;

    const double scale = 0.48 * area.height / static_cast<double>(envelope.peak());
    const auto frames = static_cast<double>(analysis.frames());
    const auto length = static_cast<double>(envelope.peaks().framesPerColumn());
    std::vector<double> peaks;
    std::vector<double> means;
    for (int x = 0; x < area.width; ++x) {
        const double begin = frames * x / area.width / length;
        const double end = frames * (x + 1) / area.width / length;
        const std::size_t last = envelope.peaks().columns() - 1;
        const std::size_t first = std::min(static_cast<std::size_t>(begin), last);
        const std::size_t until = std::min(std::max(first, static_cast<std::size_t>(std::ceil(end)) - 1), last);
        double peak = 0.0;
        double squares = 0.0;
        for (std::size_t column = first; column <= until; ++column) {
            peak = std::max(peak, static_cast<double>(envelope.peaks().column(column)[index]));
            squares += static_cast<double>(envelope.squares().column(column)[index]);
        }
        const double span =
            std::min(static_cast<double>(until + 1) * length, frames) - static_cast<double>(first) * length;
        peaks.push_back(scale * peak);
        means.push_back(scale * std::sqrt(squares / span));
    }
    canvas.drawBand(area.x, middle, peaks, colours.pixelOf(energiesOf(channel.place), 0.55f));
    canvas.drawBand(area.x, middle, means, colours.pixelOf(energiesOf(channel.place), 0.97f));
}

void Drawing::drawTimeAxis()
{
    const PixelArea& lowest = page.lanes.back();
    const double begin = style.startSeconds;
    const double perSecond = lowest.width / seconds();
    for (const TimeMark& mark : timeMarks(begin, begin + seconds(), lowest.width / (6.5 * page.text))) {
        const double x = lowest.x + (mark.seconds - begin) * perSecond;
        canvas.fill({static_cast<int>(std::lround(x)), lowest.bottom(), 1, 5}, ink.line);
        canvas.write(mark.label, x, page.timeLine, label(TextAnchor::Middle));
    }
}

} // namespace

std::string drawPicture(const PictureAnalysis& analysis, const PictureStyle& style)
{
    return Drawing(analysis, style).draw();
}

} // namespace tarn
