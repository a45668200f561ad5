// The stream: collects a host's frames into blocks and returns as many frames as it takes.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include "filterbank/cos_mod.h"
#include "lanes/float_environment.h"
#include "stream/block_delay.h"
#include "stream/block_upmixer.h"
#include "stream/meter_board.h"
#include "stream/output_stage.h"
#include "stream/sample_rows.h"

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

float clampedOr(float value, float low, float high, float valueForNaN) noexcept
{
    return std::isnan(value) ? valueForNaN : std::clamp(value, low, high);
}

} // namespace

/// A stream's state. New input fills the input rows while the output rows of the previous block are returned; when the
/// input rows are full, the engine computes the next output rows.
///
/// Members that do arithmetic are not inlined, so that they stay in the scope of the default floating-point
/// environment.
class UpmixStream::State
{
public:
    [[gnu::noinline]] explicit State(const StreamConfiguration& streamConfiguration)
        : configuration(streamConfiguration),
          bits(bitsOf(configuration.format)),
          bass(configuration.bass),
          mode(configuration.mode),
          input(configuration.format, configuration.inputSlots),
          output(configuration.format, configuration.outputSlots),
          upmixer(configuration, bits),
          appliedMode(configuration.mode),
          outputStage(configuration, bits),
          meters(upmixer.engine(), configuration.sampleRateHz, bits)
    {}

    /// Reads frames of the input and writes as many of the output. Reads every frame before it writes one in its place.
    /// Null buffers are silence, or are not written.
    [[gnu::noinline]] void processFrames(const HostBuffers& from, const HostBuffers& to, std::size_t frames) noexcept;

    /// Makes the tail as long as the latency again, after input.
    void renewTail() noexcept { tailFrames = latencyFrames(configuration); }

    /// Shortens the tail by up to this many frames and returns by how many.
    std::size_t shortenTail(std::size_t frames) noexcept
    {
        const std::size_t shortened = std::min(frames, tailFrames);
        tailFrames -= shortened;
        return shortened;
    }

    void setRemap(const RemapGains& gains) noexcept { upmixer.setRemap(gains); }
    [[gnu::noinline]] StreamMeters readMeters() const noexcept { return meters.read(); }
    [[gnu::noinline]] void reset() noexcept;

    const StreamConfiguration configuration;
    const std::uint32_t bits; ///< width of the samples in rows

    // Any thread writes these.
    std::atomic<bool> bypassed = false;
    std::atomic<float> gain = 1.0f;
    std::atomic<float> centreGain = 1.0f;
    std::atomic<float> centreWidth = 1.0f;
    std::atomic<float> surroundGain = kTypicalSurroundGain;
    std::atomic<float> lfeGain = 1.0f;
    std::atomic<BassMode> bass;
    std::atomic<bool> limiting = true;
    std::atomic<SteeringMode> mode;

private:
    void processBlock() noexcept;

    OutputTargets targets() const noexcept
    {
        return {.wet = bypassed.load(kRelaxed) ? 0.0f : 1.0f,
                .gain = gain.load(kRelaxed),
                .centre = centreGain.load(kRelaxed),
                .width = centreWidth.load(kRelaxed),
                .surround = surroundGain.load(kRelaxed),
                .lfe = lfeGain.load(kRelaxed),
                .bassInFronts = bass.load(kRelaxed) == BassMode::Fronts,
                .limiting = limiting.load(kRelaxed)};
    }

    SampleRows input;
    SampleRows output;
    BlockUpmixer upmixer;
    SteeringMode appliedMode;
    BlockDelay delay;
    Row outputRows[kMaxSlots]{};
    std::size_t filledFrames = 0; ///< frames in the input rows; as many of the output rows have been returned
    std::size_t tailFrames = 0;   ///< frames that drain can still return
    bool started = false;         ///< whether the first frame has been processed
    OutputStage outputStage;
    SampleFaults faults;
    MeterBoard meters;
};

void UpmixStream::State::processFrames(const HostBuffers& from, const HostBuffers& to, std::size_t frames) noexcept
{
    if (frames > 0 && !started) {
        started = true;
        outputStage.snapToTargets(targets());
    }
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(frames - done, kBlockFrames - filledFrames);
        input.load(from, done, count, delay.input(), filledFrames, faults);
        output.store(outputRows, filledFrames, count, to, done);
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
    const Row(&inputRows)[kMaxSlots] = delay.input();
    Row upmixed[4];
    upmixer.process(inputRows[configuration.leftSlot], inputRows[configuration.rightSlot], upmixed);

    outputStage.process({upmixer.engine(), upmixed, delay.delayed(), delay.delayedBefore(), outputRows, faults},
                        targets());
    delay.advance();
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot)
        if (configuration.outputs[slot].source != OutputSlot::Source::Silence) meters.addLevel(slot, outputRows[slot]);
    meters.addBlock(upmixer.engine(), outputStage.surroundState(), outputStage.limiterGain(), faults);
}

void UpmixStream::State::reset() noexcept
{
    appliedMode = mode.load(kRelaxed);
    upmixer.restart(appliedMode);
    outputStage.reset();
    delay.clear();
    std::memset(outputRows, 0, sizeof outputRows);
    filledFrames = 0;
    tailFrames = 0;
    started = false;
    faults = {};
    meters.clear();
}

UpmixStream::UpmixStream(Checked checked)
    : state([&] {
          const DefaultFloatEnvironment environment; // for the coefficients of the filters
          return std::make_unique<State>(checked.configuration);
      }())
{}

UpmixStream::~UpmixStream() = default;
UpmixStream::UpmixStream(UpmixStream&&) noexcept = default;
UpmixStream& UpmixStream::operator=(UpmixStream&&) noexcept = default;

void UpmixStream::process(const void* input, void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    // Input buffers are only read.
    state->processFrames({.interleaved = static_cast<std::byte*>(const_cast<void*>(input))},
                         {.interleaved = static_cast<std::byte*>(output)}, frames);
    if (frames > 0) state->renewTail();
}

void UpmixStream::processPlanar(const float* const* input, float* const* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    // Input buffers are only read.
    state->processFrames({.planar = const_cast<float* const*>(input)}, {.planar = output}, frames);
    if (frames > 0) state->renewTail();
}

std::size_t UpmixStream::drain(void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    const std::size_t drained = state->shortenTail(frames);
    state->processFrames({}, {.interleaved = static_cast<std::byte*>(output)}, drained);
    return drained;
}

void UpmixStream::setRemap(const RemapGains& gains) noexcept
{
    state->setRemap(gains);
}

void UpmixStream::reset() noexcept
{
    const DefaultFloatEnvironment environment;
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

void UpmixStream::setLfeGain(float gain) noexcept
{
    state->lfeGain.store(clampedOr(gain, 0.0f, kMaxChannelGain, 1.0f), kRelaxed);
}

void UpmixStream::setBass(BassMode bass) noexcept
{
    state->bass.store(bass, kRelaxed);
}

void UpmixStream::setLimiting(bool limiting) noexcept
{
    state->limiting.store(limiting, kRelaxed);
}

void UpmixStream::setMode(SteeringMode mode) noexcept
{
    state->mode.store(mode, kRelaxed);
}

StreamMeters UpmixStream::meters() const noexcept
{
    const DefaultFloatEnvironment environment;
    return state->readMeters();
}

} // namespace zrk_tarn
