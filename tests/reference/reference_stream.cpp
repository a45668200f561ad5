// The stream of the reference.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace reference
{

namespace
{

constexpr int kFadeFrames = 1024;
constexpr std::size_t kEngineDelayBlocks = 15;

using zrk_tarn::OutputSlot;
using Source = OutputSlot::Source;

/// A Linkwitz-Riley filter of 4th order.
Crossover crossover(double rateHz, bool isLowPass, long double hz = 120.0L)
{
    const auto k =
        static_cast<double>(std::tan(std::numbers::pi_v<long double> * hz / static_cast<long double>(rateHz)));
    const double norm = 1.0 / (1.0 + std::numbers::sqrt2 * k + k * k);
    const double a1 = 2.0 * (k * k - 1.0) * norm;
    const double a2 = (1.0 - std::numbers::sqrt2 * k + k * k) * norm;
    const Section low{k * k * norm, 2.0 * (k * k) * norm, k * k * norm, a1, a2};
    const Section high{norm, -2.0 * norm, norm, a1, a2};
    return isLowPass ? Crossover{{low, low}} : Crossover{{high, high}};
}

// ITU-R BS.1770-4, annex 2. Phases 2 and 3 are phases 1 and 0 reversed.
constexpr float kPhases[2][12] = {
    {0.0017089843750f, 0.0109863281250f, -0.0196533203125f, 0.0332031250000f, -0.0594482421875f, 0.1373291015625f,
     0.9721679687500f, -0.1022949218750f, 0.0476074218750f, -0.0266113281250f, 0.0148925781250f, -0.0083007812500f},
    {-0.0291748046875f, 0.0292968750000f, -0.0517578125000f, 0.0891113281250f, -0.1665039062500f, 0.4650878906250f,
     0.7797851562500f, -0.2003173828125f, 0.1015625000000f, -0.0582275390625f, 0.0330810546875f, -0.0189208984375f}};

/// The true peak of the 12 samples from a place on, and of the samples themselves.
float truePeakFrom(const float* samples)
{
    float peak = 0.0f;
    for (int phase = 0; phase < 4; ++phase) {
        float sum = 0.0f;
        for (int tap = 0; tap < 12; ++tap)
            sum += samples[tap] * (phase < 2 ? kPhases[phase][tap] : kPhases[3 - phase][11 - tap]);
        peak = std::max(peak, std::fabs(sum));
    }
    for (int tap = 0; tap < 12; ++tap) peak = std::max(peak, std::fabs(samples[tap]));
    return peak;
}

} // namespace

std::int32_t integerOf(float sample, Faults& faults)
{
    if (std::isnan(sample)) {
        ++faults.invalid;
        return 0;
    }
    const double scaled = static_cast<double>(sample) * 0x1p31;
    if (std::fabs(scaled) > 0x1p31) ++faults.saturated;
    const double rounded = scaled < 0.0 ? std::trunc(scaled - 0.5) : std::trunc(scaled + 0.5);
    return static_cast<std::int32_t>(std::clamp(rounded, -0x1p31, 0x1p31 - 1.0));
}

float floatOf(std::int32_t sample)
{
    return static_cast<float>(static_cast<double>(sample) / 0x1p31);
}

void Fade::beginBlock(double newTarget)
{
    isSteady = frames >= kFadeFrames || start == target;
    if (newTarget == target) return;
    start = value();
    target = newTarget;
    frames = 0;
    isSteady = start == target;
}

double Fade::next()
{
    ++frames;
    return value();
}

double Fade::value() const
{
    if (frames >= kFadeFrames) return target;
    return start + (target - start) * (static_cast<double>(frames) / kFadeFrames);
}

double Section::filter(double x)
{
    const double y = b0 * x + s1;
    s1 = b1 * x - a1 * y + s2;
    s2 = b2 * x - a2 * y;
    return y;
}

void Section::dropTraces()
{
    if (std::fabs(s1) < 0x1p-60) s1 = 0.0;
    if (std::fabs(s2) < 0x1p-60) s2 = 0.0;
}

double Crossover::filter(double x)
{
    return sections[1].filter(sections[0].filter(x));
}

void Crossover::dropTraces()
{
    for (Section& section : sections) section.dropTraces();
}

Limiter::Limiter(std::uint32_t rateHz, double samplesFullScale)
    : release(64.0 / (0.1 * rateHz)), fullScale(samplesFullScale), heldBlocks(rateHz / 50 / 64)
{}

void Limiter::limit(std::vector<Block>& rows, bool isUnlimited)
{
    if (before.empty()) {
        before.assign(rows.size(), Block{});
        window.assign(rows.size(), {});
    }
    float peak = 0.0f;
    for (std::size_t row = 0; row < rows.size(); ++row) {
        for (std::size_t i = 0; i < 11; ++i) window[row][i] = window[row][i + 64];
        for (std::size_t i = 0; i < 64; ++i) window[row][11 + i] = static_cast<float>(rows[row][i] / fullScale);
        for (std::size_t i = 0; i < 64; ++i) peak = std::max(peak, truePeakFrom(&window[row][i]));
    }
    const double ceiling = 0.89125094;
    const auto loudest = static_cast<double>(peak);
    needed.push_back(!isUnlimited && loudest > ceiling ? ceiling / loudest : 1.0);
    double target = gain + (1.0 - gain) * release;
    if (target > 1.0 - 0x1p-11) target = 1.0;
    // The block that comes out now is the last but one. The gain is held for 20 ms after it.
    for (std::size_t age = 0; age < heldBlocks + 2 && age < needed.size(); ++age)
        target = std::min(target, needed[needed.size() - 1 - age]);
    before.swap(rows);
    for (Block& row : rows) {
        for (std::size_t i = 0; i < 64; ++i) {
            const double part = i >= 57 ? 1.0 : static_cast<double>(i + 1) / 58.0;
            if (gain != 1.0 || target != 1.0) row[i] *= gain + (target - gain) * part;
        }
    }
    gain = target;
}

Stream::Stream(const zrk_tarn::StreamConfiguration& streamConfiguration, int sampleBits)
    : configuration(streamConfiguration),
      bits(sampleBits),
      fullScale(std::ldexp(1.0, sampleBits - 1)),
      limiter(configuration.sampleRateHz, fullScale)
{
    engine->Open();
    engine->Initialize({.outputChannels = 3,
                        .bitsPerSample = bits,
                        .sampleRate = configuration.sampleRateHz,
                        .mode = configuration.mode == zrk_tarn::SteeringMode::Fast ? 1 : 2,
                        .mixFraction = 1.0f});
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
        const auto& [source, index] = configuration.outputs[slot];
        if (source == Source::Surround) surroundChannels = std::max(surroundChannels, index < 2 ? 2 : 4);
    }
    if (surroundChannels > 0) surrounds = std::make_unique<Surrounds>(configuration.sampleRateHz, surroundChannels);
    const double rateHz = configuration.sampleRateHz;
    std::fill(std::begin(bassOfStereo), std::end(bassOfStereo), crossover(rateHz, true));
    std::fill(std::begin(restOfFronts), std::end(restOfFronts), crossover(rateHz, false));
    std::fill(std::begin(restOfSurrounds), std::end(restOfSurrounds), crossover(rateHz, false, 160.0L));
    bassForLfe = crossover(rateHz, true);
    const Rows silence(configuration.inputSlots);
    past.assign(kEngineDelayBlocks, silence);
    dryBefore = silence;
}

