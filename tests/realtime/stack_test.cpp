// Real-time calls need little stack, because hosts run audio threads with small stacks.
// SPDX-License-Identifier: MIT
#include "c_api/tarn.h"
#include "dispatch/instruction_sets.h"
#include "host/zrk_tarn_processor.h"
#include "tests/realtime/stack_bytes.h"
#include "tests/support/field_bits.h"
#include "tests/support/random.h"
#include "tests/support/record_fields.h"
#include "tests/support/subnormal_speed_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tests
{

namespace
{

constexpr std::size_t kMaxFrames = 1000;

using Call = std::pair<std::string, std::function<void()>>;

/// Every real-time call of the C interface for one stream, which call UpmixStream.
class Calls
{
public:
    Calls(std::uint32_t format, bool remapped) : buffer(kMaxFrames * TARN_MAX_SLOTS)
    {
        Random random(format);
        for (float& sample : buffer) sample = static_cast<float>(random.uniform());
        for (std::size_t slot = 0; slot < TARN_MAX_SLOTS; ++slot) rows[slot] = &buffer[slot * kMaxFrames];
        tarn_configuration configuration;
        tarn_defaults(&configuration, sizeof configuration);
        configuration.format = format;
        configuration.input_slots = configuration.output_slots = TARN_MAX_SLOTS;
        configuration.remap = remapped ? 1 : 0;
        configuration.limiter = 1;
        if (!remapped) {
            configuration.bass = TARN_BASS_FRONTS;
            constexpr tarn_slot kAll[] = {{TARN_FROM_ENGINE, 0}, {TARN_FROM_ENGINE, 1}, {TARN_FROM_ENGINE, 2},
                                          {TARN_FROM_INPUT, 7},  {TARN_SURROUND, 0},    {TARN_SURROUND, 3},
                                          {TARN_LFE, 0},         {TARN_DIALOGUE, 1}};
            std::copy(std::begin(kAll), std::end(kAll), configuration.outputs);
        }
        std::memcpy(configuration.gains, kGains, sizeof kGains);
        EXPECT_EQ(tarn_create(&configuration, &stream), TARN_OK);
    }

    ~Calls() { tarn_destroy(stream); }
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;

    std::vector<Call> all()
    {
        void* const memory = buffer.data();
        return {{"process", [=, this] { tarn_process(stream, memory, memory, kMaxFrames); }},
                {"process_planar", [this] { tarn_process_planar(stream, rows.data(), rows.data(), kMaxFrames); }},
                {"set_mode", [this] { tarn_set_mode(stream, TARN_CALM); }},
                {"set_bypass", [this] { tarn_set_bypass(stream, 1); }},
                {"set_make_up_gain", [this] { tarn_set_make_up_gain(stream, 2.0f); }},
                {"set_centre_gain", [this] { tarn_set_centre_gain(stream, 2.0f); }},
                {"set_centre_width", [this] { tarn_set_centre_width(stream, 0.5f); }},
                {"set_surround_gain", [this] { tarn_set_surround_gain(stream, 0.5f); }},
                {"set_lfe_gain", [this] { tarn_set_lfe_gain(stream, 0.5f); }},
                {"set_bass", [this] { tarn_set_bass(stream, TARN_BASS_STEERED); }},
                {"set_limiting", [this] { tarn_set_limiting(stream, 1); }},
                {"set_remap", [this] { tarn_set_remap(stream, kGains); }},
                {"process with all changes", [=, this] { tarn_process(stream, memory, memory, kMaxFrames); }},
                {"bypassed", [this] { tarn_bypassed(stream); }},
                {"read_meters", [this] { tarn_read_meters(stream, &meters, sizeof meters); }},
                {"drain", [=, this] { tarn_drain(stream, memory, kMaxFrames); }},
                {"reset", [this] { tarn_reset(stream); }}};
    }

private:
    static constexpr std::int32_t kGains[3][4] = {{1 << 28}, {0, 1 << 28}, {0, 0, 1 << 28}};

    tarn_stream* stream = nullptr;
    std::vector<float> buffer;
    std::array<float*, TARN_MAX_SLOTS> rows{};
    tarn_meters meters{};
};

/// The calls for every format, with and without a remap matrix.
template <typename Visit>
void forEachStream(Visit visit)
{
    for (std::uint32_t format = TARN_S16; format <= TARN_F32; ++format) {
        for (const bool remapped : {false, true}) {
            Calls calls(format, remapped);
            visit(calls.all(), "format " + std::to_string(format) + (remapped ? ", remapped" : ""));
        }
    }
}

/// Makes each call here first, because the first call of a function may be bound then, and compares its need on a
/// thread with the promise. Returns the largest need.
std::size_t expectSmall(const std::vector<Call>& calls, const std::string& what)
{
    std::size_t largest = 0;
    for (const auto& [name, call] : calls) call();
    for (const auto& [name, call] : calls) {
        const std::size_t bytes = stackBytesOf(call);
        EXPECT_LE(bytes, kMaxStackBytes) << name << ", " << what;
        largest = std::max(largest, bytes);
    }
    return largest;
}

class RealTimeStack : public SubnormalSpeedTest
{
protected:
    void SetUp() override
    {
        if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    }
};

/// Sets about half of the fields of floats to numbers from 2^-150 to 1.
void writeTinyNumbers(ZRKTarn& engine, Random& random)
{
    forEachField(engine, engine, [&](std::string_view, auto& field, auto& /*same*/) {
        using Field = std::remove_cvref_t<decltype(field)>;
        if constexpr (std::is_same_v<ElementOf<Field>, float>) {
            if (random.chance(2)) return;
            auto* const elements = reinterpret_cast<float*>(&field);
            for (std::size_t i = 0; i < sizeof field / sizeof(float); ++i)
                elements[i] = static_cast<float>(std::ldexp(random.uniform(), -static_cast<int>(random.below(150))));
        }
    });
}

void printNeed(std::size_t bytes)
{
    std::printf("%s: at most %zu bytes\n", zrk_tarn::chosenOperations().instructionSet, bytes);
}

} // namespace

TEST_P(RealTimeStack, OfStreamsIsWithinTheBound)
{
    std::size_t largest = 0;
    forEachStream([&](const std::vector<Call>& calls, const std::string& what) {
        largest = std::max(largest, expectSmall(calls, what));
    });
    printNeed(largest);
}

TEST_P(RealTimeStack, OfProcessorsIsWithinTheBound)
{
    zrk_tarn_processor_t processor;
    std::vector<std::int32_t> buffer(kMaxFrames * 8);
    audio_channel_assignment_t plain{{0x2000, 0x4000, 0x200}};
    audio_channel_assignment_t remapped{{0x2000, 0x4000, 0x40000, 0x80000}};
    unsigned gains[3][4] = {};
    const std::size_t largest = expectSmall(
        {{"setup", [&] { processor.setup(1, 0, 1.0f); }},
         {"set_remap_coeff", [&] { processor.set_remap_coeff(gains); }},
         {"process", [&] { processor.process(buffer.data(), kMaxFrames, 8, 48000, 32, &plain); }},
         {"process, remapped", [&] { processor.process(buffer.data(), kMaxFrames, 8, 96000, 16, &remapped); }}},
        "processor");
    printNeed(largest);
}

/// Stages have other code for numbers near underflow.
TEST_P(RealTimeStack, OfTinyNumbersIsWithinTheBound)
{
    Random random(1);
    std::vector<std::int32_t> buffer(64 * 3);
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200}};
    std::size_t largest = 0;
    for (const unsigned rate : {48000u, 64000u, 96000u, 192000u}) {
        zrk_tarn_processor_t processor;
        const auto processBlock = [&] { processor.process(buffer.data(), 64, 3, rate, 32, &assignment); };
        processBlock();
        for (int block = 0; block < 25; ++block) {
            for (std::int32_t& sample : buffer) sample = static_cast<std::int32_t>(random.bits());
            writeTinyNumbers(*processor.engine, random);
            largest = std::max(largest, stackBytesOf(processBlock));
        }
    }
    EXPECT_LE(largest, kMaxStackBytes);
    printNeed(largest);
}

