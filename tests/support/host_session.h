// Random sessions of a host.
// SPDX-License-Identifier: MIT
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

/// One step of a host: optional changes of the configuration, and a process call.
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
    Signal signal; ///< in the buffer
    std::uint32_t frames;
    GuardedBuffer buffer;
    bool givesBuffer;     ///< otherwise null
    bool givesAssignment; ///< otherwise null
};

std::ostream& operator<<(std::ostream& stream, const HostCall& call);

/// Runs a call on an object of the library or of the reference, with the given buffer. Returns the bitwise or of all
/// results.
template <typename Processor>
std::uint32_t runCall(HostCall& call, GuardedBuffer& buffer, Processor& processor)
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

/// The same with the buffer of the call.
template <typename Processor>
std::uint32_t runCall(HostCall& call, Processor& processor)
{
    return runCall(call, call.buffer, processor);
}

/// Random calls: configurations, formats and assignments, valid and invalid, and buffers of all lengths. The same calls
/// for the same seed.
class HostSession
{
public:
    explicit HostSession(std::uint64_t seed) : random(seed) {}

    HostCall nextCall();

private:
    void changeFormat();
    void changeAssignment();

    Random random;
    std::uint32_t sampleRate = 48000;
    std::uint32_t bitsPerSample = 16;
    std::uint32_t slots = 6;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0}};
    Signal signal = Signal::DiffuseNoise;
    std::uint64_t time = 0;
};

} // namespace tests
