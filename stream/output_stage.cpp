// From the engine's outputs to the slots of the host.
// SPDX-License-Identifier: MIT
#include "stream/output_stage.h"

#include "dispatch/instruction_sets.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

constexpr double kHalfPower = 0.70710678118654752; // sqrt(1/2)
constexpr double kLfeShare = 0.22360679774997897;  // -3 dB as the bass of the fronts, -10 dB because receivers add them

/// Input slots stay as they are, and the other slots are silent.
constexpr OutputSlot::Source kLimitedSources[] = {OutputSlot::Source::Engine, OutputSlot::Source::Surround,
                                                  OutputSlot::Source::Dialogue, OutputSlot::Source::Lfe};

/// The number of pairs of surround channels in use.
std::int32_t surroundPairsOf(const StreamConfiguration& configuration) noexcept
{
    std::int32_t pairs = 0;
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
        const auto& [source, index] = configuration.outputs[slot];
        if (source == OutputSlot::Source::Surround) pairs = std::max(pairs, index / 2 + 1);
    }
    return pairs;
}

} // namespace

OutputStage::OutputStage(const StreamConfiguration& streamConfiguration, std::uint32_t bits)
    : configuration(streamConfiguration),
      fullScale(static_cast<double>(std::uint32_t{1} << (bits - 1))),
      surroundPairs(surroundPairsOf(configuration)),
      crossfade(bits)
{
    using enum OutputSlot::Source;
    forEachSlotOf(Engine, [this](std::size_t /*slot*/, std::size_t /*index*/) { hasEngine = true; });
    forEachSlotOf(Lfe, [this](std::size_t /*slot*/, std::size_t /*index*/) { hasLfe = true; });
    for (const OutputSlot::Source source : kLimitedSources)
        forEachSlotOf(source, [this](std::size_t slot, std::size_t /*index*/) { limitedRow[slot] = limitedRows++; });
    if (surroundPairs > 0) surrounds = std::make_unique<Surrounds>();
    if (!configuration.remap) bass = std::make_unique<BassCrossover>(configuration.sampleRateHz);
    if (configuration.limiter) limiter = std::make_unique<Limiter>(configuration.sampleRateHz, fullScale);
    reset();
}

void OutputStage::snapToTargets(const OutputTargets& targets) noexcept
{
    crossfade.snapToTargets(targets.wet, targets.gain);
    centre.snapToTargets(targets.centre, targets.width);
    surroundGain = Glide(targets.surround);
    lfeGain = Glide(targets.lfe);
    if (bass != nullptr) bass->snapToTarget(targets.bassInFronts);
}

void OutputStage::process(const StageBlock& block, const OutputTargets& targets) noexcept
{
    crossfade.beginBlock(targets.wet, targets.gain);
    centre.beginBlock(targets.centre, targets.width);
    surroundGain.beginBlock(targets.surround);
    lfeGain.beginBlock(targets.lfe);
    if (bass != nullptr) bass->beginBlock(targets.bassInFronts);
    isLimiting = targets.limiting;

    fillInputSlots(block);
    fillLoudspeakerSlots(block);
    fillDialogueSlots(block);
    fillLfeSlots(block);
    if (limiter != nullptr) limitAndFade(block);
}

void OutputStage::reset() noexcept
{
    if (surrounds != nullptr) configureSurrounds(*surrounds, configuration.sampleRateHz, surroundPairs);
    if (bass != nullptr) bass->reset();
    if (limiter != nullptr) limiter->reset();
}

/// Calls fill(slot, index of the source) for the output slots of a source.
template <typename Fill>
void OutputStage::forEachSlotOf(OutputSlot::Source source, Fill fill) noexcept
{
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot)
        if (configuration.outputs[slot].source == source) fill(slot, configuration.outputs[slot].index);
}

/// Completes a slot, or amplifies it for the limiter.
///
/// wet  the upmix, a Row or an UnroundedRow
template <typename WetRow>
void OutputStage::put(const StageBlock& block, std::size_t slot, const WetRow& wet) noexcept
{
    if (limiter == nullptr) {
        crossfade.mix(wet, dryRow(block, slot), block.outputSlots[slot], block.faults);
    } else {
        crossfade.amplify(wet, limiter->input()[limitedRow[slot]]);
    }
}

void OutputStage::fillInputSlots(const StageBlock& block) noexcept
{
    const Row* const from = inputSlotsOf(block);
    forEachSlotOf(OutputSlot::Source::Input, [&](std::size_t slot, std::size_t index) {
        std::copy_n(from[index], kBlockFrames, block.outputSlots[slot]);
    });
}

/// The slots of engine and surround channels: the crossover filters all of them at the same time.
void OutputStage::fillLoudspeakerSlots(const StageBlock& block) noexcept
{
    if (!hasEngine && surrounds == nullptr) return;
    using enum OutputSlot::Source;
    const bool isUnchanged = configuration.remap.has_value() || (centre.isNeutral() && isBassSteered());
    const bool isRounded = isUnchanged && limiter == nullptr;
    if (!isRounded) {
        const std::size_t outputs = configuration.remap ? 4 : 3;
        for (std::size_t output = 0; output < outputs; ++output) unround(block, output, upmixRows[output]);
        if (!configuration.remap && !centre.isNeutral()) centre.apply(upmixRows[0], upmixRows[1], upmixRows[2]);
    }
    if (surrounds != nullptr) renderSurroundRows(block.engine);
    if (!isBassSteered())
        bass->moveToFronts(chosenOperations().rows, block.inputSlots[configuration.leftSlot],
                           block.inputSlots[configuration.rightSlot], upmixRows, surroundRows,
                           static_cast<std::size_t>(surroundPairs) * 2);
    forEachSlotOf(Engine, [&](std::size_t slot, std::size_t output) {
        if (isRounded) {
            put(block, slot, block.upmixed[output]);
        } else {
            put(block, slot, upmixRows[output]);
        }
    });
    forEachSlotOf(Surround, [&](std::size_t slot, std::size_t channel) { put(block, slot, surroundRows[channel]); });
}

