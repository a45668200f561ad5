// Tests that results do not depend on the caller's floating-point environment, which is restored.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/transform_tables.h"
#include "host/zrk_tarn_processor.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/engine.h"
#include "tests/support/float_environment.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace tests
{

namespace
{

constexpr std::uint32_t kSlots = 8;
constexpr std::uint32_t kBits = 16;
constexpr std::uint32_t kFrames = 6400;
constexpr int kBuffers = 28;
constexpr int kLoudBuffers = 2; ///< at the start, and one at the end; silence between them

using Buffer = std::vector<std::uint8_t>;

std::vector<Buffer> loudSilentAndLoud()
{
    std::vector<Buffer> buffers;
    Random random(5);
    for (int number = 0; number < kBuffers; ++number) {
        Buffer& buffer = buffers.emplace_back(std::size_t{kFrames} * kSlots * 2);
        if (number >= kLoudBuffers && number < kBuffers - 1) continue;
        for (std::uint32_t i = 0; i < kFrames; ++i) {
            const Frame frame = frameOf(number == 0 ? Signal::MidTone : Signal::DiffuseNoise, i, random);
            const std::int32_t samples[2] = {sampleOf(0.4 * frame.left, kBits), sampleOf(0.4 * frame.right, kBits)};
            for (std::size_t slot = 0; slot < 2; ++slot)
                for (std::size_t j = 0; j < 2; ++j)
                    buffer[(i * kSlots + slot) * 2 + j] =
                        static_cast<std::uint8_t>(static_cast<std::uint32_t>(samples[slot]) >> (8 * j));
        }
    }
    return buffers;
}

/// Codes of the plain path, then of the remap path.
constexpr std::uint32_t kPlainCodes[8] = {0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0};
constexpr std::uint32_t kRemapCodes[8] = {0x2000, 0x4000, 0x40000, 0x80000, 0, 0, 0, 0};

/// Processes all buffers with a new processor. Changes the path with every buffer and the rate twice.
///
/// Runs in the caller's environment without arithmetic.
template <typename Processor, typename Codes>
void processAll(Processor& processor, std::vector<Buffer>& buffers, Codes codesOf)
{
    unsigned gains[3][4] = {{0x10000000, 0, 0x08000000, 0}, {0, 0x10000000, 0, 0x08000000}, {0x0b504f33, 1, 2, 3}};
    processor.set_remap_coeff(gains);
    std::uint32_t rate = 96000;
    int number = 0;
    for (Buffer& buffer : buffers) {
        if (number == 1 || number == kBuffers - 1) rate = rate == 96000 ? 44100 : 96000;
        processor.process(buffer.data(), kFrames, kSlots, rate, kBits, codesOf(number % 2 == 0));
        ++number;
    }
}

void processAllWithLibrary(zrk_tarn_processor_t& processor, std::vector<Buffer>& buffers)
{
    audio_channel_assignment_t plain{};
    audio_channel_assignment_t remap{};
    std::memcpy(plain.code, kPlainCodes, sizeof kPlainCodes);
    std::memcpy(remap.code, kRemapCodes, sizeof kRemapCodes);
    processAll(processor, buffers, [&](bool isPlain) { return isPlain ? &plain : &remap; });
}

void clearTables()
{
    std::fill(std::begin(dct4Table64), std::end(dct4Table64), 0.0f);
    std::fill(std::begin(dct3Table32), std::end(dct3Table32), 0.0f);
    std::fill(std::begin(dct4Table32), std::end(dct4Table32), 0.0f);
    std::fill(std::begin(dct3Table16), std::end(dct3Table16), 0.0f);
    std::fill(std::begin(dct4Table16), std::end(dct4Table16), 0.0f);
    zrk_tarn::transformTables = {};
}

/// Buffers and record that the default environment gives.
struct Expected
{
    zrk_tarn_processor_t processor;
    std::vector<Buffer> buffers = loudSilentAndLoud();

    Expected() { processAllWithLibrary(processor, buffers); }
};

} // namespace

TEST(FloatEnvironment, DoesNotChangeResultsAndIsRestored)
{
    const Expected expected;
    const std::vector<Buffer> inputs = loudSilentAndLoud();
    for (const EnvironmentSetting& setting : allSettings()) {
        SCOPED_TRACE(testing::Message() << "rounding " << setting.rounding << ", flushing " << setting.flushing);
        for (const std::uint64_t flags : {std::uint64_t{0}, kAllFlags & 0x15u, kAllFlags}) {
            std::vector<Buffer> buffers = inputs;
            if (flags != 0) buffers.resize(3); // a few buffers are enough for flags
            const FloatEnvironment callers{setting.control, flags};
            FloatEnvironment after{};
            zrk_tarn_processor_t processor;
            clearTables();
            {
                const CallersEnvironment environment(callers);
                processAllWithLibrary(processor, buffers);
                after = currentEnvironment();
            }
            EXPECT_EQ(after, callers);
            EXPECT_TRUE(std::equal(buffers.begin(), buffers.end(), expected.buffers.begin()));
            if (flags == 0) {
                processor.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
                expected.processor.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
                EXPECT_TRUE(sameRecord(*processor.engine, nullptr, *expected.processor.engine, nullptr));
            }
        }
    }
}

TEST(FloatEnvironment, ChangesResultsOfTheReference)
{
    // The reference engine sets no environment, so every setting must change its output.
    std::vector<Buffer> expected = loudSilentAndLoud();
    const std::vector<Buffer> inputs = expected;
    const auto codesOf = [](bool isPlain) { return isPlain ? kPlainCodes : kRemapCodes; };
    reference::Processor expectedProcessor;
    processAll(expectedProcessor, expected, codesOf);
    for (const EnvironmentSetting& setting : allSettings()) {
        if (setting.control == kDefaultControl) continue;
        std::vector<Buffer> buffers = inputs;
        reference::Processor processor;
        {
            const CallersEnvironment environment({setting.control, 0});
            processAll(processor, buffers, codesOf);
        }
        EXPECT_NE(buffers, expected) << "rounding " << setting.rounding << ", flushing " << setting.flushing;
    }
    reference::cosModTablesInit();
}

// Tests every operation alone, because a later operation can hide an error of an earlier one. Uses 32 bits, where the
// conversion of samples to single precision rounds.
TEST(FloatEnvironment, DoesNotChangeAnyEngineOperation)
{
    constexpr std::int32_t kWidth = 32;
    using Operation = void (*)(ZRKTarn & engine);
    constexpr std::pair<const char*, Operation> kOperations[] = {
        {"Open", [](ZRKTarn& engine) { engine.Open(); }},
        {"Initialize", [](ZRKTarn& engine) { engine.Initialize(parametersAt(44100, 24)); }},
        {"ReadInputChannels", [](ZRKTarn& engine) { engine.ReadInputChannels(64, kSlots); }},
        {"ProcessCine3", [](ZRKTarn& engine) { engine.ProcessCine3(64, kSlots); }},
        {"WriteOutput", [](ZRKTarn& engine) { engine.WriteOutput(64, kSlots); }},
        {"RemapOutput", [](ZRKTarn& engine) { engine.RemapOutput(50, kSlots); }},
        {"ProcessCine3InterLeave", [](ZRKTarn& engine) { engine.ProcessCine3InterLeave(64, kSlots); }},
        {"ProcessCine3InterLeaveRemap", [](ZRKTarn& engine) { engine.ProcessCine3InterLeaveRemap(33, kSlots); }},
    };

    Buffer input(std::size_t{64} * kSlots * 4);
    Random random(6);
    for (std::uint8_t& byte : input) byte = static_cast<std::uint8_t>(random.bits());
    const auto point = [](ZRKTarn& engine, Buffer& buffer) {
        engine.SetChannelPtrs(buffer.data(), buffer.data() + 4, buffer.data() + 8, buffer.data() + 12);
    };
    const auto started = engineAt(96000, kWidth);
    int gains[3][4] = {{1 << 28, 0, 1 << 27, 0}, {0, 1 << 28, 0, 1 << 27}, {1, 2, 3, 4}};
    started->SetRemapCoeff(gains);
    for (int block = 0; block < 20; ++block) {
        Buffer buffer = input;
        point(*started, buffer);
        started->ProcessCine3InterLeave(64, kSlots);
    }

    for (const auto& [name, operation] : kOperations) {
        Buffer expectedBuffer = input;
        ZRKTarn expected = *started;
        for (int k = 0; k < 3; ++k) expected.outputPtr[k] = expected.outputBlock[k];
        point(expected, expectedBuffer);
        operation(expected);
        for (const EnvironmentSetting& setting : allSettings()) {
            SCOPED_TRACE(testing::Message()
                         << name << ", rounding " << setting.rounding << ", flushing " << setting.flushing);
            Buffer buffer = input;
            ZRKTarn engine = *started;
            for (int k = 0; k < 3; ++k) engine.outputPtr[k] = engine.outputBlock[k];
            point(engine, buffer);
            const FloatEnvironment callers{setting.control, 0};
            FloatEnvironment after{};
            if (operation == kOperations[0].second) clearTables();
            {
                const CallersEnvironment environment(callers);
                operation(engine);
                after = currentEnvironment();
            }
            EXPECT_EQ(after, callers);
            EXPECT_EQ(buffer, expectedBuffer);
            EXPECT_TRUE(sameRecord(engine, buffer.data(), expected, expectedBuffer.data()));
            // Also checks the tables.
            ZRKTarn next = engine;
            ZRKTarn expectedNext = expected;
            next.ProcessCine3(0, kSlots);
            expectedNext.ProcessCine3(0, kSlots);
            EXPECT_TRUE(sameRecord(next, buffer.data(), expectedNext, expectedBuffer.data()));
        }
    }
}

#if defined __SSE2__

TEST(FloatEnvironment, TrapsOfTheCallerAreDisabled)
{
    // Every block rounds, so the first operation traps in the caller's environment.
    const Expected expected;
    std::vector<Buffer> buffers = loudSilentAndLoud();
    zrk_tarn_processor_t processor;
    clearTables();
    {
        const CallersEnvironment environment({kDefaultControl & ~kTrapMasks, 0});
        processAllWithLibrary(processor, buffers);
    }
    EXPECT_EQ(buffers, expected.buffers);
}

#endif

} // namespace tests
