// The state of the stereo analysis, and its variants per instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>

namespace tarn
{

/// State of StereoAnalysis: filter coefficients, filter states and sums.
struct StereoRecord
{
    static constexpr int kBands = 10;
    static constexpr int kSections = 3; ///< cascaded second-order sections

    /// Sums of squares, full scale 1, in the order left, right, left + right, left - right.
    static constexpr int kSums = 4;

    double gain[kSections][kBands];
    double a1[kSections][kBands];
    double a2[kSections][kBands];
    double state1[2][kSections][kBands]; ///< of left and right, negated
    double state2[2][kSections][kBands];
    double bandSums[kSums][kBands];

    double highPassPole; ///< of a first-order high-pass
    double previous[2];  ///< its previous input, left and right
    double highPass[2];  ///< its output
    double totalSums[kSums];
    double largest; ///< peak magnitude
};

/// Processes frames: updates the sums of the bands, the sums of the whole signal after the high-pass, and the peak.
///
/// Every instruction set gives the same bits: bands are lanes, and every sum adds frames in ascending order.
///
/// stereo  [2 * frames]  interleaved, full scale 1
using MeasureStereo = void (*)(StereoRecord& record, const double* stereo, std::size_t frames) noexcept;

/// A variant of MeasureStereo for one instruction set.
struct MeasureStereoVariant
{
    const char* instructionSet;
    MeasureStereo measure;
};

/// The variants that this processor can run, the fastest last.
std::span<const MeasureStereoVariant> usableVariants() noexcept;

} // namespace tarn
