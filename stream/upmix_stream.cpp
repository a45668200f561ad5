// The stream: collects a host's frames into blocks and returns as many frames as it takes.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include "dispatch/instruction_sets.h"
#include "filterbank/cos_mod.h"
#include "lanes/float_environment.h"
#include "room/centre_control.h"
#include "room/surrounds.h"
#include "stream/block_delay.h"
#include "stream/block_upmixer.h"
#include "stream/crossfade.h"
#include "stream/host_rows.h"
#include "stream/meter_board.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

namespace zrk_tarn
{

namespace
{

constexpr auto kRelaxed = std::memory_order_relaxed;

static_assert(UpmixStream::latencyFrames() == (kEngineDelayBlocks + 1) * kBlockFrames);

// Fills the tables when the library is loaded, so that streams can be created on several threads at once.
[[maybe_unused]] const bool kTablesAreFilled = (cosModTablesInit(), true);

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

float clampedOr(float value, float low, float high, float valueForNaN) noexcept
{
    return std::isnan(value) ? valueForNaN : std::clamp(value, low, high);
}

} // namespace

/// A stream's state. New input fills the input rows while the output rows of the previous block are returned; when the
/// input rows are full, the engine computes the next output rows.
class UpmixStream::State
{
public:
    explicit State(const StreamConfiguration& streamConfiguration)
        : configuration(streamConfiguration),
          samples(rowsOf(configuration.format)),
          mode(configuration.mode),
          upmixer(configuration, samples.bits),
          appliedMode(configuration.mode),
          surroundPairs(surroundPairsOf(configuration)),
          crossfade(samples.bits),
          meters(configuration.sampleRateHz, samples.bits)
    {
        if (surroundPairs > 0) {
            surrounds = std::make_unique<Surrounds>();
            configureSurrounds(*surrounds, configuration.sampleRateHz, surroundPairs);
        }
    }

    /// Reads frames from input rows and writes as many to output rows. Reads every frame before it writes one in its
    /// place. Null rows are silence, or are not written.
    [[gnu::noinline]] void processFrames(const HostRows& input, const HostRows& output, std::size_t frames) noexcept;

    /// Makes the tail as long as the latency again, after input.
    void renewTail() noexcept { tailFrames = latencyFrames(); }

    /// Shortens the tail by up to this many frames and returns by how many.
    std::size_t shortenTail(std::size_t frames) noexcept
    {
        const std::size_t shortened = std::min(frames, tailFrames);
        tailFrames -= shortened;
        return shortened;
    }

    void setRemap(const RemapGains& gains) noexcept { upmixer.setRemap(gains); }
    StreamMeters readMeters() const noexcept { return meters.read(); }
    void reset() noexcept;

    const StreamConfiguration configuration;
    const SampleRows& samples;

    // Any thread writes these.
    std::atomic<bool> bypassed = false;
    std::atomic<float> gain = 1.0f;
    std::atomic<float> centreGain = 1.0f;
    std::atomic<float> centreWidth = 1.0f;
    std::atomic<float> surroundGain = kTypicalSurroundGain;
    std::atomic<SteeringMode> mode;

private:
    void processBlock() noexcept;
    void fillEngineSlots(const Row (&upmixed)[4]) noexcept;
    void fillSurroundSlots() noexcept;
    void fillDialogueSlots(const Row& centre) noexcept;
    const Row* bypassRow(std::size_t engineOutput) const noexcept;

    /// Calls fill(index, row) for the output slots of a source.
    template <typename Fill>
    void fillSlots(OutputSlot::Source source, Fill fill) noexcept
    {
        for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot)
            if (configuration.outputs[slot].source == source) fill(configuration.outputs[slot].index, outputRows[slot]);
    }

    float wetTarget() const noexcept { return bypassed.load(kRelaxed) ? 0.0f : 1.0f; }