std::vector<std::array<std::int32_t, kFrames>>
Stream::process(const std::vector<std::array<std::int32_t, kFrames>>& input, const StreamSettings& settings)
{
    const auto share = static_cast<double>(settings.width);
    const auto toFront = static_cast<double>(static_cast<float>(std::sqrt((1.0 - share * share) * 0.5)));
    struct Target
    {
        Fade& fade;
        double value;
        Block& at;
    };
    const bool startsBass = bass.isSteadyAt(0.0);
    for (const Target& target : {Target{wet, settings.bypass ? 0.0 : 1.0, wetAt},
                                 {gain, static_cast<double>(settings.gain), gainAt},
                                 {centre, static_cast<double>(settings.centre), centreAt},
                                 {width, share, widthAt},
                                 {frontShare, toFront, frontShareAt},
                                 {surroundGain, static_cast<double>(settings.surround), surroundGainAt},
                                 {lfeGain, static_cast<double>(settings.lfe), lfeGainAt},
                                 {bass, settings.bassInFronts ? 1.0 : 0.0, bassAt}}) {
        if (isFirst) target.fade = Fade(target.value);
        target.fade.beginBlock(target.value);
        for (double& value : target.at) value = target.fade.next();
    }
    if (startsBass && !bass.isSteadyAt(0.0)) {
        for (auto* const filter :
             {&bassOfStereo[0], &bassOfStereo[1], &restOfFronts[0], &restOfFronts[1], &restOfFronts[2],
              &restOfSurrounds[0], &restOfSurrounds[1], &restOfSurrounds[2], &restOfSurrounds[3]})
            for (Section& section : filter->sections) section.s1 = section.s2 = 0.0;
    }
    isFirst = false;

    upmix(input, settings);
    past.push_back(input);
    const Rows delayed = past.front();
    past.pop_front();

    if (!configuration.remap) {
        changeCentre();
        renderSurrounds();
        filterBass(delayed);
    }
    std::vector<Block> rows = wetRows(delayed);
    const Rows& dry = configuration.limiter ? dryBefore : delayed;
    for (Block& row : rows)
        for (std::size_t i = 0; i < kFrames && configuration.limiter; ++i) row[i] *= gainAt[i];
    if (configuration.limiter) limiter.limit(rows, !settings.limiting || isPlainStereo() || wet.isSteadyAt(0.0));

    Rows output(configuration.outputSlots);
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
        const auto& [source, index] = configuration.outputs[slot];
        const bool hasDry = (source == Source::Engine || source == Source::Dialogue) && index < 2;
        const auto& side = dry[index == 0 ? configuration.leftSlot : configuration.rightSlot];
        for (std::size_t i = 0; i < kFrames; ++i) {
            if (source == Source::Silence) continue;
            if (source == Source::Input) {
                output[slot][i] = dry[index][i];
                continue;
            }
            const double plain = hasDry ? static_cast<double>(side[i]) : 0.0;
            const double upmixed =
                configuration.limiter ? wetAt[i] * rows[slot][i] : wetAt[i] * gainAt[i] * rows[slot][i];
            output[slot][i] = saturated(upmixed + (1.0 - wetAt[i]) * plain);
        }
    }
    dryBefore = delayed;
    return output;
}

