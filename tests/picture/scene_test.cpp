// Where a picture shows the sources of the demo scene.
// SPDX-License-Identifier: MIT
#include "picture/panels.h"
#include "tests/picture/demo_picture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace tarn_picture
{

namespace
{

using tarn::PlaceEnergies;

/// The columns of a part of the scene, without its fades.
struct Columns
{
    std::size_t begin;
    std::size_t end;
};

Columns columnsOf(std::size_t part, const tarn::TimeGrid& grid)
{
    constexpr std::size_t kMarginFrames = 4096; // a window
    const std::size_t length = grid.framesPerColumn();
    return {(part * kPartDistance + kMarginFrames) / length,
            (part * kPartDistance + kPartFrames - kMarginFrames) / length};
}

/// Sums the energies of all cells of a part that fulfil a condition.
double energyWhere(const tarn::PictureAnalysis& analysis, std::size_t part,
                   const std::function<bool(const PlaceEnergies&)>& condition)
{
    const tarn::TimeGrid& grid = analysis.front();
    double sum = 0.0;
    const Columns columns = columnsOf(part, grid);
    for (std::size_t column = columns.begin; column < columns.end; ++column) {
        for (std::size_t row = 0; row < tarn::kSpectrumRows; ++row) {
            const float* const cell = grid.column(column) + row * tarn::kFrontValues;
            const PlaceEnergies energies{.left = cell[0], .centre = cell[1], .right = cell[2]};
            if (condition(energies)) sum += static_cast<double>(energies.sum());
        }
    }
    return sum;
}

double shareWhere(const tarn::PictureAnalysis& analysis, std::size_t part,
                  const std::function<bool(const PlaceEnergies&)>& condition)
{
    return energyWhere(analysis, part, condition) /
           energyWhere(analysis, part, [](const PlaceEnergies&) { return true; });
}

/// The direction with the most energy in a column.
double directionOf(const tarn::TimeGrid& grid, std::size_t column)
{
    const auto energyOf = [&](std::size_t row) {
        const float* const cell = grid.column(column) + row * tarn::kPlaceValues;
        return static_cast<double>(cell[0]) + static_cast<double>(cell[1]) + static_cast<double>(cell[2]);
    };
    std::size_t best = 0;
    for (std::size_t row = 0; row < tarn::kPlaceRows; ++row)
        if (energyOf(row) > energyOf(best)) best = row;
    return (static_cast<double>(best) - tarn::kPlaceMargin) / tarn::kPlaceSteps;
}

bool isCentre(const PlaceEnergies& energies)
{
    return energies.centre > 0.5f * energies.sum();
}

class Scene : public testing::Test
{
protected:
    static const tarn::PictureAnalysis& analysis()
    {
        static const auto scene = analysedScene("3.0");
        return scene->analysis();
    }
};

} // namespace

TEST_F(Scene, VoiceIsInCentreCells)
{
    // Energies as they are drawn, with the tilt.
    EXPECT_GE(shareWhere(analysis(), 0, isCentre), 0.95);
}

TEST_F(Scene, WideChordsAreAtTheSides)
{
    EXPECT_LT(shareWhere(analysis(), 2, isCentre), 0.05);
    const auto isLeft = [](const PlaceEnergies& energies) { return energies.left > 0.8f * energies.sum(); };
    const auto isRight = [](const PlaceEnergies& energies) { return energies.right > 0.8f * energies.sum(); };
    const auto isBoth = [](const PlaceEnergies& energies) {
        return std::min(energies.left, energies.right) > 0.25f * energies.sum();
    };
    EXPECT_GT(shareWhere(analysis(), 2, isLeft), 0.25);
    EXPECT_GT(shareWhere(analysis(), 2, isRight), 0.25);
    EXPECT_GT(shareWhere(analysis(), 2, isBoth), 0.02);
}

TEST_F(Scene, MaximumOfThePlacesFollowsTheMovingSource)
{
    const tarn::TimeGrid& grid = analysis().places();
    const Columns columns = columnsOf(1, grid);
    double sum = 0.0;
    for (std::size_t column = columns.begin; column < columns.end; ++column) {
        const double frame = (static_cast<double>(column) + 0.5) * static_cast<double>(grid.framesPerColumn());
        const double expected = (frame - kPartDistance) / kPartFrames;
        const double error = std::abs(directionOf(grid, column) - expected);
        EXPECT_LE(error, 0.05) << frame / kSceneRate << " s";
        sum += error;
    }
    const auto count = static_cast<double>(columns.end - columns.begin);
    ASSERT_GT(count, 100.0);
    EXPECT_LT(sum / count, 0.02);
}

TEST_F(Scene, SharesOfTheEnergyAreThoseOfTheSamples)
{
    const tarn::EnergyShares shares = analysis().shares();
    EXPECT_NEAR(shares.left + shares.centre + shares.right, 1.0, 1e-9);
    EXPECT_EQ(shares.behind, 0.0);
    EXPECT_GT(shares.centre, 0.4);
    EXPECT_NEAR(shares.left, shares.right, 0.02);
    EXPECT_GT(analysedScene("5.1")->analysis().shares().behind, 0.05);
}

} // namespace tarn_picture