    BlockUpmixer upmixer;
    SteeringMode appliedMode;
    Row inputRows[kMaxSlots]{};
    Row outputRows[kMaxSlots]{};
    std::size_t filledFrames = 0; ///< frames in the input rows; as many of the output rows have been returned
    BlockDelay delays[kMaxSlots]; ///< one per input slot
    Row delayed[kMaxSlots]{};     ///< scratch of processBlock, which keeps it off the stack
    std::size_t tailFrames = 0;   ///< frames that drain can still return
    bool started = false;         ///< whether the first frame has been processed
    CentreControl centre;
    std::int32_t surroundPairs;
    std::unique_ptr<Surrounds> surrounds; ///< null without surround channels
    Glide surroundFade{kTypicalSurroundGain};
    Crossfade crossfade;
    SampleFaults faults;
    MeterBoard meters;
};

void UpmixStream::State::processFrames(const HostRows& input, const HostRows& output, std::size_t frames) noexcept
{
    if (frames > 0 && !started) {
        started = true;
        crossfade.snapToTargets(wetTarget(), gain.load(kRelaxed));
        centre.snapToTargets(centreGain.load(kRelaxed), centreWidth.load(kRelaxed));
        surroundFade = Glide(surroundGain.load(kRelaxed));
    }
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(frames - done, kBlockFrames - filledFrames);
        Row loaded[kMaxSlots];
        for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot) {
            const auto& [first, stride] = input.row[slot];
            if (first != nullptr) {
                samples.load(first + done * stride, stride, count, loaded[slot], faults);
            } else {
                std::fill_n(loaded[slot], count, 0);
            }
        }
        for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
            const auto& [first, stride] = output.row[slot];
            if (first != nullptr) samples.store(outputRows[slot] + filledFrames, count, first + done * stride, stride);
        }
        for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot)
            std::copy_n(loaded[slot], count, inputRows[slot] + filledFrames);
        filledFrames += count;
        done += count;
        if (filledFrames == kBlockFrames) processBlock();
    }
}

void UpmixStream::State::processBlock() noexcept
{
    filledFrames = 0;
    if (const SteeringMode newMode = mode.load(kRelaxed); newMode != appliedMode) {
        appliedMode = newMode;
        upmixer.setMode(newMode);
    }
    crossfade.beginBlock(wetTarget(), gain.load(kRelaxed));
    centre.beginBlock(centreGain.load(kRelaxed), centreWidth.load(kRelaxed));
    surroundFade.beginBlock(surroundGain.load(kRelaxed));

    for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot)
        delays[slot].delayBlock(inputRows[slot], delayed[slot]);
    Row upmixed[4];
    upmixer.process(inputRows[configuration.leftSlot], inputRows[configuration.rightSlot], upmixed);

    // The rows of silent slots stay zero.
    fillSlots(OutputSlot::Source::Input,
              [&](std::size_t slot, Row& row) { std::copy_n(delayed[slot], kBlockFrames, row); });
    fillEngineSlots(upmixed);
    fillSurroundSlots();
    fillDialogueSlots(upmixed[2]);
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) meters.addLevel(slot, outputRows[slot]);
    meters.addBlock(upmixer.engine(), faults);
}

void UpmixStream::State::fillEngineSlots(const Row (&upmixed)[4]) noexcept
{
    using enum OutputSlot::Source;
    if (configuration.remap || centre.isNeutral()) {
        fillSlots(Engine, [&](std::size_t output, Row& row) {
            crossfade.mix(upmixed[output], bypassRow(output), row, faults);
        });
        return;
    }
    UnroundedRow changed[3];
    centre.apply(upmixed[0], upmixed[1], upmixed[2], changed);
    fillSlots(Engine,
              [&](std::size_t output, Row& row) { crossfade.mix(changed[output], bypassRow(output), row, faults); });
}

void UpmixStream::State::fillSurroundSlots() noexcept
{
    if (surrounds == nullptr) return;
    chosenOperations().renderSurrounds(upmixer.engine(), *surrounds);
    constexpr double kHalfPower = 0.70710678118654752; // sqrt(1/2)
    const double scale = static_cast<double>(upmixer.engine().outputScale) * (surroundPairs == 2 ? kHalfPower : 1.0);
    fillSlots(OutputSlot::Source::Surround, [&](std::size_t channel, Row& row) {
        UnroundedRow scaled;
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            scaled[i] = surroundFade.at(i) * scale * static_cast<double>(surrounds->output[channel][i]);
        crossfade.mix(scaled, nullptr, row, faults);
    });
}

