#include "stream/upmix_stream.h"

#include "filterbank/cos_mod.h"
#include "host/zrk_tarn_processor.h"
#include "lanes/float_environment.h"
#include "stream/block.h"
#include "stream/block_delay.h"
#include "stream/meter_board.h"
#include "stream/sample_rows.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <iterator>

namespace zrk_tarn
{

namespace
{

using Codes = audio_channel_assignment_t;

constexpr auto kRelaxed = std::memory_order_relaxed;

constexpr float kMostGain = 8.0f;
constexpr std::size_t kFadeFrames = 1024; ///< crossfades and changes of gain take so many
constexpr std::size_t kPlainSlots = 3;

static_assert(UpmixStream::latencyFrames() == (kEngineDelayBlocks + 1) * kBlockFrames);

// Streams may be made on several threads at once, and none of them may be the one that fills the tables: they are
// filled when the library is loaded.
[[maybe_unused]] const bool kTablesAreFilled = (cosModTablesInit(), true);

/// Where a slot's samples lie in a host's memory.
struct HostRow
{
    std::byte* first; ///< null for none
    std::size_t stride;
};

/// A value that moves evenly to a new target, and is there after kFadeFrames.
class Glide
{
public:
    explicit Glide(float value) noexcept : start_(static_cast<double>(value)), target_(start_) {}

    /// Begins the next block.
    void approach(float target) noexcept
    {
        framesDone_ = std::min(framesDone_ + kBlockFrames, kFadeFrames);
        if (static_cast<double>(target) == target_) return;
        start_ = after(framesDone_);
        target_ = static_cast<double>(target);
        framesDone_ = 0;
    }

    /// Whether it is at a value for the whole block.
    bool standsAt(float value) const noexcept
    {
        return target_ == static_cast<double>(value) && (framesDone_ == kFadeFrames || start_ == target_);
    }

    /// The value behind a frame of the block.
    double at(std::size_t frame) const noexcept { return after(framesDone_ + frame + 1); }

private:
    /// The value so many frames after the target was new.
    double after(std::size_t frames) const noexcept
    {
        if (frames >= kFadeFrames) return target_;
        return start_ + (target_ - start_) * (static_cast<double>(frames) / static_cast<double>(kFadeFrames));
    }

    double start_;
    double target_;
    std::size_t framesDone_ = kFadeFrames; ///< before the block
};

std::int32_t processorMode(SteeringMode mode) noexcept
{
    return mode == SteeringMode::Fast ? 0 : 1;
}

bool isSupportedRate(std::uint32_t rateHz) noexcept
{
    constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
    return std::find(std::begin(kRatesHz), std::end(kRatesHz), rateHz) != std::end(kRatesHz);
}

bool isSlotCount(std::uint32_t slots) noexcept
{
    return slots >= 1 && slots <= kMostSlots;
}

const char* problemOf(const OutputSlot& slot, const StreamConfiguration& configuration) noexcept
{
    switch (slot.source) {
    case OutputSlot::Source::Engine:
        if (configuration.remap) return slot.index < 4 ? nullptr : "a remapped engine has outputs 0 to 3";
        return slot.index < 3 ? nullptr : "the engine has outputs 0 to 2, or 0 to 3 with a remap matrix";
    case OutputSlot::Source::Input:
        return slot.index < configuration.inputSlots ? nullptr
                                                     : "an output slot passes an input slot that is not there";
    case OutputSlot::Source::Silence:
        return nullptr;
    }
    return "an output slot has an unknown source";
}

} // namespace

/// A block on its way: frames of the host come into the input rows while the output rows of the block before go out;
/// when the input rows are full, the engine makes the next output rows of them.
class UpmixStream::State
{
public:
    explicit State(const StreamConfiguration& configuration)
        : configuration_(configuration),
          rows_(rowsOf(configuration.format)),
          meters_(configuration.sampleRateHz, rows_.bits),
          mode_(configuration.mode),
          modeInForce_(configuration.mode)
    {
        if (configuration.remap) {
            assignment_ = {{Codes::kLeft, Codes::kRight, Codes::kRemapColumn2, Codes::kRemapColumn3, 0, 0, 0, 0}};
            engineSlots_ = kMostSlots;
            setRemap(*configuration.remap);
        } else {
            assignment_ = {{Codes::kLeft, Codes::kRight, Codes::kCentre, 0, 0, 0, 0, 0}};
            engineSlots_ = kPlainSlots;
        }
        processor_.setup(processorMode(configuration.mode), 0, configuration.mixFraction);
        // A call without frames creates the engine, so that none of the stream's calls has to.
        processor_.process(nullptr, 0, engineSlots_, configuration_.sampleRateHz, rows_.bits, &assignment_);
    }

