#pragma once

#include "cli/stereo_record.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// How left and right go together, in a band or in all: sums of squares, full scale 1.
struct StereoMeasure
{
    double left = 0.0;
    double right = 0.0;
    double mid = 0.0;  ///< (left + right) / sqrt 2, so that mid and side have the energy of left and right
    double side = 0.0; ///< (left - right) / sqrt 2

    double energy() const noexcept { return left + right; }

    /// -1 opposite to 1 alike; nothing where a side is silent.
    std::optional<double> correlation() const noexcept;

    /// Level of side against mid, and of left against right, in dB; infinite where one of the two is silent, not a
    /// number where both are.
    double sideToMidDb() const noexcept;
    double leftToRightDb() const noexcept;
};

/// An octave band.
struct BandMeasure
{
    double centreHz;
    StereoMeasure measure;
};

/// What a stereo recording is to an upmixer.
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
/// The bands are Butterworth band-passes of order 6, 3 dB down at the borders of the octave. A constant offset, which
/// is no sound, is in no figure but the peak.
class StereoAnalysis
{
public:
    explicit StereoAnalysis(std::uint32_t sampleRateHz);

    /// Takes up frames of interleaved stereo, full scale 1.
    void push(const double* stereo, std::size_t frames) noexcept;

    std::uint64_t frames() const noexcept { return taken; }
    double peak() const noexcept { return record.largest; }
    StereoMeasure overall() const noexcept;

    /// Whether every sample of the left is that of the right.
    bool identical() const noexcept { return same; }

    /// The bands that fit below half the sample rate, lowest first.
    std::vector<BandMeasure> bands() const;

private:
    void designBand(std::size_t band, double lowHz, double highHz, double sampleRateHz);
    void forgetTraces() noexcept;

    MeasureStereo measure;
    std::size_t used = 0; ///< bands
    StereoRecord record{};
    bool same = true;
    std::uint64_t taken = 0;
};

// What the kinds are told apart by.
inline constexpr double kSilencePeakDb = -90.0;       ///< no sample above it: silence
inline constexpr double kOneSidedDb = 40.0;           ///< one side louder by so much: one-sided
inline constexpr double kDualMonoSideDb = -40.0;      ///< side against mid, no more: dual mono
inline constexpr double kCentredDb = 1.0;             ///< left against right, less either way: in the middle
inline constexpr double kOppositeCorrelation = -0.5;  ///< no more: opposite phase
inline constexpr double kOneSourceCorrelation = 0.99; ///< no less: one source, panned or in the middle
inline constexpr double kSharedCorrelation = 0.2;     ///< no less, overall or in a band: something is shared
inline constexpr double kBandShare = 0.05;            ///< of the energy, for a band to count

/// Tells the kinds apart.
StereoKind kindOf(const StereoAnalysis& analysis);

/// Whether a band holds enough to count, with left and right opposite.
bool isOppositeBand(const BandMeasure& band, const StereoMeasure& overall) noexcept;

/// A kind in words.
struct KindText
{
    const char* name;     ///< as scripts see it
    const char* gain;     ///< what upmixing gains: yes, little or no
    const char* brief;    ///< for a line of a table
    const char* sentence; ///< without its full stop
};

const KindText& textOf(StereoKind kind) noexcept;

} // namespace tarn
