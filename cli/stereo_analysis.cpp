#include "cli/stereo_analysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

namespace tarn
{

namespace
{

using Complex = std::complex<double>;

constexpr double kOffsetHz = 5.0; ///< what is lower counts as a constant offset
constexpr double kLowestCentreHz = 31.25;
constexpr double kUsableShare = 0.49;  ///< of the sample rate: no border of a band lies higher
constexpr double kHighestCentre = 0.4; ///< of the sample rate

/// Decibels of a ratio of energies.
double energyRatioDb(double part, double other) noexcept
{
    if (part == 0.0 && other == 0.0) return std::numeric_limits<double>::quiet_NaN();
    if (part == 0.0) return -std::numeric_limits<double>::infinity();
    if (other == 0.0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(part / other);
}

/// The middle of a band, octave by octave.
double centreHz(std::size_t band)
{
    return std::ldexp(kLowestCentreHz, static_cast<int>(band));
}

constexpr std::array<KindText, 7> kTexts{{
    {"silence", "no", "silence: there is nothing to upmix"},
    {"one-sided", "no", "one side only: an upmix leaves it there, so it gains nothing"},
    {"dual-mono", "no", "dual mono: both sides are as good as the same, so an upmix moves all of it to the centre"},
    {"opposite-phase", "no",
     "opposite phase: one side looks inverted, and the centre would stay empty; invert it before upmixing"},
    {"panned-mono", "little", "one source at one place off the centre: an upmix puts it between a side and the centre"},
    {"independent", "little",
     "left and right have little in common: an upmix finds hardly anything to bring to the centre"},
    {"stereo", "yes", "stereo with something in common: worth upmixing"},
}};

} // namespace

std::optional<double> StereoMeasure::correlation() const noexcept
{
    // One root of the product is exact where the sides are alike, which two roots are not.
    const double product = left * right;
    if (product == 0.0) return std::nullopt;
    return std::clamp((mid - side) / 2.0 / std::sqrt(product), -1.0, 1.0);
}

double StereoMeasure::sideToMidDb() const noexcept
{
    return energyRatioDb(side, mid);
}

double StereoMeasure::leftToRightDb() const noexcept
{
    return energyRatioDb(left, right);
}

StereoAnalysis::StereoAnalysis(std::uint32_t sampleRateHz)
    : offsetKept(std::exp(-2.0 * std::numbers::pi * kOffsetHz / sampleRateHz))
{
    const double rate = sampleRateHz;
    for (; used < kBands && centreHz(used) <= kHighestCentre * rate; ++used)
        designBand(used, centreHz(used) / std::numbers::sqrt2,
                   std::min(centreHz(used) * std::numbers::sqrt2, kUsableShare * rate), rate);
}

/// A Butterworth low-pass of order 3, its poles moved to the band and to the z-plane, as three sections of two poles
/// and a gain of 1 in the middle of the band.
void StereoAnalysis::designBand(std::size_t band, double lowHz, double highHz, double sampleRateHz)
{
    const double low = std::tan(std::numbers::pi * lowHz / sampleRateHz);
    const double high = std::tan(std::numbers::pi * highHz / sampleRateHz);
    const double width = high - low;
    const auto toBand = [=](Complex pole, double sign) {
        const Complex half = pole * width / 2.0;
        return half + sign * std::sqrt(half * half - low * high);
    };
    const auto toZ = [](Complex pole) { return (1.0 + pole) / (1.0 - pole); };

    const Complex upper(-0.5, std::numbers::sqrt3 / 2.0);
    const Complex first = toZ(toBand(upper, 1.0));
    const Complex second = toZ(toBand(upper, -1.0));
    const std::array<std::array<Complex, 2>, kSections> poles{{
        {first, std::conj(first)},
        {second, std::conj(second)},
        {toZ(toBand(-1.0, 1.0)), toZ(toBand(-1.0, -1.0))},
    }};

    const Complex middle = toZ(Complex(0.0, std::sqrt(low * high)));
    for (std::size_t s = 0; s < kSections; ++s) {
        const auto& [p, q] = poles[s];
        const double scale = std::abs((middle - p) * (middle - q) / (middle * middle - 1.0));
        for (const std::size_t lane : {band, kBands + band}) {
            gain[s][lane] = scale;
            a1[s][lane] = -(p + q).real();
            a2[s][lane] = (p * q).real();
        }
    }
}

void StereoAnalysis::push(const double* stereo, std::size_t frames) noexcept
{
    for (std::size_t i = 0; i < frames; ++i) {
        const double left = stereo[2 * i];
        const double right = stereo[2 * i + 1];
        largest = std::max({largest, std::abs(left), std::abs(right)});
        same = same && left == right;
        measureOverall(left, right);

        Lanes x;
        std::fill_n(x.begin(), kBands, left);
        std::fill_n(x.begin() + kBands, kBands, right);
        for (std::size_t s = 0; s < kSections; ++s) {
            for (std::size_t k = 0; k < kLanes; ++k) {
                const double in = gain[s][k] * x[k];
                x[k] = in + state1[s][k];
                state1[s][k] = state2[s][k] - a1[s][k] * x[k];
                state2[s][k] = -in - a2[s][k] * x[k];
            }
        }
        for (std::size_t b = 0; b < kBands; ++b) {
            const double l = x[b];
            const double r = x[kBands + b];
            sums[0][b] += l * l;
            sums[1][b] += r * r;
            sums[2][b] += (l + r) * (l + r) / 2.0;
            sums[3][b] += (l - r) * (l - r) / 2.0;
        }
    }
    taken += frames;
    forgetTraces();
}

/// Adds a frame to the overall sums, behind a high-pass of order 1 that knows the offset from the first frame on.
void StereoAnalysis::measureOverall(double left, double right) noexcept
{
    const std::array<double, 2> now{left, right};
    if (!begun) before = now;
    begun = true;
    for (std::size_t side = 0; side < 2; ++side)
        highPass[side] = offsetKept * highPass[side] + now[side] - before[side];
    before = now;
    const auto& [l, r] = highPass;
    total.left += l * l;
    total.right += r * r;
    total.mid += (l + r) * (l + r) / 2.0;
    total.side += (l - r) * (l - r) / 2.0;
}

/// Ends what rings on inaudibly: subnormal numbers are slow.
void StereoAnalysis::forgetTraces() noexcept
{
    constexpr double kTrace = 1e-100;
    for (std::array<Lanes, kSections>* const states : {&state1, &state2})
        for (Lanes& lanes : *states)
            for (double& value : lanes)
                if (std::abs(value) < kTrace) value = 0.0;
    for (double& value : highPass)
        if (std::abs(value) < kTrace) value = 0.0;
}

std::vector<BandMeasure> StereoAnalysis::bands() const
{
    std::vector<BandMeasure> measures;
    for (std::size_t b = 0; b < used; ++b)
        measures.push_back(
            {centreHz(b), {.left = sums[0][b], .right = sums[1][b], .mid = sums[2][b], .side = sums[3][b]}});
    return measures;
}

StereoKind kindOf(const StereoAnalysis& analysis)
{
    const StereoMeasure& overall = analysis.overall();
    if (analysis.peak() <= std::pow(10.0, kSilencePeakDb / 20.0) || overall.energy() == 0.0) return StereoKind::Silence;
    if (std::abs(overall.leftToRightDb()) >= kOneSidedDb) return StereoKind::OneSided;
    if (overall.sideToMidDb() <= kDualMonoSideDb) return StereoKind::DualMono;

    const double correlation = overall.correlation().value_or(0.0);
    if (correlation <= kOppositeCorrelation) return StereoKind::OppositePhase;
    if (correlation >= kOneSourceCorrelation)
        return std::abs(overall.leftToRightDb()) < kCentredDb ? StereoKind::DualMono : StereoKind::PannedMono;
    if (correlation >= kSharedCorrelation) return StereoKind::Stereo;
    for (const auto& [centreHz, measure] : analysis.bands())
        if (measure.energy() >= kBandShare * overall.energy() &&
            measure.correlation().value_or(0.0) >= kSharedCorrelation)
            return StereoKind::Stereo;
    return StereoKind::Independent;
}

bool isOppositeBand(const BandMeasure& band, const StereoMeasure& overall) noexcept
{
    return band.measure.energy() >= kBandShare * overall.energy() &&
           band.measure.correlation().value_or(0.0) <= kOppositeCorrelation;
}

const KindText& textOf(StereoKind kind) noexcept
{
    return kTexts[static_cast<std::size_t>(kind)];
}

} // namespace tarn