    const StreamConfiguration& configuration() const noexcept { return configuration_; }
    const SampleRows& rows() const noexcept { return rows_; }

    /// Carries frames from input rows to output rows. Every frame is read before one in its place is written.
    [[gnu::noinline]] void carry(const HostRow (&input)[kMostSlots], const HostRow (&output)[kMostSlots],
                                 std::size_t frames) noexcept
    {
        if (frames > 0 && !started_) {
            started_ = true;
            stand();
        }
        for (std::size_t done = 0; done < frames;) {
            const std::size_t some = std::min(frames - done, kBlockFrames - filled_);
            Row taken[kMostSlots];
            for (std::size_t slot = 0; slot < configuration_.inputSlots; ++slot)
                take(input[slot], done, some, taken[slot]);
            for (std::size_t slot = 0; slot < configuration_.outputSlots; ++slot) {
                const auto& [first, stride] = output[slot];
                if (first != nullptr) rows_.store(output_[slot] + filled_, some, first + done * stride, stride);
            }
            for (std::size_t slot = 0; slot < configuration_.inputSlots; ++slot)
                std::copy_n(taken[slot], some, input_[slot] + filled_);
            filled_ += some;
            done += some;
            if (filled_ == kBlockFrames) processBlock();
        }
    }

    void setRemap(const RemapGains& gains) noexcept
    {
        unsigned words[3][4];
        std::memcpy(words, gains.gain, sizeof words);
        processor_.set_remap_coeff(words);
    }

    void expectTail() noexcept { tail_ = latencyFrames(); }

    /// How much of the tail can be given, which is then gone.
    std::size_t takeTail(std::size_t frames) noexcept
    {
        const std::size_t some = std::min(frames, tail_);
        tail_ -= some;
        return some;
    }

    void reset() noexcept
    {
        *processor_.engine = ZRKTarn();
        initialiseAgain();
        for (BlockDelay& delay : delays_) delay = {};
        std::memset(input_, 0, sizeof input_);
        std::memset(output_, 0, sizeof output_);
        filled_ = 0;
        tail_ = 0;
        started_ = false;
        faults_ = {};
        meters_.clear();
    }

    void setBypass(bool bypassed) noexcept { bypassed_.store(bypassed, kRelaxed); }
    bool bypassed() const noexcept { return bypassed_.load(kRelaxed); }
    void setMakeUpGain(float gain) noexcept
    {
        gainTarget_.store(std::isnan(gain) ? 1.0f : std::clamp(gain, 0.0f, kMostGain), kRelaxed);
    }
    void setMode(SteeringMode mode) noexcept { mode_.store(mode, kRelaxed); }
    StreamMeters meters() const noexcept { return meters_.read(); }

private:
    void take(const HostRow& row, std::size_t done, std::size_t frames, Row& taken) noexcept
    {
        if (row.first == nullptr) {
            std::fill_n(taken, frames, 0);
        } else {
            rows_.load(row.first + done * row.stride, row.stride, frames, taken, faults_);
        }
    }

    float wetTarget() const noexcept { return bypassed() ? 0.0f : 1.0f; }

    /// Puts bypass and gain where they are to be, without a way there.
    void stand() noexcept
    {
        wet_ = Glide(wetTarget());
        gain_ = Glide(gainTarget_.load(kRelaxed));
    }

    /// Makes the engine's next call configure it, as if it were new but for the signal that it holds.
    void initialiseAgain() noexcept
    {
        modeInForce_ = mode_.load(kRelaxed);
        processor_.setup(processorMode(modeInForce_), 0, configuration_.mixFraction);
        // Initialising scales the smoothing from what it is.
        ZRKTarn& engine = *processor_.engine;
        std::copy_n(ZRKTarn::SLOWER, 2, engine.slower);
        std::copy_n(ZRKTarn::SLOW, 2, engine.slow);
        std::copy_n(ZRKTarn::MID, 2, engine.mid);
        std::copy_n(ZRKTarn::FAST, 2, engine.fast);
        processor_.sampleRate = 0; // the next call brings another rate
    }

