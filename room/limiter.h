// A limiter that keeps the true peak of all outputs below full scale.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"
#include "room/peak_window.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// A look-ahead limiter with one gain for all outputs, so that the image does not move.
///
/// Delays by one block. In a block, the gain moves linearly between the gains at its two ends. Each of these is at most
/// what the blocks on both sides need, so every frame is below the ceiling. The gain stays at the smallest that the
/// last 20 ms needed, so that it does not move between the peaks of a bass, then returns to 1 with a time constant of
/// 100 ms. While it is 1, samples are exact.
class Limiter
{
public:
    static constexpr std::size_t kRows = PeakWindow::kRows;

    /// The highest true peak, full scale 1 (-1 dB). The interpolation filter of BS.1770 misses part of the highest
    /// frequencies: meters with a longer filter read up to 0.5 dB more in music (the tracks of docs/streams.md) and up
    /// to 1.8 dB more in white noise. Limiter.KeepsTheTruePeakByALongFilterWithinABound has bounds for noise.
    static constexpr double kCeiling = 0.89125094;

    /// fullScale  of the samples, a power of two
    Limiter(std::uint32_t sampleRateHz, double fullScale) noexcept;

    /// Clears the signal.
    void reset() noexcept;

    /// The rows that take the next block.
    UnroundedRow (&input() noexcept)[kRows] { return blocks[newest]; }

    /// advancePeakWindow of an instruction set, see room/true_peak.h.
    using AdvanceWindow = void (*)(PeakWindow& window, const UnroundedRow* rows, std::size_t count,
                                   double scale) noexcept;

    /// The window in which to find the peak of that block.
    ///
    /// count  of the rows in use
    const PeakWindow& peakWindowOf(std::size_t count, AdvanceWindow advance) noexcept
    {
        advance(window, blocks[newest], count, scale);
        return window;
    }

    /// Takes the block. Returns the one before, limited; its rows are then those of input.
    ///
    /// truePeak  of the window, full scale 1
    UnroundedRow (&process(std::size_t count, double truePeak) noexcept)[kRows];

    /// The smallest gain of the block that process returned last.
    double gain() const noexcept { return startGain < endGain ? startGain : endGain; }

private:
    static constexpr std::size_t kMaxHeldBlocks = 62; ///< 20 ms at 192 kHz, the delayed block and the next one

    double scale;   ///< makes full scale 1
    double release; ///< the part of the way back to 1 per block
    std::size_t heldBlocks;
    PeakWindow window;
    UnroundedRow blocks[2][kRows]{}; ///< the newest block and the one before
    std::size_t newest = 0;
    double needed[kMaxHeldBlocks]; ///< gains that the last heldBlocks blocks need, as a ring
    std::size_t oldest = 0;        ///< position in the ring
    double smallestNeeded = 1.0;   ///< in the ring
    double startGain = 1.0;
    double endGain = 1.0; ///< of the last output block
};

} // namespace zrk_tarn
