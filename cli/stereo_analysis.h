#pragma once

#include <array>
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
    double peak() const noexcept { return largest; }
    const StereoMeasure& overall() const noexcept { return total; }

    /// Whether every sample of the left is that of the right.
    bool identical() const noexcept { return same; }

    /// The bands that fit below half the sample rate, lowest first.
    std::vector<BandMeasure> bands() const;

private:
    static constexpr std::size_t kBands = 10;
    static constexpr std::size_t kLanes = 2 * kBands; ///< left of every band, then right
    static constexpr std::size_t kSections = 3;

    void designBand(std::size_t band, double lowHz, double highHz, double sampleRateHz);
    void measureOverall(double left, double right) noexcept;
    void forgetTraces() noexcept;

    using Lanes = std::array<double, kLanes>;

    std::size_t used = 0; ///< bands
    std::array<Lanes, kSections> gain{};
    std::array<Lanes, kSections> a1{};
    std::array<Lanes, kSections> a2{};
    std::array<Lanes, kSections> state1{};
    std::array<Lanes, kSections> state2{};
    std::array<std::array<double, kBands>, 4> sums{}; ///< left, right, mid, side

    bool begun = false;               ///< a frame has come
    double offsetKept;                ///< of the high-pass, per sample
    std::array<double, 2> before{};   ///< its input at the last sample, left and right
    std::array<double, 2> highPass{}; ///< its output
    StereoMeasure total;
    double largest = 0.0;
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

/// The name of a kind as scripts see it, what upmixing it gains in one word, and in a sentence without its full stop.
struct KindText
{
    const char* name;
    const char* gain; ///< yes, little or no
    const char* sentence;
};

const KindText& textOf(StereoKind kind) noexcept;

} // namespace tarn