void OutputStage::renderSurroundRows(const ZRKTarn& engine) noexcept
{
    chosenOperations().renderSurrounds(engine, *surrounds);
    const double scale = static_cast<double>(engine.outputScale) * (surroundPairs == 2 ? kHalfPower : 1.0);
    for (std::int32_t channel = 0; channel < surrounds->chainsInUse; ++channel)
        chosenOperations().rows.amplify(surroundGain.row(), scale, surrounds->output[channel], surroundRows[channel]);
}

void OutputStage::fillDialogueSlots(const StageBlock& block) noexcept
{
    forEachSlotOf(OutputSlot::Source::Dialogue, [&](std::size_t slot, std::size_t side) {
        const Row& plain = block.inputSlots[side == 0 ? configuration.leftSlot : configuration.rightSlot];
        if (centre.isVoiceUnchanged()) {
            put(block, slot, plain);
            return;
        }
        UnroundedRow& changed = upmixRows[0];
        UnroundedRow& voice = upmixRows[1];
        std::copy_n(plain, kBlockFrames, changed);
        unround(block, 2, voice);
        centre.changeVoice(voice, changed);
        put(block, slot, changed);
    });
}

void OutputStage::fillLfeSlots(const StageBlock& block) noexcept
{
    if (!hasLfe) return;
    UnroundedRow& row = upmixRows[0];
    bass->addBass(chosenOperations().rows, block.inputSlots[configuration.leftSlot],
                  block.inputSlots[configuration.rightSlot], row);
    for (std::size_t i = 0; i < kBlockFrames; ++i) row[i] *= lfeGain.at(i) * kLfeShare;
    forEachSlotOf(OutputSlot::Source::Lfe, [&](std::size_t slot, std::size_t /*index*/) { put(block, slot, row); });
}

/// Limits the block before, and fades between it and the input.
void OutputStage::limitAndFade(const StageBlock& block) noexcept
{
    const BlockOperations& operations = chosenOperations();
    const PeakWindow& window = limiter->peakWindowOf(limitedRows, operations.advancePeakWindow);
    const auto rows = static_cast<std::int32_t>(limitedRows);
    const auto ceiling = static_cast<float>(Limiter::kCeiling);
    const bool isUnlimited = !isLimiting || isPlainStereo() || crossfade.isBypassed();
    const float peak = isUnlimited ? 0.0f : operations.findTruePeak(window, rows, ceiling);
    const UnroundedRow* const before = limiter->process(limitedRows, static_cast<double>(peak));

    for (const OutputSlot::Source source : kLimitedSources)
        forEachSlotOf(source, [&](std::size_t slot, std::size_t /*index*/) {
            crossfade.fade(before[limitedRow[slot]], dryRow(block, slot), block.outputSlots[slot], block.faults);
        });
}

/// Whether the outputs are the input for two loudspeakers. It stays as it is, above the ceiling too.
bool OutputStage::isPlainStereo() const noexcept
{
    bool isDialogue = false;
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
        const OutputSlot::Source source = configuration.outputs[slot].source;
        using enum OutputSlot::Source;
        if (source == Engine || source == Surround || source == Lfe) return false;
        isDialogue = isDialogue || source == Dialogue;
    }
    return isDialogue && centre.isVoiceUnchanged() && crossfade.isExact();
}

/// The engine's output of a slot. Samples that it has clipped have their values before that, for the limiter.
void OutputStage::unround(const StageBlock& block, std::size_t output, UnroundedRow& row) const noexcept
{
    const bool reachesFullScale = chosenOperations().rows.widen(block.upmixed[output], fullScale, row);
    if (limiter == nullptr || configuration.remap || !reachesFullScale) return;
    for (std::size_t i = 0; i < kBlockFrames; ++i)
        if (row[i] == -fullScale || row[i] == fullScale - 1.0)
            row[i] = static_cast<double>(block.engine.outputScale) *
                     static_cast<double>(block.engine.outputBlock[output][i]);
}

/// The input slots that are as late as the output slots.
const Row* OutputStage::inputSlotsOf(const StageBlock& block) const noexcept
{
    return limiter == nullptr ? block.inputSlots : block.inputSlotsBefore;
}

/// The input that replaces a slot in bypass: left, right, or null for silence.
const Row* OutputStage::dryRow(const StageBlock& block, std::size_t slot) const noexcept
{
    const auto& [source, index] = configuration.outputs[slot];
    if (source == OutputSlot::Source::Surround || source == OutputSlot::Source::Lfe || index > 1) return nullptr;
    return &inputSlotsOf(block)[index == 0 ? configuration.leftSlot : configuration.rightSlot];
}

} // namespace zrk_tarn
