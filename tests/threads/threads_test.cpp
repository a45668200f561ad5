// Tests of streams on several threads, for ThreadSanitizer.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "host/zrk_tarn_processor.h"
#include "stream/upmix_stream.h"
#include "tests/support/engine.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace tests
{

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::uint32_t kWidths[] = {16, 24, 32};

using Bytes = std::vector<std::uint8_t>;

void fillWithNoise(GuardedBuffer& buffer, Random& random)
{
    std::generate_n(buffer.data(), buffer.size(), [&] { return static_cast<std::uint8_t>(random.bits()); });
}

/// Checks the guards of a buffer and appends its bytes.
void append(const GuardedBuffer& buffer, Bytes& bytes)
{
    EXPECT_TRUE(buffer.guardsIntact());
    bytes.insert(bytes.end(), buffer.data(), buffer.data() + buffer.size());
}

/// Runs a processor on both paths; every second buffer has another format, which opens the engine again. Returns all
/// output bytes.
Bytes runProcessor(std::uint64_t seed)
{
    Random random(seed);
    Bytes bytes;
    zrk_tarn_processor_t processor;
    processor.setup(static_cast<std::int32_t>(seed % 2), 0, 1.0f);
    unsigned gains[3][4] = {
        {0x10000000, 0, 0x08000000, 0}, {0, 0x10000000, 0, 0x08000000}, {0x0b504f33, 0x0b504f33, 0, 0}};
    processor.set_remap_coeff(gains);
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0x40000, 0x80000}};

    for (int turn = 0; turn < 150; ++turn) {
        const std::uint32_t rateHz = random.oneOf(kRatesHz);
        const std::uint32_t bits = random.oneOf(kWidths);
        const std::uint32_t slots = random.chance(2) ? 8 : 3;
        for (int i = 0; i < 2; ++i) {
            const std::uint32_t frames = 1 + random.below(320);
            GuardedBuffer buffer(frames, slots, bits);
            fillWithNoise(buffer, random);
            processor.process(buffer.data(), frames, slots, rateHz, bits, &assignment);
            append(buffer, bytes);
        }
    }
    return bytes;
}

/// Runs an engine and opens it again after every five blocks. Returns all output bytes.
Bytes runEngine(std::uint64_t seed)
{
    Random random(seed);
    Bytes bytes;
    ZRKTarn engine;
    for (int turn = 0; turn < 150; ++turn) {
        const std::uint32_t bits = random.oneOf(kWidths);
        engine.Open();
        engine.Initialize(parametersAt(random.oneOf(kRatesHz), static_cast<std::int32_t>(bits), 1 + turn % 2));
        for (int i = 0; i < 5; ++i) {
            GuardedBuffer buffer(64, 3, bits);
            fillWithNoise(buffer, random);
            std::uint8_t* const left = buffer.data();
            const std::uint32_t bytesPerSample = bits / 8;
            engine.SetChannelPtrs(left, left + bytesPerSample, left + 2 * bytesPerSample, left + 2 * bytesPerSample);
            engine.ProcessCine3InterLeave(64, 3);
            append(buffer, bytes);
        }
        engine.Close();
    }
    return bytes;
}

} // namespace

TEST(Threads, GiveTheSameBytesAsOneThread)
{
    constexpr std::uint64_t kStreams = 12;
    const auto run = [](std::uint64_t seed) { return seed % 3 == 0 ? runEngine(seed) : runProcessor(seed); };

    // The first Open of the process returns before the threads start.
    std::vector<Bytes> alone;
    for (std::uint64_t seed = 0; seed < kStreams; ++seed) alone.push_back(run(seed));

    std::vector<Bytes> together(kStreams);
    std::atomic<bool> over = false;
    std::barrier begin(static_cast<std::ptrdiff_t>(kStreams + 1));
    std::vector<std::thread> threads;
    for (std::uint64_t seed = 0; seed < kStreams; ++seed) {
        threads.emplace_back([&, seed] {
            begin.arrive_and_wait();
            together[seed] = run(seed);
        });
    }
    std::thread opener([&] {
        begin.arrive_and_wait();
        while (!over) engineAt(48000, 16);
    });
    for (std::thread& thread : threads) thread.join();
    over = true;
    opener.join();

    for (std::uint64_t seed = 0; seed < kStreams; ++seed) {
        EXPECT_EQ(together[seed], alone[seed]) << "stream " << seed;
        EXPECT_NE(alone[seed], alone[(seed + 3) % kStreams]) << "equal streams would not show a mix-up";
    }
}

