// Measures how left and right are related and classifies a recording.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/stereo_record.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Energies of a band or of the whole signal: sums of squares, full scale 1.
struct StereoMeasure
{
    double left = 0.0;
    double right = 0.0;
    double mid = 0.0;  ///< (left + right) / sqrt 2, so that mid and side have the energy of left and right
    double side = 0.0; ///< (left - right) / sqrt 2

    double energy() const noexcept { return left + right; }

    /// Correlation: -1 opposite to 1 identical; none if a side is silent.
    std::optional<double> correlation() const noexcept;

    /// Level of side against mid, and of left against right, in dB; infinite if one of the two is silent, NaN if both
    /// are.
    double sideToMidDb() const noexcept;
    double leftToRightDb() const noexcept;
};

/// Measurement of an octave band.
struct BandMeasure
{
    double centreHz;
    StereoMeasure measure;
};

/// Kinds of stereo recordings, as they matter for upmixing.
enum class StereoKind
{
    Silence,
    OneSided,
    DualMono,
    OppositePhase,
    PannedMono,
    Independent,
    Stereo
};

/// Measures stereo of any length in constant memory: overall and in octave bands.
///
/// The bands are Butterworth band-passes of order 6, 3 dB down at the edges of the octave. Only the peak includes a DC
/// offset.
class StereoAnalysis
{
public:
    explicit StereoAnalysis(std::uint32_t sampleRateHz);

    /// Adds frames of interleaved stereo, full scale 1.
    void push(const double* stereo, std::size_t frames) noexcept;

    std::uint64_t frames() const noexcept { return frameCount; }
    double peak() const noexcept { return record.largest; }
    StereoMeasure overall() const noexcept;

    /// Whether all samples of left and right are equal.
    bool identical() const noexcept { return same; }

    /// The bands that fit below half the sample rate, lowest first.
    std::vector<BandMeasure> bands() const;

private:
    void designBand(std::size_t band, double lowHz, double highHz, double sampleRateHz);
    void flushSubnormals() noexcept;

    MeasureStereo measure;
    std::size_t used = 0; ///< number of bands
    StereoRecord record{};
    bool same = true;
    std::uint64_t frameCount = 0;
};

// Thresholds of the kinds.
inline constexpr double kSilencePeakDb = -90.0;       ///< peak at most: silence
inline constexpr double kOneSidedDb = 40.0;           ///< level difference at least: one-sided
inline constexpr double kDualMonoSideDb = -40.0;      ///< side against mid at most: dual mono
inline constexpr double kCentredDb = 1.0;             ///< level difference below: centred
inline constexpr double kOppositeCorrelation = -0.5;  ///< at most: opposite phase
inline constexpr double kOneSourceCorrelation = 0.99; ///< at least: one source, panned or centred
inline constexpr double kSharedCorrelation = 0.2;     ///< at least, overall or in a band: a shared signal
inline constexpr double kBandShare = 0.05;            ///< minimum share of the energy for a band to count

/// Classifies a recording.
StereoKind kindOf(const StereoAnalysis& analysis);

/// Whether a band has enough energy to count and opposite phase.
bool isOppositeBand(const BandMeasure& band, const StereoMeasure& overall) noexcept;

/// The texts for a kind.
struct KindText
{
    const char* name;     ///< in JSON
    const char* gain;     ///< benefit of upmixing: yes, little or no
    const char* brief;    ///< for a line of the list
    const char* sentence; ///< without full stop
};

const KindText& textOf(StereoKind kind) noexcept;

} // namespace tarn