    void processBlock() noexcept
    {
        filled_ = 0;
        if (mode_.load(kRelaxed) != modeInForce_) initialiseAgain();
        wet_.approach(wetTarget());
        gain_.approach(gainTarget_.load(kRelaxed));

        Row delayed[kMostSlots];
        for (std::size_t slot = 0; slot < configuration_.inputSlots; ++slot)
            delays_[slot].pass(input_[slot], delayed[slot]);
        Row upmixed[4];
        upmix(input_[configuration_.leftSlot], input_[configuration_.rightSlot], upmixed);

        for (std::size_t slot = 0; slot < configuration_.outputSlots; ++slot) {
            const auto& [source, index] = configuration_.outputs[slot];
            if (source == OutputSlot::Source::Engine) {
                mix(upmixed[index], dryRow(index, delayed), output_[slot]);
            } else if (source == OutputSlot::Source::Input) {
                std::copy_n(delayed[index], kBlockFrames, output_[slot]);
            } // silent rows stay silent
            meters_.level(slot, output_[slot]);
        }
        meters_.block(*processor_.engine, faults_);
    }

    /// One block through the engine.
    void upmix(const Row& left, const Row& right, Row (&outputs)[4]) noexcept
    {
        const std::size_t bytes = rows_.bits / 8;
        const std::size_t stride = engineSlots_ * bytes;
        const SampleRows& packed = rowsOf(rows_.bits == 16   ? SampleFormat::S16
                                          : rows_.bits == 24 ? SampleFormat::S24
                                                             : SampleFormat::S32);
        packed.store(left, kBlockFrames, hostBlock_, stride);
        packed.store(right, kBlockFrames, hostBlock_ + bytes, stride);
        processor_.process(hostBlock_, kBlockFrames, engineSlots_, configuration_.sampleRateHz, rows_.bits,
                           &assignment_);
        const std::size_t columns = configuration_.remap ? 4 : 3;
        for (std::size_t row = 0; row < columns; ++row)
            packed.load(hostBlock_ + row * bytes, stride, kBlockFrames, outputs[row], faults_);
    }

    /// What an output of the engine carries while it is bypassed: left, right, or null for silence.
    const Row* dryRow(std::size_t engineOutput, const Row (&delayed)[kMostSlots]) const noexcept
    {
        if (engineOutput == 0) return &delayed[configuration_.leftSlot];
        if (engineOutput == 1) return &delayed[configuration_.rightSlot];
        return nullptr;
    }

    void mix(const Row& wet, const Row* dry, Row& out) noexcept
    {
        if (wet_.standsAt(1.0f) && gain_.standsAt(1.0f)) {
            std::copy_n(wet, kBlockFrames, out);
            return;
        }
        if (wet_.standsAt(0.0f)) {
            for (std::size_t i = 0; i < kBlockFrames; ++i) out[i] = dry != nullptr ? (*dry)[i] : 0;
            return;
        }
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
            const double part = wet_.at(i);
            const double other = dry != nullptr ? (1.0 - part) * static_cast<double>((*dry)[i]) : 0.0;
            out[i] = saturated(part * gain_.at(i) * static_cast<double>(wet[i]) + other);
        }
    }

    /// Rounds half away from zero to the format's width.
    std::int32_t saturated(double value) noexcept
    {
        const std::int64_t limit = std::int64_t{1} << (rows_.bits - 1);
        const auto rounded = static_cast<std::int64_t>(value < 0.0 ? value - 0.5 : value + 0.5);
        if (rounded >= -limit && rounded < limit) return static_cast<std::int32_t>(rounded);
        ++faults_.saturated;
        return static_cast<std::int32_t>(rounded < 0 ? -limit : limit - 1);
    }

    const StreamConfiguration configuration_;
    const SampleRows& rows_;

    zrk_tarn_processor_t processor_;
    audio_channel_assignment_t assignment_{};
    std::uint32_t engineSlots_ = 0;
    std::byte hostBlock_[kBlockFrames * kMostSlots * sizeof(std::int32_t)]{};

    Row input_[kMostSlots]{};
    Row output_[kMostSlots]{};
    std::size_t filled_ = 0;        ///< frames of the input rows, and of the output rows that went out
    BlockDelay delays_[kMostSlots]; ///< by input slot
    std::size_t tail_ = 0;          ///< frames that have still to come out

    bool started_ = false; ///< a frame has come since the stream was new
    Glide wet_{1.0f};
    Glide gain_{1.0f};
    SampleFaults faults_;
    MeterBoard meters_;