// The other slots of a frame belong to others, who may use them at the same time.
TEST(Threads, CanUseTheSlotsBesideThoseOfTheEngine)
{
    constexpr std::size_t kFrames = 64;
    for (const std::uint32_t bits : kWidths) {
        for (const std::size_t slots : {4u, 5u, 6u, 8u}) {
            const std::size_t sampleBytes = bits / 8;
            const std::size_t frameBytes = slots * sampleBytes;
            GuardedBuffer buffer(kFrames, static_cast<std::uint32_t>(slots), bits);
            Random random(bits + slots);
            fillWithNoise(buffer, random);
            std::barrier begin(2);
            std::thread neighbour([&] {
                begin.arrive_and_wait();
                for (std::size_t i = 0; i < kFrames; ++i)
                    std::fill_n(buffer.data() + i * frameBytes + 3 * sampleBytes, frameBytes - 3 * sampleBytes,
                                std::uint8_t{0x5a});
            });
            ZRKTarn engine;
            engine.Open();
            engine.Initialize(parametersAt(48000, static_cast<std::int32_t>(bits), 1));
            std::uint8_t* const left = buffer.data();
            engine.SetChannelPtrs(left, left + sampleBytes, left + 2 * sampleBytes, left + 2 * sampleBytes);
            begin.arrive_and_wait();
            engine.ProcessCine3InterLeave(kFrames, static_cast<std::uint32_t>(slots));
            neighbour.join();
            for (std::size_t i = 0; i < kFrames; ++i)
                for (std::size_t byte = 3 * sampleBytes; byte < frameBytes; ++byte)
                    EXPECT_EQ(left[i * frameBytes + byte], 0x5a) << bits << " bits, " << slots << " slots, frame " << i;
        }
    }
}

// No thread calls cosModTablesInit.
TEST(Threads, CanCreateTheFirstStreamsAtTheSameTime)
{
    constexpr std::size_t kFrames = 4000;
    Random random(3);
    std::vector<float> input(2 * kFrames);
    for (float& sample : input) sample = static_cast<float>(0.5 * random.uniform());
    std::vector<float> outputs[4];
    std::barrier begin(4);
    std::vector<std::thread> threads;
    for (std::vector<float>& output : outputs) {
        output.resize(3 * kFrames);
        threads.emplace_back([&] {
            begin.arrive_and_wait();
            zrk_tarn::UpmixStream stream({});
            stream.process(input.data(), output.data(), kFrames);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(*std::max_element(outputs[0].begin(), outputs[0].end()), 0.0f) << "no output";
    for (const std::vector<float>& output : outputs) EXPECT_EQ(output, outputs[0]);
}

// One thread processes, one sets controls, one reads meters.
TEST(Threads, CanControlAndReadAStreamDuringProcessing)
{
    using enum zrk_tarn::OutputSlot::Source;
    zrk_tarn::StreamConfiguration configuration{.outputSlots = 6, .limiter = true, .bass = zrk_tarn::BassMode::Fronts};
    configuration.outputs = {{{Engine, 0}, {Engine, 1}, {Engine, 2}, {Surround, 0}, {Dialogue, 1}, {Lfe, 0}}};
    zrk_tarn::UpmixStream stream(configuration);
    std::atomic<bool> over = false;
    std::barrier begin(3);
    std::thread control([&] {
        Random random(1);
        begin.arrive_and_wait();
        while (!over) {
            stream.setBypass(random.chance(2));
            stream.setMakeUpGain(static_cast<float>(random.uniform() + 1.0));
            stream.setCentreGain(static_cast<float>(random.uniform() + 1.0));
            stream.setCentreWidth(static_cast<float>(random.uniform()));
            stream.setSurroundGain(static_cast<float>(random.uniform() + 1.0));
            stream.setBass(random.chance(2) ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered);
            stream.setLimiting(random.chance(2));
            stream.setLfeGain(static_cast<float>(random.uniform() + 1.0));
            stream.setMode(random.chance(2) ? zrk_tarn::SteeringMode::Fast : zrk_tarn::SteeringMode::Calm);
        }
    });
    std::uint64_t maxBlocks = 0;
    float maxGroupLevel = 0.0f;
    std::thread display([&] {
        begin.arrive_and_wait();
        while (!over) {
            const zrk_tarn::StreamMeters meters = stream.meters();
            maxBlocks = std::max(maxBlocks, meters.blocks);
            maxGroupLevel = std::max(maxGroupLevel, meters.groupLevel[15]);
        }
    });
    Random random(2);
    std::vector<float> input(2 * 1000);
    std::vector<float> output(6 * 1000);
    begin.arrive_and_wait();
    for (int i = 0; i < 300; ++i) {
        for (float& sample : input) sample = static_cast<float>(0.5 * random.uniform());
        stream.process(input.data(), output.data(), 1000);
    }
    over = true;
    control.join();
    display.join();
    EXPECT_EQ(stream.meters().blocks, 300u * 1000 / 64);
    EXPECT_GT(maxBlocks, 0u) << "nothing was read during processing";
    EXPECT_GT(maxGroupLevel, 0.0f);
    EXPECT_GT(stream.meters().peak[2], 0.0f) << "no output";
}

} // namespace tests
