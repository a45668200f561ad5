// The functions of the C interface do what those of UpmixStream do.
// SPDX-License-Identifier: MIT
#include "c_api/tarn.h"
#include "stream/upmix_stream.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace
{

/// Allocations that succeed before all others fail.
std::size_t allocationsLeft = std::numeric_limits<std::size_t>::max();

void* allocated(std::size_t size, std::size_t alignment)
{
    void* const memory =
        allocationsLeft == 0 ? nullptr : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (memory == nullptr) throw std::bad_alloc();
    --allocationsLeft;
    return memory;
}

} // namespace

void* operator new(std::size_t size)
{
    return allocated(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return allocated(size, static_cast<std::size_t>(alignment));
}

// Not inlined: GCC would warn about free for memory of operator new.

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

namespace tests
{

namespace
{

using zrk_tarn::BassMode;
using zrk_tarn::OutputSlot;
using zrk_tarn::RemapGains;
using zrk_tarn::SampleFormat;
using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

constexpr std::size_t kFrames = 9600;
constexpr std::size_t kSlots = 8;

struct Destroy
{
    void operator()(tarn_stream* stream) const { tarn_destroy(stream); }
};
using CStream = std::unique_ptr<tarn_stream, Destroy>;

/// Tones, noise that is louder on the left, and a loud end, over which the limiter works.
std::vector<float> signal()
{
    Random random(20);
    std::vector<float> samples(kFrames * kSlots);
    for (std::size_t i = 0; i < kFrames; ++i) {
        const float level = i < kFrames / 2 ? 0.25f : 1.0f;
        const auto tone = static_cast<float>(std::sin(0.01 * static_cast<double>(i)));
        samples[kSlots * i] = level * (tone + 0.5f * static_cast<float>(random.uniform()));
        for (std::size_t slot = 1; slot < kSlots; ++slot)
            samples[kSlots * i + slot] = level * (tone + 0.2f * static_cast<float>(random.uniform()));
    }
    return samples;
}

/// The same configuration for both interfaces.
struct Configurations
{
    StreamConfiguration cpp;
    tarn_configuration c;
};

/// Every kind of output slot, and the limiter.
Configurations everySource(BassMode bass = BassMode::Steered)
{
    using Source = OutputSlot::Source;
    Configurations both{{.sampleRateHz = 44100,
                         .inputSlots = kSlots,
                         .leftSlot = 2,
                         .rightSlot = 0,
                         .outputSlots = kSlots,
                         .outputs = {{{Source::Engine, 0},
                                      {Source::Engine, 1},
                                      {Source::Engine, 2},
                                      {Source::Input, 7},
                                      {Source::Surround, 0},
                                      {Source::Surround, 3},
                                      {Source::Lfe, 0},
                                      {Source::Dialogue, 1}}},
                         .limiter = true,
                         .bass = bass},
                        {}};
    tarn_defaults(&both.c, sizeof both.c);
    both.c.sample_rate = 44100;
    both.c.input_slots = both.c.output_slots = kSlots;
    both.c.left_slot = 2;
    both.c.right_slot = 0;
    for (std::size_t slot = 0; slot < kSlots; ++slot)
        both.c.outputs[slot] = {static_cast<std::uint32_t>(both.cpp.outputs[slot].source),
                                both.cpp.outputs[slot].index};
    both.c.limiter = 1;
    both.c.bass = static_cast<std::uint32_t>(bass);
    return both;
}

CStream created(const tarn_configuration& configuration)
{
    tarn_stream* stream = nullptr;
    EXPECT_EQ(tarn_create(&configuration, &stream), TARN_OK);
    return CStream(stream);
}

/// The same changes in both interfaces.
struct Changes
{
    std::string name;
    std::function<void(tarn_stream*)> c;
    std::function<void(UpmixStream&)> cpp;
};

void expectSameMeters(const tarn_meters& c, const StreamMeters& cpp)
{
    const auto same = [](const auto& a, const auto& b) {
        EXPECT_TRUE(std::equal(std::begin(a), std::end(a), std::begin(b), std::end(b)));
    };
    same(c.peak, cpp.peak);
    same(c.rms, cpp.rms);
    same(c.left_right, cpp.leftRight);
    same(c.front_back, cpp.frontBack);
    for (std::size_t group = 0; group < TARN_BAND_GROUPS; ++group)
        EXPECT_EQ(c.speed[group], static_cast<std::uint32_t>(cpp.speed[group]));
    EXPECT_EQ(c.blocks, cpp.blocks);
    EXPECT_EQ(c.saturated, cpp.saturated);
    EXPECT_EQ(c.invalid, cpp.invalid);
    EXPECT_EQ(c.limiter_gain, cpp.limiterGain);
    EXPECT_EQ(c.smallest_limiter_gain, cpp.smallestLimiterGain);
    EXPECT_EQ(c.limited_blocks, cpp.limitedBlocks);
    same(c.group_level, cpp.groupLevel);
    same(c.group_place, cpp.groupPlace);
    same(c.group_centre, cpp.groupCentre);
    same(c.group_upper_hz, cpp.groupUpperHz);
    same(c.group_surround, cpp.groupSurround);
}

/// Compares outputs and meters after the changes, and returns the output.
std::vector<float> outputOfBoth(const Configurations& both, const Changes& changes)
{
    SCOPED_TRACE(changes.name);
    const std::vector<float> input = signal();
    std::vector<float> ofC(input.size()), ofCpp(input.size());
    const CStream c = created(both.c);
    UpmixStream cpp(both.cpp);
    changes.c(c.get());
    changes.cpp(cpp);
    EXPECT_EQ(tarn_process(c.get(), input.data(), ofC.data(), kFrames), TARN_OK);
    cpp.process(input.data(), ofCpp.data(), kFrames);
    EXPECT_EQ(ofC, ofCpp);
    tarn_meters meters{};
    EXPECT_EQ(tarn_read_meters(c.get(), &meters, sizeof meters), TARN_OK);
    expectSameMeters(meters, cpp.meters());
    EXPECT_EQ(tarn_bypassed(c.get()), cpp.bypassed() ? 1 : 0);
    EXPECT_EQ(tarn_stream_latency_frames(c.get()), UpmixStream::latencyFrames(both.cpp));
    return ofC;
}

const Changes kNone{"none", [](tarn_stream*) {}, [](UpmixStream&) {}};

} // namespace

TEST(CAgainstCpp, EverySetterHasItsOwnEffect)
{
    const Changes changes[] = {
        {"bypass", [](tarn_stream* s) { tarn_set_bypass(s, 2); }, [](UpmixStream& s) { s.setBypass(true); }},
        {"gain", [](tarn_stream* s) { tarn_set_make_up_gain(s, 0.5f); }, [](UpmixStream& s) { s.setMakeUpGain(0.5f); }},
        {"centre", [](tarn_stream* s) { tarn_set_centre_gain(s, 0.5f); },
         [](UpmixStream& s) { s.setCentreGain(0.5f); }},
        {"width", [](tarn_stream* s) { tarn_set_centre_width(s, 0.5f); },
         [](UpmixStream& s) { s.setCentreWidth(0.5f); }},
        {"surrounds", [](tarn_stream* s) { tarn_set_surround_gain(s, 0.5f); },
         [](UpmixStream& s) { s.setSurroundGain(0.5f); }},
        {"LFE", [](tarn_stream* s) { tarn_set_lfe_gain(s, 0.5f); }, [](UpmixStream& s) { s.setLfeGain(0.5f); }},
        {"bass", [](tarn_stream* s) { tarn_set_bass(s, TARN_BASS_FRONTS); },
         [](UpmixStream& s) { s.setBass(BassMode::Fronts); }},
        {"limiting", [](tarn_stream* s) { tarn_set_limiting(s, 0); }, [](UpmixStream& s) { s.setLimiting(false); }},
        {"mode", [](tarn_stream* s) { tarn_set_mode(s, TARN_CALM); },
         [](UpmixStream& s) { s.setMode(SteeringMode::Calm); }}};
    std::vector<std::vector<float>> outputs{outputOfBoth(everySource(), kNone)};
    for (const Changes& change : changes) {
        outputs.push_back(outputOfBoth(everySource(), change));
        for (std::size_t other = 0; other + 1 < outputs.size(); ++other)
            EXPECT_NE(outputs.back(), outputs[other]) << change.name << ", " << other;
    }
}

TEST(CAgainstCpp, UnknownModesAreCalmAndUnknownBassIsSteered)
{
    for (const int unknown : {2, 255, 256, 257, -1, -256, INT32_MIN}) {
        const auto number = [&](const char* what) { return what + std::to_string(unknown); };
        outputOfBoth(everySource(), {number("mode "), [=](tarn_stream* s) { tarn_set_mode(s, unknown); },
                                     [](UpmixStream& s) { s.setMode(SteeringMode::Calm); }});
        outputOfBoth(everySource(BassMode::Fronts),
                     {number("bass "), [=](tarn_stream* s) { tarn_set_bass(s, unknown); },
                      [](UpmixStream& s) { s.setBass(BassMode::Steered); }});
    }
    outputOfBoth(everySource(), {"limiting 256",
                                 [](tarn_stream* s) {
                                     tarn_set_limiting(s, 0);
                                     tarn_set_limiting(s, 256);
                                 },
                                 [](UpmixStream& s) { s.setLimiting(true); }});
}

TEST(CAgainstCpp, EveryMemberOfAConfigurationHasItsOwnEffect)
{
    Configurations both = everySource();
    const std::vector<float> plain = outputOfBoth(both, kNone);
    both.cpp.mode = SteeringMode::Calm;
    both.c.mode = TARN_CALM;
    EXPECT_NE(outputOfBoth(both, kNone), plain);
    EXPECT_NE(outputOfBoth(everySource(BassMode::Fronts), kNone), plain);

    both = everySource();
    both.c.limiter = 256; // not 0
    EXPECT_EQ(outputOfBoth(both, kNone), plain);
    both.c.limiter = 0;
    both.cpp.limiter = false;
    EXPECT_NE(outputOfBoth(both, kNone), plain);

    const std::int32_t gains[3][4] = {{1 << 28, 0, 0, 1 << 26}, {0, 1 << 28, -(1 << 27), 0}, {0, 0, 1 << 26, 1 << 27}};
    both = everySource();
    both.cpp.outputs = {};
    both.cpp.remap = RemapGains{};
    for (std::size_t column = 0; column < 4; ++column) {
        both.cpp.outputs[column] = {OutputSlot::Source::Engine, static_cast<std::uint8_t>(column)};
        for (std::size_t row = 0; row < 3; ++row) {
            both.c.gains[row][column] = gains[row][column];
            both.cpp.remap->gain[row][column] = static_cast<std::uint32_t>(gains[row][column]);
        }
    }
    for (std::size_t slot = 0; slot < kSlots; ++slot)
        both.c.outputs[slot] = {static_cast<std::uint32_t>(both.cpp.outputs[slot].source),
                                both.cpp.outputs[slot].index};
    both.c.remap = 256; // not 0
    EXPECT_NE(outputOfBoth(both, kNone), plain);
}

TEST(CAgainstCpp, MetersShowMidSpeedInsteadOfFastInCalmMode)
{
    const std::vector<float> input = signal();
    std::vector<float> output(input.size());
    const Configurations both = everySource();
    const CStream stream = created(both.c);
    const auto fastest = [&] {
        EXPECT_EQ(tarn_process(stream.get(), input.data(), output.data(), kFrames), TARN_OK);
        tarn_meters meters{};
        EXPECT_EQ(tarn_read_meters(stream.get(), &meters, sizeof meters), TARN_OK);
        return *std::max_element(std::begin(meters.speed), std::end(meters.speed));
    };
    EXPECT_EQ(fastest(), 3u);
    tarn_set_mode(stream.get(), TARN_CALM);
    EXPECT_EQ(fastest(), 2u);
    tarn_set_mode(stream.get(), TARN_FAST);
    EXPECT_EQ(fastest(), 3u);
}

TEST(CAgainstCpp, EveryFailedAllocationIsReported)
{
    const Configurations both = everySource(BassMode::Fronts);
    std::size_t allocations = 0;
    for (tarn_status status = TARN_NO_MEMORY; status != TARN_OK; ++allocations) {
        auto* stream = reinterpret_cast<tarn_stream*>(&status);
        allocationsLeft = allocations;
        status = tarn_create(&both.c, &stream);
        allocationsLeft = std::numeric_limits<std::size_t>::max();
        if (status == TARN_OK) {
            tarn_destroy(stream);
        } else {
            ASSERT_EQ(status, TARN_NO_MEMORY) << allocations;
            EXPECT_EQ(stream, nullptr);
        }
    }
    EXPECT_GT(allocations, 3u);
}

} // namespace tests
