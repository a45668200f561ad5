// Scales tables over time to pixels and colours them.
// SPDX-License-Identifier: MIT
#include "picture/panels.h"

#include "picture/levels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace tarn
{

namespace
{

constexpr double kSpectrumBrightest = 0.005; ///< share of the cells at full lightness
constexpr double kPlaceBrightest = 0.01;
constexpr float kQuietestBrightDb = -90.0f; ///< quieter recordings stay dark

/// A table over time, and how its rows become pixels.
struct Cells
{
    const TimeGrid& grid;
    std::uint64_t frames; ///< of the recording
    std::size_t rows;     ///< of each column
    std::size_t values;   ///< of each row
    bool isUpward;        ///< the first row is at the bottom
};

/// Part of a pixel that lies in a cell.
struct Share
{
    std::size_t index;
    float weight;
};

/// The cells under each pixel of an axis, with weights of sum 1. A pixel smaller than a cell is interpolated.
///
/// cells  length of the axis in cells
/// count  number of cells
std::vector<std::vector<Share>> sharesOf(int pixels, double cells, std::size_t count)
{
    std::vector<std::vector<Share>> all(static_cast<std::size_t>(pixels));
    const double size = cells / pixels;
    const double half = 0.5 * std::max(1.0, size);
    for (int pixel = 0; pixel < pixels; ++pixel) {
        const double middle = (pixel + 0.5) * size;
        const double low = std::max(0.0, middle - half);
        const double high = std::min(static_cast<double>(count), middle + half);
        auto& shares = all[static_cast<std::size_t>(pixel)];
        for (auto cell = static_cast<std::size_t>(low); cell < count && static_cast<double>(cell) < high; ++cell) {
            const double begin = std::max(low, static_cast<double>(cell));
            const double end = std::min(high, static_cast<double>(cell + 1));
            shares.push_back({cell, static_cast<float>((end - begin) / (high - low))});
        }
    }
    return all;
}

/// The mean energies of a column of pixels.
std::vector<float> meanColumn(const Cells& cells, const std::vector<Share>& shares)
{
    const std::size_t count = cells.rows * cells.values;
    std::vector<float> mean(count);
    for (const Share& share : shares) {
        const float* const column = cells.grid.column(share.index);
        if (column[count] == 0.0f) continue;
        const float weight = share.weight / column[count];
        for (std::size_t i = 0; i < count; ++i) mean[i] += weight * column[i];
    }
    return mean;
}

/// Energies of left, centre and right in a row.
PlaceEnergies energiesOf(const float* values, std::size_t count) noexcept
{
    if (count == kBehindValues) return {.left = values[0], .right = values[1]};
    return {.left = values[0], .centre = values[1], .right = values[2]};
}

/// The level that a share of the cells with sound exceeds.
float brightestOf(const Cells& cells, double share)
{
    LevelHistogram levels;
    const std::size_t count = cells.rows * cells.values;
    for (std::size_t column = 0; column < cells.grid.columns(); ++column) {
        const float* const values = cells.grid.column(column);
        const float spectra = std::max(1.0f, values[count]);
        for (std::size_t row = 0; row < cells.rows; ++row)
            levels.add(energiesOf(values + row * cells.values, cells.values).sum() / spectra);
    }
    return std::max(kQuietestBrightDb, levels.exceededBy(share));
}

/// Colours the cells.
PixelImage painted(const Cells& cells, const PlaceColours& colours, int width, int height, float brightest, float range)
{
    PixelImage image{.width = width, .height = height};
    image.pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const double columns = static_cast<double>(cells.frames) / static_cast<double>(cells.grid.framesPerColumn());
    const auto times = sharesOf(width, columns, cells.grid.columns());
    const auto heights = sharesOf(height, static_cast<double>(cells.rows), cells.rows);
    for (std::size_t x = 0; x < times.size(); ++x) {
        const std::vector<float> mean = meanColumn(cells, times[x]);
        for (std::size_t y = 0; y < heights.size(); ++y) {
            PlaceEnergies energies;
            for (const Share& share : heights[cells.isUpward ? heights.size() - 1 - y : y]) {
                const PlaceEnergies part = energiesOf(mean.data() + share.index * cells.values, cells.values);
                energies.left += share.weight * part.left;
                energies.centre += share.weight * part.centre;
                energies.right += share.weight * part.right;
            }
            const float level = std::clamp(1.0f + (levelOf(energies.sum()) - brightest) / range, 0.0f, 1.0f);
            image.pixels[y * static_cast<std::size_t>(width) + x] = colours.pixelOf(energies, shownLevel(level));
        }
    }
    return image;
}

Cells frontOf(const PictureAnalysis& analysis)
{
    return {analysis.front(), analysis.frames(), kSpectrumRows, kFrontValues, true};
}

} // namespace

float shownLevel(float level) noexcept
{
    return level * std::sqrt(level);
}

PixelImage frontSpectrogram(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height)
{
    const Cells cells = frontOf(analysis);
    return painted(cells, colours, width, height, brightestOf(cells, kSpectrumBrightest), kSpectrumRangeDb);
}

PixelImage behindSpectrogram(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height)
{
    const Cells cells{analysis.behind(), analysis.frames(), kSpectrumRows, kBehindValues, true};
    const float brightest = brightestOf(frontOf(analysis), kSpectrumBrightest);
    return painted(cells, colours, width, height, brightest, kSpectrumRangeDb);
}

PixelImage placePanel(const PictureAnalysis& analysis, const PlaceColours& colours, int width, int height)
{
    const Cells cells{analysis.places(), analysis.frames(), kPlaceRows, kPlaceValues, false};
    return painted(cells, colours, width, height, brightestOf(cells, kPlaceBrightest), kPlaceRangeDb);
}

} // namespace tarn