TEST_P(RealTimeStack, OfStreamsFitsAThreadOf16KiB)
{
#if !defined __OPTIMIZE__
    GTEST_SKIP() << "only optimised code";
#endif
    forEachStream([&](const std::vector<Call>& calls, const std::string&) {
        for (const auto& [name, call] : calls) call();
        for (const auto& [name, call] : calls)
            if (!runsOnSmallStack(call)) GTEST_SKIP() << "the system has no stacks of 16 KiB";
    });
}

INSTANTIATE_TEST_SUITE_P(, RealTimeStack, testing::Bool(), nameOfSpeed);

TEST(StackBytes, AreMeasured)
{
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    const std::size_t bytes = stackBytesOf([] {
        volatile std::byte used[20000];
        for (volatile std::byte& b : used) b = std::byte{1};
    });
    EXPECT_GE(bytes, 20000u);
    EXPECT_LE(bytes, 21000u);
}

TEST(SmallStack, EndsWithTheProgramIfItOverflows)
{
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    if (!runsOnSmallStack([] {})) GTEST_SKIP() << "the system has no stacks of 16 KiB";
    EXPECT_EXIT(runsOnSmallStack([] {
                    volatile std::byte used[16 * 1024];
                    for (volatile std::byte& b : used) b = std::byte{1};
                }),
                testing::KilledBySignal(SIGSEGV), "");
}

} // namespace tests