/// Runs the engine and reads its outputs, which the limiter gets before they are clipped; or the columns of the remap
/// matrix, which can wrap.
void Stream::upmix(const Rows& input, const StreamSettings& settings)
{
    const std::size_t bytes = static_cast<std::size_t>(bits) / 8;
    const std::size_t outputs = configuration.remap ? 4 : 3;
    std::uint8_t buffer[kFrames * 4 * 4]{};
    for (std::size_t i = 0; i < kFrames; ++i) {
        for (std::size_t side = 0; side < 2; ++side) {
            const std::int32_t sample = input[side == 0 ? configuration.leftSlot : configuration.rightSlot][i];
            std::memcpy(buffer + (outputs * i + side) * bytes, &sample, bytes);
        }
    }
    engine->SetChannelPtrs(buffer, buffer + bytes, buffer + 2 * bytes, buffer + (outputs - 1) * bytes);
    if (configuration.remap) {
        int gains[3][4];
        std::memcpy(gains, settings.remap.gain, sizeof gains);
        engine->SetRemapCoeff(gains);
        engine->ProcessCine3InterLeaveRemap(kFrames, 4);
    } else {
        engine->ProcessCine3InterLeave(kFrames, 3);
    }
    for (std::size_t output = 0; output < outputs; ++output) {
        for (std::size_t i = 0; i < kFrames; ++i) {
            std::uint32_t word = 0;
            std::memcpy(&word, buffer + (outputs * i + output) * bytes, bytes);
            const int unused = 32 - bits;
            const std::int32_t sample = static_cast<std::int32_t>(word << unused) >> unused;
            double value = sample;
            const bool isClipped = value == -fullScale || value == fullScale - 1.0;
            if (configuration.limiter && !configuration.remap && isClipped)
                value = static_cast<double>(engine->outputScale) * static_cast<double>(engine->outputBlock[output][i]);
            fronts[output][i] = value;
        }
    }
    voice = fronts[2];
}

