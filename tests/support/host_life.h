#pragma once

#include "host/zrk_tarn_processor.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <type_traits>

namespace tests
{

/// What a host does at one time: perhaps it changes the configuration, then it has a buffer processed.
struct HostCall
{
    struct Setup
    {
        std::int32_t mode;
        std::int32_t option;
        float mixFraction;
    };
    struct Gains
    {
        unsigned of[3][4];
    };

    std::optional<Setup> setup;
    std::optional<Gains> gains; ///< of the remap matrix

    std::uint32_t sampleRate;
    std::uint32_t bitsPerSample;
    std::uint32_t slots;
    audio_channel_assignment_t assignment;
    Signal signal; ///< what is in the buffer
    std::uint32_t frames;
    GuardedBuffer buffer;
    bool givesBuffer;
    bool givesAssignment;
};

std::ostream& operator<<(std::ostream& stream, const HostCall& call);

/// Makes a call to an object of the library or of the reference, in place in a copy of its buffer or in its own.
/// Returns what the object's operations return, or-ed together.
template <typename Processor>
std::uint32_t make(HostCall& call, GuardedBuffer& buffer, Processor& processor)
{
    std::uint32_t status = 0;
    if (call.setup) status |= processor.setup(call.setup->mode, call.setup->option, call.setup->mixFraction);
    if (call.gains) status |= processor.set_remap_coeff(call.gains->of);
    std::uint8_t* const bytes = call.givesBuffer ? buffer.data() : nullptr;
    const auto process = [&](auto* assignment) {
        return processor.process(bytes, call.frames, call.slots, call.sampleRate, call.bitsPerSample,
                                 call.givesAssignment ? assignment : nullptr);
    };
    if constexpr (std::is_same_v<Processor, zrk_tarn_processor_t>) {
        return status | process(&call.assignment);
    } else {
        return status | process(call.assignment.code);
    }
}

/// The same in the call's own buffer.
template <typename Processor>
std::uint32_t make(HostCall& call, Processor& processor)
{
    return make(call, call.buffer, processor);
}

/// Random lives of a host: configurations, formats and assignments that are valid, odd or rejected, buffers of every
/// length. The same calls for the same seed.
class HostLife
{
public:
    explicit HostLife(std::uint64_t seed) : random_(seed) {}

    HostCall nextCall();

private:
    void changeFormat();
    void changeAssignment();

    Random random_;
    std::uint32_t sampleRate_ = 48000;
    std::uint32_t bitsPerSample_ = 16;
    std::uint32_t slots_ = 6;
    audio_channel_assignment_t assignment_{{0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0}};
    Signal signal_ = Signal::DiffuseNoise;
    std::uint64_t time_ = 0;
};

} // namespace tests
