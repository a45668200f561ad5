#pragma once

#include <cstddef>
#include <span>

namespace tarn
{

/// What StereoAnalysis knows of a recording: filters and their states, and the figures so far.
struct StereoRecord
{
    static constexpr int kBands = 10;
    static constexpr int kSections = 3; ///< of two poles each, one after the other

    /// Sums of squares, full scale 1, in the order left, right, left + right, left - right.
    static constexpr int kSums = 4;

    double gain[kSections][kBands];
    double a1[kSections][kBands];
    double a2[kSections][kBands];
    double state1[2][kSections][kBands]; ///< of left and of right, with the sign changed
    double state2[2][kSections][kBands];
    double bandSums[kSums][kBands];

    double offsetKept;  ///< of a high-pass of order 1, per sample
    double before[2];   ///< its input at the last sample, left and right
    double highPass[2]; ///< its output
    double totalSums[kSums];
    double largest; ///< magnitude
};

/// Takes up frames: the sums of the bands, the sums of all behind the high-pass, and the largest magnitude.
///
/// The same figures to the last bit with every instruction set: bands are lanes, and every sum is over ascending
/// frames.
///
/// stereo  [2 * frames]  interleaved, full scale 1
using MeasureStereo = void (*)(StereoRecord& record, const double* stereo, std::size_t frames) noexcept;

/// For an instruction set that this processor has.
struct StereoMeasuring
{
    const char* instructionSet;
    MeasureStereo measure;
};

/// Those that this processor can run, the fastest last.
std::span<const StereoMeasuring> usableMeasuring() noexcept;

} // namespace tarn
