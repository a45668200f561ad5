// Measures samples into columns of time.
// SPDX-License-Identifier: MIT
#include "picture/envelope.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

Envelope::Envelope(std::size_t channels, std::uint64_t firstFrames)
    : peakGrid(channels, firstFrames, TimeGrid::Merge::Maximum),
      squareGrid(channels, firstFrames, TimeGrid::Merge::Sum),
      energies(channels)
{}

void Envelope::add(std::uint64_t frame, std::size_t channel, float sample)
{
    if (frame >= columnEnd) {
        const std::uint64_t length = peakGrid.fit(frame);
        squareGrid.fit(frame);
        peakNow = peakGrid.valuesAt(frame);
        squareNow = squareGrid.valuesAt(frame);
        columnEnd = (frame / length + 1) * length;
    }
    const float peak = std::abs(sample);
    peakNow[channel] = std::max(peakNow[channel], peak);
    squareNow[channel] += sample * sample;
    energies[channel] += static_cast<double>(sample) * static_cast<double>(sample);
    largest = std::max(largest, peak);
}

} // namespace tarn
