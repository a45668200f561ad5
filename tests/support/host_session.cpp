// Random sessions of a host.
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
    if (random_.chance(20)) {
        const auto mode = static_cast<std::int32_t>(random_.below(5)) - 1;
        const auto option = static_cast<std::int32_t>(random_.bits());
        setup = {mode, option, static_cast<float>(1.3 * random_.uniform())};
    }
    std::optional<HostCall::Gains> gains;
    if (random_.chance(10)) {
        gains.emplace();
        for (auto& row : gains->of)
            for (unsigned& gain : row) gain = random_.chance(3) ? 0 : random_.chance(2) ? 0x10000000u : random_.bits();
    }
    if (random_.chance(25)) changeFormat();
    if (random_.chance(12)) changeAssignment();
    if (random_.chance(10)) signal_ = kAllSignals[random_.below(kAllSignals.size())];

    const std::uint32_t frames = random_.chance(3) ? random_.below(400) : 64 * random_.below(5);
    GuardedBuffer buffer(frames, slots_, bitsPerSample_);
    const std::uint32_t width = std::clamp(bitsPerSample_, 2u, 32u);
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (std::size_t slot = 0; slot < slots_; slot += 2) {
            const Frame frame = frameOf(signal_, time_, random_);
            buffer.set(i, slot, sampleOf(frame.left, width));
            if (slot + 1 < slots_) buffer.set(i, slot + 1, sampleOf(frame.right, width));
        }
        ++time_;
    }

    const bool givesBuffer = !random_.chance(40);
    const bool givesAssignment = !random_.chance(40);
    return {setup,   gains,  sampleRate_,       bitsPerSample_, slots_,         assignment_,
            signal_, frames, std::move(buffer), givesBuffer,    givesAssignment};
}

void HostSession::changeFormat()
{
    constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 8000, 0};
    constexpr std::uint32_t kWidths[] = {16, 24, 32, 16, 24, 32, 12, 20, 25, 8, 0, 64};
    if (random_.chance(2)) sampleRate_ = random_.oneOf(kRatesHz);
    if (random_.chance(2)) bitsPerSample_ = random_.oneOf(kWidths);
}

void HostSession::changeAssignment()
{
    constexpr std::uint32_t kCodes[] = {0x2000,  0x8000,  0x4000,  0x10000, 0x200,      0x1000,
                                        0x40000, 0x80000, 0x20000, 0,       0x80000000, 1};
    slots_ = random_.chance(20) ? 9 + random_.below(4) : random_.chance(3) ? 8 : random_.below(9);
    for (std::uint32_t& code : assignment_.code) code = random_.oneOf(kCodes);
    if (random_.chance(2)) {
        // Often an assignment with all roles, in any order.
        std::uint32_t roles[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000};
        for (std::uint32_t i = 0; i < 5 && i < slots_; ++i) {
            std::swap(roles[i], roles[i + random_.below(5 - i)]);
            assignment_.code[i] = roles[i];
        }
    }
}

} // namespace tests