void Stream::changeCentre()
{
    for (std::size_t i = 0; i < kFrames; ++i) {
        const double louder = centreAt[i] * voice[i];
        fronts[0][i] += frontShareAt[i] * louder;
        fronts[1][i] += frontShareAt[i] * louder;
        fronts[2][i] = widthAt[i] * louder;
    }
}

void Stream::renderSurrounds()
{
    if (!surrounds) return;
    surrounds->render(engine->subband, engine->bandCount);
    const double scale = static_cast<double>(engine->outputScale) * (surroundChannels == 4 ? 0.70710678118654752 : 1.0);
    for (int channel = 0; channel < surroundChannels; ++channel)
        for (std::size_t i = 0; i < kFrames; ++i)
            behind[channel][i] = surroundGainAt[i] * scale * static_cast<double>(surrounds->output[channel][i]);
}

/// Replaces the bass of the fronts, removes it from the surround channels, and computes the LFE channel.
void Stream::filterBass(const Rows& delayed)
{
    const auto& left = delayed[configuration.leftSlot];
    const auto& right = delayed[configuration.rightSlot];
    for (std::size_t i = 0; i < kFrames; ++i)
        lfe[i] = bassForLfe.filter(static_cast<double>(left[i]) + right[i]) * (lfeGainAt[i] * 0.22360679774997897);
    bassForLfe.dropTraces();
    if (bass.isSteadyAt(0.0)) return;

    const auto removeBass = [this](Block& row, Crossover& highPass) {
        for (std::size_t i = 0; i < kFrames; ++i) {
            const double rest = highPass.filter(row[i]);
            row[i] = bass.isSteadyAt(1.0) ? rest : row[i] + bassAt[i] * (rest - row[i]);
        }
        highPass.dropTraces();
    };
    for (std::size_t output = 0; output < 3; ++output) removeBass(fronts[output], restOfFronts[output]);
    for (int channel = 0; channel < surroundChannels; ++channel) removeBass(behind[channel], restOfSurrounds[channel]);
    for (std::size_t side = 0; side < 2; ++side) {
        const auto& stereo = side == 0 ? left : right;
        for (std::size_t i = 0; i < kFrames; ++i)
            fronts[side][i] += bassAt[i] * bassOfStereo[side].filter(0.70710678118654752 * stereo[i]);
        bassOfStereo[side].dropTraces();
    }
}

/// The upmix of every output slot; silence for the slots of other sources.
std::vector<Block> Stream::wetRows(const Rows& delayed)
{
    std::vector<Block> rows(configuration.outputSlots);
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
        const auto& [source, index] = configuration.outputs[slot];
        if (source == Source::Engine) rows[slot] = fronts[index];
        if (source == Source::Surround) rows[slot] = behind[index];
        if (source == Source::Lfe) rows[slot] = lfe;
        if (source != Source::Dialogue) continue;
        const auto& side = delayed[index == 0 ? configuration.leftSlot : configuration.rightSlot];
        for (std::size_t i = 0; i < kFrames; ++i)
            rows[slot][i] = static_cast<double>(side[i]) + (centreAt[i] - 1.0) * voice[i];
    }
    return rows;
}

/// Whether the outputs are the input for two loudspeakers, which is not limited.
bool Stream::isPlainStereo() const
{
    const auto* const end = configuration.outputs.begin() + configuration.outputSlots;
    const auto has = [&](OutputSlot::Source source) {
        return std::any_of(configuration.outputs.begin(), end, [=](const auto& slot) { return slot.source == source; });
    };
    return has(Source::Dialogue) && !has(Source::Engine) && !has(Source::Surround) && !has(Source::Lfe) &&
           gain.isSteadyAt(1.0) && centre.isSteadyAt(1.0);
}

/// Rounds half away from zero, saturates and counts the samples that do.
std::int32_t Stream::saturated(double value)
{
    const double rounded = value < 0.0 ? std::trunc(value - 0.5) : std::trunc(value + 0.5);
    if (rounded < -fullScale || rounded > fullScale - 1.0) ++faults.saturated;
    return static_cast<std::int32_t>(std::clamp(rounded, -fullScale, fullScale - 1.0));
}

} // namespace reference
