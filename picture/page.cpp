// Divides the height of a picture between its panels.
// SPDX-License-Identifier: MIT
#include "picture/page.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

namespace
{

constexpr double kSmallestText = 10.5;
constexpr double kTextPerWidth = 1.0 / 116.0;
constexpr double kTextPerHeight = 1.0 / 48.0;

// Parts of the height that the panels share.
constexpr double kFrontPart = 52.0;
constexpr double kBehindPart = 20.0;
constexpr double kPlacesPart = 14.0;
constexpr double kLanePart = 7.0;

int rounded(double x) noexcept
{
    return static_cast<int>(std::lround(x));
}

} // namespace

PictureSize defaultSize(std::size_t lanes, bool hasBehind) noexcept
{
    constexpr int kLaneHeight = 72;
    constexpr int kOtherHeight = 824;
    constexpr int kBehindHeight = 180;
    return {.width = 1600,
            .height = kOtherHeight + static_cast<int>(lanes) * kLaneHeight + (hasBehind ? kBehindHeight : 0)};
}

Page pageOf(PictureSize size, std::size_t lanes, bool hasBehind)
{
    Page page{.size = size};
    page.text = std::max(kSmallestText, std::min(size.width * kTextPerWidth, size.height * kTextPerHeight));
    page.titleText = 1.55 * page.text;
    const double unit = page.text;
    const int left = rounded(5.2 * unit);
    const int width = size.width - left - rounded(2.4 * unit);
    page.titleLine = std::round(2.9 * unit);
    page.figuresLine = std::round(4.8 * unit);
    page.timeLine = std::round(size.height - 1.5 * unit);

    const int keyWidth = rounded(13.0 * unit);
    const int keyTop = rounded(1.5 * unit);
    const int keyHeight = rounded(2.4 * unit);
    page.key = {left + width - keyWidth, keyTop, keyWidth, keyHeight};
    const int levelWidth = rounded(0.9 * unit);
    page.levelKey = {page.key.x - rounded(0.6 * unit) - levelWidth, keyTop, levelWidth, keyHeight};

    const int gap = rounded(0.85 * unit);
    const int laneGap = std::max(2, rounded(0.35 * unit));
    const int top = rounded(6.4 * unit);
    const int bottom = rounded(size.height - 3.0 * unit);
    const int gaps = gap * (hasBehind ? 3 : 2) + laneGap * (static_cast<int>(lanes) - 1);
    const double parts =
        kFrontPart + (hasBehind ? kBehindPart : 0.0) + kPlacesPart + kLanePart * static_cast<double>(lanes);
    const double perPart = (bottom - top - gaps) / parts;

    int y = top;
    const auto next = [&](int height, int gapBelow) {
        const PixelArea area{left, y, width, height};
        y += height + gapBelow;
        return area;
    };
    const int laneHeight = rounded(kLanePart * perPart);
    const int placesHeight = rounded(kPlacesPart * perPart);
    const int behindHeight = hasBehind ? rounded(kBehindPart * perPart) : 0;
    const int others = laneHeight * static_cast<int>(lanes) + placesHeight + behindHeight + gaps;
    page.front = next(bottom - top - others, gap);
    if (hasBehind) page.behind = next(behindHeight, gap);
    page.places = next(placesHeight, gap);
    for (std::size_t lane = 0; lane < lanes; ++lane) page.lanes.push_back(next(laneHeight, laneGap));
    return page;
}

} // namespace tarn
