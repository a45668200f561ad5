// Streams never allocate, lock or make a system call after construction.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::SteeringMode;
using zrk_tarn::UpmixStream;

constexpr std::uint32_t kMaxFrames = 3000;
constexpr std::uint32_t kSlots = 8;
constexpr std::array<OutputSlot, kSlots> kColumns{
    {{OutputSlot::Source::Engine, 0}, {OutputSlot::Source::Engine, 1}, {OutputSlot::Source::Engine, 2}}};
constexpr std::array<OutputSlot, kSlots> kAllSources{{{OutputSlot::Source::Engine, 0},
                                                      {OutputSlot::Source::Engine, 1},
                                                      {OutputSlot::Source::Engine, 2},
                                                      {OutputSlot::Source::Input, 7},
                                                      {OutputSlot::Source::Surround, 0},
                                                      {OutputSlot::Source::Surround, 3},
                                                      {OutputSlot::Source::Lfe, 0},
                                                      {OutputSlot::Source::Dialogue, 1}}};
constexpr zrk_tarn::RemapGains kGains = {{{1u << 28}, {0, 1u << 28}, {0, 0, 1u << 28}}};

/// A stream and a host that calls its functions at random.
class StreamSession
{
public:
    explicit StreamSession(std::uint64_t seed)
        : random(seed),
          stream({.sampleRateHz = 96000,
                  .format = static_cast<SampleFormat>(seed % 5),
                  .inputSlots = kSlots,
                  .outputSlots = kSlots,
                  .outputs = seed % 2 == 0 ? kColumns : kAllSources,
                  .remap = seed % 2 == 0 ? std::optional(kGains) : std::nullopt,
                  .limiter = true,
                  .bass = seed % 2 == 0 ? zrk_tarn::BassMode::Steered : zrk_tarn::BassMode::Fronts}),
          isPlanar(seed % 5 == 4),
          buffer(std::size_t{kMaxFrames} * kSlots)
    {
        for (float& sample : buffer) sample = static_cast<float>(2.0 * random.uniform());
        for (std::size_t slot = 0; slot < kSlots; ++slot) rows[slot] = &buffer[slot * kMaxFrames];
    }

    void run()
    {
        for (int i = 0; i < 300; ++i) step();
    }

private:
    void step()
    {
        const auto frames = std::size_t{random.below(kMaxFrames + 1)};
        switch (random.below(18)) {
        case 0:
            stream.reset();
            break;
        case 1:
            drained += stream.drain(buffer.data(), frames);
            break;
        case 2:
            stream.setBypass(!stream.bypassed());
            break;
        case 3:
            stream.setMakeUpGain(static_cast<float>(10.0 * random.uniform()));
            break;
        case 4:
            stream.setMode(random.chance(2) ? SteeringMode::Fast : SteeringMode::Calm);
            break;
        case 5:
            stream.setRemap(kGains);
            break;
        case 6:
            drained += stream.meters().saturated;
            break;
        case 7:
            stream.process(nullptr, buffer.data(), frames);
            break;
        case 8:
            stream.setCentreGain(static_cast<float>(5.0 * random.uniform()));
            break;
        case 9:
            stream.setCentreWidth(static_cast<float>(random.uniform()));
            break;
        case 10:
            stream.setSurroundGain(static_cast<float>(5.0 * random.uniform()));
            break;
        case 11:
            stream.setBass(random.chance(2) ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered);
            break;
        case 12:
            stream.setLimiting(random.chance(2));
            break;
        case 13:
            stream.setLfeGain(static_cast<float>(5.0 * random.uniform()));
            break;
        case 14:
            if (isPlanar) stream.processPlanar(rows.data(), rows.data(), frames);
            break;
        default:
            stream.process(buffer.data(), buffer.data(), frames);
        }
    }

    Random random;
    UpmixStream stream;
    bool isPlanar;
    std::vector<float> buffer;
    std::array<float*, kSlots> rows;
    std::uint64_t drained = 0;
};

class RealTimeStream : public testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    }

    std::uint64_t seed() const { return static_cast<std::uint64_t>(GetParam()); }
};

} // namespace

TEST_P(RealTimeStream, DoesNotAllocateOrLock)
{
    StreamSession session(seed());
    EXPECT_EQ(forbiddenCallsOf([&] { session.run(); }), ForbiddenCalls{}) << "seed " << seed();
    EXPECT_GE(forbiddenCallsOf([&] { StreamSession(seed()).run(); }).allocations, 1u) << "constructors allocate";
}

TEST_P(RealTimeStream, MakesNoSystemCall)
{
    StreamSession session(seed());
    const auto calls = systemCallsOf([&] { session.run(); });
    if (!calls) GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(*calls, 0u) << "seed " << seed();
}

INSTANTIATE_TEST_SUITE_P(Seed, RealTimeStream, testing::Range(0, 10));

} // namespace tests
