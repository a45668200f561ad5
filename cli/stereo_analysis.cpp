// Designs the octave filters and classifies stereo recordings.
// SPDX-License-Identifier: MIT
#include "cli/stereo_analysis.h"

#include "cli/decibels.h"

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

constexpr double kOffsetHz = 5.0; ///< cutoff of the high-pass against DC offset
constexpr double kLowestCentreHz = 31.25;
constexpr double kUsableShare = 0.49;   ///< of the sample rate: maximum upper edge of a band
constexpr double kMaxCentreShare = 0.4; ///< of the sample rate: maximum centre of a band

/// Decibels of a ratio of energies.
double energyRatioDb(double part, double other) noexcept
{
    if (part == 0.0 && other == 0.0) return std::numeric_limits<double>::quiet_NaN();
    if (part == 0.0) return -std::numeric_limits<double>::infinity();
    if (other == 0.0) return std::numeric_limits<double>::infinity();
    return energyDecibels(part / other);
}

/// Centre frequency of a band.
double centreHz(std::size_t band)
{
    return std::ldexp(kLowestCentreHz, static_cast<int>(band));
}

constexpr std::array<KindText, 7> kTexts{{
    {.name = "silence", .gain = "no", .brief = "silence", .sentence = "silence: there is nothing to upmix"},
    {.name = "one-sided",
     .gain = "no",
     .brief = "one side only, gains nothing",
     .sentence = "one side only: an upmix leaves it there and gains nothing"},
    {.name = "dual-mono",
     .gain = "no",
     .brief = "dual mono, gains nothing",
     .sentence = "dual mono: both sides are nearly identical, so an upmix moves everything but the bass to the centre"},
    {.name = "opposite-phase",
     .gain = "no",
     .brief = "opposite phase, invert a side",
     .sentence = "opposite phase: one side looks inverted, and the centre would stay empty; invert it before upmixing"},
    {.name = "panned-mono",
     .gain = "little",
     .brief = "one source, gains little",
     .sentence = "one source panned off centre: an upmix places it between a side and the centre"},
    {.name = "independent",
     .gain = "little",
     .brief = "little in common, gains little",
     .sentence = "left and right have little in common: an upmix moves hardly anything to the centre"},
    {.name = "stereo",
     .gain = "yes",
     .brief = "worth upmixing",
     .sentence = "stereo with something in common: worth upmixing"},
}};

} // namespace

std::optional<double> StereoMeasure::correlation() const noexcept
{
    // One root of the product is exact for identical sides; two roots are not.
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

StereoAnalysis::StereoAnalysis(std::uint32_t sampleRateHz) : measure(usableVariants().back().measure)
{
    record.highPassPole = std::exp(-2.0 * std::numbers::pi * kOffsetHz / sampleRateHz);
    const double rate = sampleRateHz;
    for (; used < StereoRecord::kBands && centreHz(used) <= kMaxCentreShare * rate; ++used)
        designBand(used, centreHz(used) / std::numbers::sqrt2,
                   std::min(centreHz(used) * std::numbers::sqrt2, kUsableShare * rate), rate);
}

/// Transforms the poles of a third-order Butterworth low-pass to the band and to the z-plane: three second-order
/// sections with unity gain at the centre of the band.
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
    const std::array<std::array<Complex, 2>, StereoRecord::kSections> poles{{
        {first, std::conj(first)},
        {second, std::conj(second)},
        {toZ(toBand(-1.0, 1.0)), toZ(toBand(-1.0, -1.0))},
    }};

    const Complex middle = toZ(Complex(0.0, std::sqrt(low * high)));
    for (std::size_t s = 0; s < poles.size(); ++s) {
        const auto& [p, q] = poles[s];
        const double scale = std::abs((middle - p) * (middle - q) / (middle * middle - 1.0));
        record.gain[s][band] = scale;
        record.a1[s][band] = -(p + q).real();
        record.a2[s][band] = (p * q).real();
    }
}

void StereoAnalysis::push(const double* stereo, std::size_t frames) noexcept
{
    if (frames == 0) return;
    if (frameCount == 0) std::copy_n(stereo, 2, record.previous);
    for (std::size_t i = 0; i < frames && same; ++i) same = stereo[2 * i] == stereo[2 * i + 1];
    measure(record, stereo, frames);
    frameCount += frames;
    flushSubnormals();
}

/// Clears inaudible filter states, because subnormal numbers are slow.
void StereoAnalysis::flushSubnormals() noexcept
{
    constexpr double kInaudible = 1e-100;
    const auto flush = [](double& value) {
        if (std::abs(value) < kInaudible) value = 0.0;
    };
    constexpr std::size_t kStates = sizeof record.state1 / sizeof(double);
    std::for_each_n(&record.state1[0][0][0], kStates, flush);
    std::for_each_n(&record.state2[0][0][0], kStates, flush);
    std::for_each_n(record.highPass, 2, flush);
}

StereoMeasure StereoAnalysis::overall() const noexcept
{
    const auto& [left, right, sum, difference] = record.totalSums;
    return {.left = left, .right = right, .mid = sum / 2.0, .side = difference / 2.0};
}

std::vector<BandMeasure> StereoAnalysis::bands() const
{
    const auto& [left, right, sum, difference] = record.bandSums;
    std::vector<BandMeasure> measures;
    for (std::size_t b = 0; b < used; ++b)
        measures.push_back(
            {centreHz(b), {.left = left[b], .right = right[b], .mid = sum[b] / 2.0, .side = difference[b] / 2.0}});
    return measures;
}

StereoKind kindOf(const StereoAnalysis& analysis)
{
    const StereoMeasure overall = analysis.overall();
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