    // Written by any thread.
    std::atomic<bool> bypassed_ = false;
    std::atomic<float> gainTarget_ = 1.0f;
    std::atomic<SteeringMode> mode_;
    SteeringMode modeInForce_;
};

namespace
{

/// The rows of an interleaved buffer.
void interleavedRows(void* buffer, std::size_t slots, std::size_t sampleBytes, HostRow (&rows)[kMostSlots]) noexcept
{
    auto* const first = static_cast<std::byte*>(buffer);
    for (std::size_t slot = 0; slot < slots; ++slot)
        rows[slot] = {.first = first == nullptr ? nullptr : first + slot * sampleBytes, .stride = slots * sampleBytes};
}

} // namespace

const char* UpmixStream::problemOf(const StreamConfiguration& configuration) noexcept
{
    if (!isSupportedRate(configuration.sampleRateHz))
        return "the sample rate has to be 32000, 44100, 48000, 64000, 88200, 96000 or 192000 Hz";
    if (configuration.format > SampleFormat::F32) return "the sample format is unknown";
    if (!isSlotCount(configuration.inputSlots)) return "there have to be 1 to 8 input slots";
    if (configuration.leftSlot >= configuration.inputSlots || configuration.rightSlot >= configuration.inputSlots)
        return "left and right have to be among the input slots";
    if (!isSlotCount(configuration.outputSlots)) return "there have to be 1 to 8 output slots";
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot)
        if (const char* const problem = zrk_tarn::problemOf(configuration.outputs[slot], configuration)) return problem;
    if (configuration.mode > SteeringMode::Calm) return "the steering mode is unknown";
    if (!(configuration.mixFraction >= 0.0f && configuration.mixFraction <= 1.0f))
        return "the mix fraction has to be 0 to 1";
    return nullptr;
}

UpmixStream::UpmixStream(Checked checked) : state_(std::make_unique<State>(checked.configuration)) {}

UpmixStream::~UpmixStream() = default;
UpmixStream::UpmixStream(UpmixStream&&) noexcept = default;
UpmixStream& UpmixStream::operator=(UpmixStream&&) noexcept = default;

void UpmixStream::process(const void* input, void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    HostRow from[kMostSlots]{};
    HostRow to[kMostSlots]{};
    // Input rows are only read.
    interleavedRows(const_cast<void*>(input), state_->configuration().inputSlots, state_->rows().bytes, from);
    interleavedRows(output, state_->configuration().outputSlots, state_->rows().bytes, to);
    state_->carry(from, to, frames);
    if (frames > 0) state_->expectTail();
}

void UpmixStream::processPlanar(const float* const* input, float* const* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    HostRow from[kMostSlots]{};
    HostRow to[kMostSlots]{};
    for (std::size_t slot = 0; slot < state_->configuration().inputSlots; ++slot)
        from[slot] = {.first = reinterpret_cast<std::byte*>(const_cast<float*>(input[slot])), .stride = sizeof(float)};
    for (std::size_t slot = 0; slot < state_->configuration().outputSlots; ++slot)
        to[slot] = {.first = reinterpret_cast<std::byte*>(output[slot]), .stride = sizeof(float)};
    state_->carry(from, to, frames);
    if (frames > 0) state_->expectTail();
}

std::size_t UpmixStream::drain(void* output, std::size_t frames) noexcept
{
    const DefaultFloatEnvironment environment;
    const std::size_t some = state_->takeTail(frames);
    const HostRow silence[kMostSlots]{};
    HostRow to[kMostSlots]{};
    interleavedRows(output, state_->configuration().outputSlots, state_->rows().bytes, to);
    state_->carry(silence, to, some);
    return some;
}

void UpmixStream::setRemap(const RemapGains& gains) noexcept
{
    state_->setRemap(gains);
}

void UpmixStream::reset() noexcept
{
    state_->reset();
}

void UpmixStream::setBypass(bool bypassed) noexcept
{
    state_->setBypass(bypassed);
}

bool UpmixStream::bypassed() const noexcept
{
    return state_->bypassed();
}

void UpmixStream::setMakeUpGain(float gain) noexcept
{
    state_->setMakeUpGain(gain);
}

void UpmixStream::setMode(SteeringMode mode) noexcept
{
    state_->setMode(mode);
}

StreamMeters UpmixStream::meters() const noexcept
{
    return state_->meters();
}

} // namespace zrk_tarn
