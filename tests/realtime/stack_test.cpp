// Real-time calls need little stack, because hosts run audio threads with small stacks.
// SPDX-License-Identifier: MIT
#include "c_api/tarn.h"
#include "host/zrk_tarn_processor.h"
#include "tests/realtime/stack_bytes.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
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
                                          {TARN_DIALOGUE, 0},    {TARN_DIALOGUE, 1}};
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

/// Makes each call here first, because the first call of a function may be bound then, and compares its need on a
/// thread with the promise.
void expectSmall(const std::vector<Call>& calls, const std::string& what)
{
    for (const auto& [name, call] : calls) call();
    for (const auto& [name, call] : calls) EXPECT_LE(stackBytesOf(call), kMaxStackBytes) << name << ", " << what;
}

class RealTimeStack : public testing::Test
{
protected:
    void SetUp() override
    {
#if !defined __OPTIMIZE__
        GTEST_SKIP() << "only optimised code";
#endif
        if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    }
};

} // namespace

TEST_F(RealTimeStack, OfStreamsIsAtMost12KiB)
{
    for (std::uint32_t format = TARN_S16; format <= TARN_F32; ++format) {
        for (const bool remapped : {false, true}) {
            Calls calls(format, remapped);
            expectSmall(calls.all(), "format " + std::to_string(format) + (remapped ? ", remapped" : ""));
        }
    }
}

TEST_F(RealTimeStack, OfProcessorsIsAtMost12KiB)
{
    zrk_tarn_processor_t processor;
    std::vector<std::int32_t> buffer(kMaxFrames * 8);
    audio_channel_assignment_t plain{{0x2000, 0x4000, 0x200}};
    audio_channel_assignment_t remapped{{0x2000, 0x4000, 0x40000, 0x80000}};
    unsigned gains[3][4] = {};
    expectSmall({{"setup", [&] { processor.setup(1, 0, 1.0f); }},
                 {"set_remap_coeff", [&] { processor.set_remap_coeff(gains); }},
                 {"process", [&] { processor.process(buffer.data(), kMaxFrames, 8, 48000, 32, &plain); }},
                 {"process, remapped", [&] { processor.process(buffer.data(), kMaxFrames, 8, 96000, 16, &remapped); }}},
                "processor");
}

TEST_F(RealTimeStack, IsMeasured)
{
    const std::size_t bytes = stackBytesOf([] {
        volatile std::byte used[20000];
        for (volatile std::byte& b : used) b = std::byte{1};
    });
    EXPECT_GE(bytes, 20000u);
    EXPECT_LE(bytes, 21000u);
}

} // namespace tests