void UpmixStream::State::fillDialogueSlots(const Row& centreRow) noexcept
{
    fillSlots(OutputSlot::Source::Dialogue, [&](std::size_t side, Row& row) {
        const Row& plain = *bypassRow(side);
        if (centre.isNeutral()) {
            crossfade.mix(plain, &plain, row, faults);
        } else {
            UnroundedRow changed;
            centre.changeVoice(plain, centreRow, changed);
            crossfade.mix(changed, &plain, row, faults);
        }
    });
}

/// The input that replaces an engine output in bypass: left, right, or null for silence.
const Row* UpmixStream::State::bypassRow(std::size_t engineOutput) const noexcept
{
    if (engineOutput == 0) return &delayed[configuration.leftSlot];
    if (engineOutput == 1) return &delayed[configuration.rightSlot];
    return nullptr;
}

void UpmixStream::State::reset() noexcept
{
    appliedMode = mode.load(kRelaxed);
    upmixer.restart(appliedMode);
    if (surrounds != nullptr) configureSurrounds(*surrounds, configuration.sampleRateHz, surroundPairs);
    for (BlockDelay& delay : delays) delay = {};
    std::memset(inputRows, 0, sizeof inputRows);
    std::memset(outputRows, 0, sizeof outputRows);
    filledFrames = 0;
    tailFrames = 0;
    started = false;
    faults = {};
    meters.clear();
}

UpmixStream::UpmixStream(Checked checked) : state(std::make_unique<State>(checked.configuration)) {}

UpmixStream::~UpmixStream() = default;
UpmixStream::UpmixStream(UpmixStream&&) noexcept = default;
UpmixStream& UpmixStream::operator=(UpmixStream&&) noexcept = default;

void UpmixStream::process(const void* input, void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    const std::size_t sampleBytes = state->samples.bytes;
    // Input rows are only read.
    state->processFrames(interleavedRows(const_cast<void*>(input), state->configuration.inputSlots, sampleBytes),
                         interleavedRows(output, state->configuration.outputSlots, sampleBytes), frames);
    if (frames > 0) state->renewTail();
}

void UpmixStream::processPlanar(const float* const* input, float* const* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    // Input rows are only read.
    state->processFrames(planarRows(const_cast<float* const*>(input), state->configuration.inputSlots),
                         planarRows(output, state->configuration.outputSlots), frames);
    if (frames > 0) state->renewTail();
}

std::size_t UpmixStream::drain(void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    const std::size_t drained = state->shortenTail(frames);
    state->processFrames({}, interleavedRows(output, state->configuration.outputSlots, state->samples.bytes), drained);
    return drained;
}

void UpmixStream::setRemap(const RemapGains& gains) noexcept
{
    state->setRemap(gains);
}

void UpmixStream::reset() noexcept
{
    state->reset();
}

void UpmixStream::setBypass(bool bypassed) noexcept
{
    state->bypassed.store(bypassed, kRelaxed);
}

bool UpmixStream::bypassed() const noexcept
{
    return state->bypassed.load(kRelaxed);
}

void UpmixStream::setMakeUpGain(float gain) noexcept
{
    state->gain.store(clampedOr(gain, 0.0f, kMaxMakeUpGain, 1.0f), kRelaxed);
}

void UpmixStream::setCentreGain(float gain) noexcept
{
    state->centreGain.store(clampedOr(gain, 0.0f, kMaxChannelGain, 1.0f), kRelaxed);
}

void UpmixStream::setCentreWidth(float width) noexcept
{
    state->centreWidth.store(clampedOr(width, 0.0f, 1.0f, 1.0f), kRelaxed);
}

void UpmixStream::setSurroundGain(float gain) noexcept
{
    state->surroundGain.store(clampedOr(gain, 0.0f, kMaxChannelGain, kTypicalSurroundGain), kRelaxed);
}

void UpmixStream::setMode(SteeringMode mode) noexcept
{
    state->mode.store(mode, kRelaxed);
}

StreamMeters UpmixStream::meters() const noexcept
{
    return state->readMeters();
}

} // namespace zrk_tarn
