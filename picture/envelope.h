// Peak and mean square of every output over time.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/time_grid.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// Peak and energy of every output in columns of time, and over the whole recording.
class Envelope
{
public:
    /// firstFrames  length of a column at first
    Envelope(std::size_t channels, std::uint64_t firstFrames);

    /// Adds a sample of a channel, full scale 1. All samples of a frame come before those of the next.
    void add(std::uint64_t frame, std::size_t channel, float sample);

    /// Peaks and sums of squares, a value per channel.
    const TimeGrid& peaks() const noexcept { return peakGrid; }
    const TimeGrid& squares() const noexcept { return squareGrid; }

    /// The sum of squares of a channel.
    double energy(std::size_t channel) const noexcept { return energies[channel]; }

    /// The largest peak of all channels.
    float peak() const noexcept { return largest; }

private:
    TimeGrid peakGrid;
    TimeGrid squareGrid;
    std::vector<double> energies;
    float largest = 0.0f;
    float* peakNow = nullptr;    ///< values of the current column
    float* squareNow = nullptr;  ///< the same
    std::uint64_t columnEnd = 0; ///< the frame after it
};

} // namespace tarn
