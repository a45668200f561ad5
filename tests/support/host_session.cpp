// Random sessions of a host.
// SPDX-License-Identifier: MIT
#include "tests/support/host_session.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace tests
{

std::ostream& operator<<(std::ostream& stream, const HostCall& call)
{
    return stream << call.sampleRate << " Hz, " << call.bitsPerSample << " bits, " << call.slots << " slots, "
                  << call.frames << " frames, " << call.signal;
}

HostCall HostSession::nextCall()
{
    std::optional<HostCall::Setup> setup;
    if (random.chance(20)) {
        const auto mode = static_cast<std::int32_t>(random.below(5)) - 1;
        const auto option = static_cast<std::int32_t>(random.bits());
        setup = {mode, option, static_cast<float>(1.3 * random.uniform())};
    }
    std::optional<HostCall::Gains> gains;
    if (random.chance(10)) {
        gains.emplace();
        for (auto& row : gains->of)
            for (unsigned& gain : row) gain = random.chance(3) ? 0 : random.chance(2) ? 0x10000000u : random.bits();
    }
    if (random.chance(25)) changeFormat();
    if (random.chance(12)) changeAssignment();
    if (random.chance(10)) signal = kAllSignals[random.below(kAllSignals.size())];

    const std::uint32_t frames = random.chance(3) ? random.below(400) : 64 * random.below(5);
    GuardedBuffer buffer(frames, slots, bitsPerSample);
    const std::uint32_t width = std::clamp(bitsPerSample, 2u, 32u);
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (std::size_t slot = 0; slot < slots; slot += 2) {
            const Frame frame = frameOf(signal, time, random);
            buffer.set(i, slot, sampleOf(frame.left, width));
            if (slot + 1 < slots) buffer.set(i, slot + 1, sampleOf(frame.right, width));
        }
        ++time;
    }

    const bool givesBuffer = !random.chance(40);
    const bool givesAssignment = !random.chance(40);
    return {setup,  gains,  sampleRate,        bitsPerSample, slots,          assignment,
            signal, frames, std::move(buffer), givesBuffer,   givesAssignment};
}

void HostSession::changeFormat()
{
    constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 8000, 0};
    constexpr std::uint32_t kWidths[] = {16, 24, 32, 16, 24, 32, 12, 20, 25, 8, 0, 64};
    if (random.chance(2)) sampleRate = random.oneOf(kRatesHz);
    if (random.chance(2)) bitsPerSample = random.oneOf(kWidths);
}

void HostSession::changeAssignment()
{
    constexpr std::uint32_t kCodes[] = {0x2000,  0x8000,  0x4000,  0x10000, 0x200,      0x1000,
                                        0x40000, 0x80000, 0x20000, 0,       0x80000000, 1};
    slots = random.chance(20) ? 9 + random.below(4) : random.chance(3) ? 8 : random.below(9);
    for (std::uint32_t& code : assignment.code) code = random.oneOf(kCodes);
    if (random.chance(2)) {
        // Often an assignment with all roles, in any order.
        std::uint32_t roles[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000};
        for (std::uint32_t i = 0; i < 5 && i < slots; ++i) {
            std::swap(roles[i], roles[i + random.below(5 - i)]);
            assignment.code[i] = roles[i];
        }
    }
}

} // namespace tests
