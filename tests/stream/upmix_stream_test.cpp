// Streams: formats, buffer sizes, latency, bypass, gain, modes and meters, compared with zrk_tarn_processor_t.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include "host/zrk_tarn_processor.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>
#include <span>
#include <utility>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kLatency = UpmixStream::latencyFrames();
constexpr std::size_t kEngineDelay = 960;
constexpr std::size_t kBlock = 64; ///< delay of the stream in addition to the engine's
constexpr SampleFormat kFormats[] = {SampleFormat::S16, SampleFormat::S24, SampleFormat::S24In32, SampleFormat::S32,
                                     SampleFormat::F32};

struct FormatSize
{
    std::uint32_t bits;
    std::size_t bytes;
};

FormatSize sizeOf(SampleFormat format)
{
    constexpr FormatSize kSizes[] = {{16, 2}, {24, 3}, {24, 4}, {32, 4}, {32, 4}};
    return kSizes[static_cast<std::size_t>(format)];
}

OutputSlot engine(std::uint8_t index)
{
    return {OutputSlot::Source::Engine, index};
}

OutputSlot copied(std::uint8_t index)
{
    return {OutputSlot::Source::Input, index};
}

/// Stereo with a moving source, in integers of a width.
std::vector<std::int32_t> stereoOf(std::size_t frames, std::uint32_t bits, Signal signal = Signal::TravellingSource)
{
    Random random(bits);
    std::vector<std::int32_t> stereo;
    for (std::size_t i = 0; i < frames; ++i) {
        const Frame frame = frameOf(signal, i, random);
        stereo.push_back(sampleOf(0.7 * frame.left, bits));
        stereo.push_back(sampleOf(0.7 * frame.right, bits));
    }
    return stereo;
}

void put(std::uint8_t* position, SampleFormat format, std::int32_t sample)
{
    if (format == SampleFormat::F32) {
        const auto value = static_cast<float>(static_cast<double>(sample) * 0x1p-31);
        std::memcpy(position, &value, sizeof value);
        return;
    }
    for (std::size_t j = 0; j < sizeOf(format).bytes; ++j)
        position[j] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(sample) >> (8 * j));
}

/// Reads a sample as an integer of the format's width.
std::int64_t get(const std::uint8_t* position, SampleFormat format)
{
    if (format == SampleFormat::F32) {
        float value = 0.0f;
        std::memcpy(&value, position, sizeof value);
        return std::llrint(static_cast<double>(value) * 0x1p31);
    }
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < sizeOf(format).bytes; ++j) bits |= std::uint32_t{position[j]} << (8 * j);
    const auto unused = static_cast<int>(32 - 8 * sizeOf(format).bytes);
    return static_cast<std::int32_t>(bits << unused) >> unused;
}

/// Interleaved frames: the stereo in the left and right slot, distinct values in the others.
Bytes hostBuffer(const std::vector<std::int32_t>& stereo, const StreamConfiguration& configuration)
{
    const std::size_t bytes = sizeOf(configuration.format).bytes;
    Bytes buffer(stereo.size() / 2 * configuration.inputSlots * bytes);
    for (std::size_t i = 0; i < stereo.size() / 2; ++i) {
        for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot) {
            const std::int32_t sample = slot == configuration.leftSlot    ? stereo[2 * i]
                                        : slot == configuration.rightSlot ? stereo[2 * i + 1]
                                                                          : static_cast<std::int32_t>(100 * slot + i);
            put(&buffer[(i * configuration.inputSlots + slot) * bytes], configuration.format, sample);
        }
    }
    return buffer;
}

/// Processes a buffer in calls of one size, or of random sizes if callFrames is 0.
Bytes processed(UpmixStream& stream, const StreamConfiguration& configuration, const Bytes& input,
                std::size_t callFrames, Random& random)
{
    const std::size_t bytes = sizeOf(configuration.format).bytes;
    const std::size_t frames = input.size() / bytes / configuration.inputSlots;
    Bytes output(frames * configuration.outputSlots * bytes);
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(frames - done, callFrames > 0 ? callFrames : std::size_t{random.below(200)});
        stream.process(input.data() + done * configuration.inputSlots * bytes,
                       output.data() + done * configuration.outputSlots * bytes, count);
        done += count;
    }
    return output;
}

/// One slot of a buffer as integers.
std::vector<std::int64_t> slotOf(const Bytes& buffer, std::size_t slot, std::size_t slots, SampleFormat format)
{
    const std::size_t bytes = sizeOf(format).bytes;
    std::vector<std::int64_t> samples;
    for (std::size_t at = slot * bytes; at < buffer.size(); at += slots * bytes)
        samples.push_back(get(&buffer[at], format));
    return samples;
}

/// The output of zrk_tarn_processor_t for stereo, with its delay and its tail: front left, front right, centre.
std::vector<std::vector<std::int64_t>> expectedOutputs(std::vector<std::int32_t> stereo, std::uint32_t rateHz,
                                                       std::uint32_t bits)
{
    const std::size_t frames = stereo.size() / 2;
    stereo.resize(2 * ((frames + kEngineDelay + 63) / 64 * 64));
    const std::size_t bytes = bits / 8;
    Bytes buffer(stereo.size() / 2 * 3 * bytes);
    const SampleFormat format = bits == 16 ? SampleFormat::S16 : bits == 24 ? SampleFormat::S24 : SampleFormat::S32;
    for (std::size_t i = 0; i < stereo.size(); ++i) put(&buffer[(i / 2 * 3 + i % 2) * bytes], format, stereo[i]);

    zrk_tarn_processor_t processor;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200}};
    processor.process(buffer.data(), static_cast<std::uint32_t>(stereo.size() / 2), 3, rateHz, bits, &assignment);
    return {slotOf(buffer, 0, 3, format), slotOf(buffer, 1, 3, format), slotOf(buffer, 2, 3, format)};
}

/// Rounds an integer to single precision.
std::int64_t roundedToFloat(std::int64_t sample)
{
    return std::llrint(static_cast<double>(static_cast<float>(sample)));
}

} // namespace

TEST(UpmixStream, ReturnsTheProcessorsSamplesOneBlockLaterInEveryFormatAtEveryRate)
{
    constexpr std::size_t kFrames = 5000;
    Random random(3);
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        for (const SampleFormat format : kFormats) {
            StreamConfiguration configuration{.sampleRateHz = rateHz, .format = format};
            const std::uint32_t bits = sizeOf(format).bits;
            auto stereo = stereoOf(kFrames, bits);
            if (format == SampleFormat::F32)
                for (std::int32_t& sample : stereo) sample = sample / 256 * 256; // what floats can hold
            UpmixStream stream(configuration);
            const Bytes output = processed(stream, configuration, hostBuffer(stereo, configuration), 0, random);
            const auto expected = expectedOutputs(stereo, rateHz, bits);
            for (std::size_t slot = 0; slot < 3; ++slot) {
                const auto samples = slotOf(output, slot, 3, format);
                for (std::size_t i = 0; i < kBlock; ++i) ASSERT_EQ(samples[i], 0) << "frame " << i;
                for (std::size_t i = kBlock; i < kFrames; ++i) {
                    const std::int64_t sample = expected[slot][i - kBlock];
                    ASSERT_EQ(samples[i], format == SampleFormat::F32 ? roundedToFloat(sample) : sample)
                        << rateHz << " Hz, format " << static_cast<int>(format) << ", slot " << slot << ", frame " << i;
                }
            }
        }
    }
}

TEST(UpmixStream, LatencyIsTheDelayOfAnImpulse)
{
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        for (const std::size_t position : {0u, 1u, 63u, 64u, 100u, 500u}) {
            const StreamConfiguration configuration{.sampleRateHz = rateHz, .format = SampleFormat::S32};
            std::vector<std::int32_t> stereo(2 * 4096);
            stereo[2 * position] = 1 << 30;
            UpmixStream stream(configuration);
            Random random(1);
            const Bytes output = processed(stream, configuration, hostBuffer(stereo, configuration), 37, random);
            const auto left = slotOf(output, 0, 3, SampleFormat::S32);
            const auto largest = std::max_element(
                left.begin(), left.end(), [](std::int64_t a, std::int64_t b) { return std::abs(a) < std::abs(b); });
            const auto measured = static_cast<std::size_t>(largest - left.begin()) - position;
            EXPECT_EQ(measured, kLatency) << rateHz << " Hz";
            if (position == 0)
                std::printf("| %u Hz | %zu frames | %.1f ms |\n", rateHz, measured,
                            1000.0 * static_cast<double>(measured) / rateHz);
        }
    }
}

TEST(UpmixStream, CallSizesDoNotChangeBytes)
{
    const StreamConfiguration configuration{.format = SampleFormat::S16};
    const Bytes input = hostBuffer(stereoOf(9000, 16), configuration);
    Random random(7);
    UpmixStream atOnce(configuration);
    const Bytes expected = processed(atOnce, configuration, input, 9000, random);
    for (const std::size_t callFrames : {0u, 1u, 37u, 63u, 64u, 65u, 100u, 1024u}) {
        UpmixStream stream(configuration);
        EXPECT_EQ(processed(stream, configuration, input, callFrames, random), expected) << callFrames << " frames";
    }
}

TEST(UpmixStream, WorksInPlace)
{
    StreamConfiguration configuration{.format = SampleFormat::S24, .inputSlots = 3};
    Bytes buffer = hostBuffer(stereoOf(3000, 24), configuration);
    Random random(7);
    UpmixStream apart(configuration);
    const Bytes expected = processed(apart, configuration, buffer, 100, random);
    UpmixStream inPlace(configuration);
    for (std::size_t done = 0; done < 3000; done += 100) inPlace.process(&buffer[done * 9], &buffer[done * 9], 100);
    EXPECT_EQ(buffer, expected);
}

TEST(UpmixStream, PlanarOutputEqualsInterleavedOutput)
{
    const StreamConfiguration configuration;
    constexpr std::size_t kFrames = 2000;
    const Bytes input = hostBuffer(stereoOf(kFrames, 32), configuration);
    Random random(7);
    UpmixStream interleaved(configuration);
    const Bytes expected = processed(interleaved, configuration, input, kFrames, random);

    // In place, with left and right exchanged.
    std::vector<float> rows[3];
    for (auto& row : rows) row.resize(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        std::memcpy(&rows[0][i], &input[8 * i], 4);
        std::memcpy(&rows[1][i], &input[8 * i + 4], 4);
    }
    UpmixStream planar(configuration);
    for (std::size_t done = 0; done < kFrames; done += 50) {
        const float* const from[] = {&rows[0][done], &rows[1][done]};
        float* const to[] = {&rows[1][done], &rows[0][done], &rows[2][done]};
        planar.processPlanar(from, to, 50);
    }
    for (std::size_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(0, std::memcmp(&rows[1][i], &expected[12 * i], 4)) << i;
        ASSERT_EQ(0, std::memcmp(&rows[0][i], &expected[12 * i + 4], 4)) << i;
        ASSERT_EQ(0, std::memcmp(&rows[2][i], &expected[12 * i + 8], 4)) << i;
    }
}

TEST(UpmixStream, CopiedSlotsAreDelayedByTheLatencyAndOthersAreSilent)
{
    StreamConfiguration configuration{.format = SampleFormat::S16, .inputSlots = 6, .leftSlot = 1, .rightSlot = 0};
    configuration.outputSlots = 7;
    configuration.outputs = {{engine(2), engine(0), engine(1), copied(3), copied(5), {}, copied(1)}};
    constexpr std::size_t kFrames = 4000;
    const auto stereo = stereoOf(kFrames, 16);
    const Bytes input = hostBuffer(stereo, configuration);
    Random random(7);
    UpmixStream stream(configuration);
    const Bytes output = processed(stream, configuration, input, 0, random);
    const auto expected = expectedOutputs(stereo, 48000, 16);
    for (std::size_t i = kLatency; i < kFrames; ++i) {
        const auto at = [&](std::size_t slot) { return get(&output[(i * 7 + slot) * 2], SampleFormat::S16); };
        const auto before = [&](std::size_t slot) {
            return get(&input[((i - kLatency) * 6 + slot) * 2], SampleFormat::S16);
        };
        ASSERT_EQ(at(0), expected[2][i - kBlock]);
        ASSERT_EQ(at(1), expected[0][i - kBlock]);
        ASSERT_EQ(at(2), expected[1][i - kBlock]);
        ASSERT_EQ(at(3), before(3));
        ASSERT_EQ(at(4), before(5));
        ASSERT_EQ(at(5), 0);
        ASSERT_EQ(at(6), before(1));
    }
}

TEST(UpmixStream, RemapMatrixMixesTheOutputsIntoFour)
{
    StreamConfiguration configuration{.format = SampleFormat::S24};
    configuration.remap = {{{0x10000000, 0, 0x08000000, 0}, {0, 0x10000000, 0, 0}, {0, 0, 0, 0x10000000}}};
    configuration.outputSlots = 4;
    configuration.outputs = {{engine(0), engine(1), engine(2), engine(3)}};
    constexpr std::size_t kFrames = 4000;
    const auto stereo = stereoOf(kFrames, 24);
    Random random(7);
    UpmixStream stream(configuration);
    const Bytes output = processed(stream, configuration, hostBuffer(stereo, configuration), 0, random);

    // The processor with the same slots.
    Bytes buffer((kFrames + 32) * 8 * 3);
    for (std::size_t i = 0; i < stereo.size(); ++i) put(&buffer[(i / 2 * 8 + i % 2) * 3], SampleFormat::S24, stereo[i]);
    zrk_tarn_processor_t processor;
    processor.set_remap_coeff(configuration.remap->gain);
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x40000, 0x80000}};
    processor.process(buffer.data(), kFrames + 32, 8, 48000, 24, &assignment);
    for (std::size_t slot = 0; slot < 4; ++slot) {
        const auto samples = slotOf(output, slot, 4, SampleFormat::S24);
        const auto expected = slotOf(buffer, slot, 8, SampleFormat::S24);
        EXPECT_TRUE(std::equal(samples.begin() + kBlock, samples.end(), expected.begin())) << slot;
    }
}

TEST(UpmixStream, FloatsBeyondFullScaleSaturateNanIsSilenceAndBothAreCounted)
{
    const StreamConfiguration configuration;
    const auto outputOf = [&](std::vector<float> stereo, StreamMeters& meters) {
        stereo.resize(2 * 4096);
        std::vector<float> output(3 * 4096);
        UpmixStream stream(configuration);
        stream.process(stereo.data(), output.data(), 4096);
        meters = stream.meters();
        return output;
    };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    StreamMeters within{};
    StreamMeters beyond{};
    const auto expected = outputOf({1.0f, -1.0f, -1.0f, 1.0f, 0.0f, 0.5f}, within);
    const auto output = outputOf({1.25f, -kInfinity, -2.0f, kInfinity, kNan, 0.5f}, beyond);
    EXPECT_EQ(output, expected);
    EXPECT_EQ(within.saturated, 0u);
    EXPECT_EQ(within.invalid, 0u);
    EXPECT_EQ(beyond.saturated, 4u);
    EXPECT_EQ(beyond.invalid, 1u);
}

TEST(UpmixStream, DrainReturnsTheTailOnce)
{
    const StreamConfiguration configuration{.format = SampleFormat::S16};
    constexpr std::size_t kFrames = 3333;
    const auto stereo = stereoOf(kFrames, 16);
    const Bytes input = hostBuffer(stereo, configuration);
    Bytes output((kFrames + kLatency) * 6);
    UpmixStream stream(configuration);
    EXPECT_EQ(stream.drain(output.data(), 100), 0u) << "no input";
    stream.process(input.data(), output.data(), kFrames);
    std::size_t length = kFrames;
    while (const std::size_t count =
               stream.drain(output.data() + length * 6, std::min<std::size_t>(300, kFrames + kLatency - length)))
        length += count;
    EXPECT_EQ(length, kFrames + kLatency);
    EXPECT_EQ(stream.drain(output.data(), 1), 0u);
    UpmixStream again(configuration);
    again.process(input.data(), nullptr, 0);
    EXPECT_EQ(again.drain(nullptr, kLatency), 0u) << "no input";
    again.process(input.data(), nullptr, 5);
    again.reset();
    EXPECT_EQ(again.drain(nullptr, kLatency), 0u) << "after reset";
    const auto expected = expectedOutputs(stereo, 48000, 16);
    for (std::size_t slot = 0; slot < 3; ++slot) {
        const auto samples = slotOf(output, slot, 3, SampleFormat::S16);
        EXPECT_TRUE(std::equal(samples.begin() + kBlock, samples.end(), expected[slot].begin())) << slot;
    }
}

TEST(UpmixStream, ResetStreamsEqualNewOnes)
{
    for (const std::uint32_t rateHz : {48000u, 192000u}) {
        const StreamConfiguration configuration{.sampleRateHz = rateHz, .format = SampleFormat::S32};
        const Bytes input = hostBuffer(stereoOf(5000, 32), configuration);
        Random random(7);
        UpmixStream fresh(configuration);
        const Bytes expected = processed(fresh, configuration, input, 77, random);
        UpmixStream stream(configuration);
        for (int time = 0; time < 3; ++time) {
            EXPECT_EQ(processed(stream, configuration, input, 77, random), expected) << "time " << time;
            stream.reset();
            EXPECT_EQ(stream.meters().blocks, 0u);
        }
    }
}

TEST(UpmixStream, BypassFadesToTheInputAtTheSameLatencyAndBack)
{
    StreamConfiguration configuration{.format = SampleFormat::S16};
    constexpr std::size_t kFrames = 20000;
    constexpr std::size_t kFade = 1024;
    const auto stereo = stereoOf(kFrames, 16, Signal::MidTone);
    const Bytes input = hostBuffer(stereo, configuration);
    const auto expected = expectedOutputs(stereo, 48000, 16);
    UpmixStream stream(configuration);
    Bytes output(kFrames * 6);
    const auto run = [&](std::size_t from, std::size_t to) {
        stream.process(&input[from * 4], &output[from * 6], to - from);
    };
    run(0, 6400);
    stream.setBypass(true);
    EXPECT_TRUE(stream.bypassed());
    run(6400, 12800);
    stream.setBypass(false);
    run(12800, kFrames);

    for (std::size_t slot = 0; slot < 3; ++slot) {
        const auto samples = slotOf(output, slot, 3, SampleFormat::S16);
        const auto inputAt = [&](std::size_t i) -> std::int64_t {
            return slot < 2 ? stereo[2 * (i - kLatency) + slot] : 0;
        };
        for (std::size_t i = kLatency; i < kFrames; ++i) {
            const std::int64_t wet = expected[slot][i - kBlock];
            const std::int64_t dry = inputAt(i);
            if (i < 6400 + 64 || i >= 12800 + 64 + kFade) {
                ASSERT_EQ(samples[i], wet) << slot << ", " << i;
            } else if (i >= 6400 + 64 + kFade && i < 12800 + 64) {
                ASSERT_EQ(samples[i], dry) << slot << ", " << i;
            } else {
                // In the fade, in steps of 1/1024.
                const auto begin = static_cast<double>(i < 12800 ? 6400 + 64 : 12800 + 64);
                const double part = (static_cast<double>(i) + 1.0 - begin) / static_cast<double>(kFade);
                const double wetPart = i < 12800 ? 1.0 - part : part;
                const double value = wetPart * static_cast<double>(wet) + (1.0 - wetPart) * static_cast<double>(dry);
                ASSERT_EQ(samples[i], std::llround(value)) << slot << ", " << i;
            }
        }
    }
}

TEST(UpmixStream, ChangesDuringAFadeContinueFromItsCurrentValue)
{
    const StreamConfiguration configuration{.format = SampleFormat::S32};
    constexpr std::size_t kFrames = 16384;
    const auto stereo = stereoOf(kFrames, 28, Signal::MidTone); // 1/16 of full scale
    const Bytes input = hostBuffer(stereo, configuration);
    const auto expected = expectedOutputs(stereo, 48000, 32);

    /// A value that moves linearly to its target within 1024 frames.
    struct Fade
    {
        double from;
        double to;
        int frames = 1024; // since the last change

        double now() const { return frames >= 1024 ? to : from + (to - from) * (frames / 1024.0); }
        void change(double target) { *this = {now(), target, 0}; }
    };
    Fade wet{1.0, 1.0};
    Fade gain{1.0, 1.0};
    UpmixStream stream(configuration);
    Bytes output(kFrames * 12);
    double largest = 0.0;
    std::vector<std::pair<std::size_t, double>> expectedValues; // frame of the output and its value
    for (std::size_t block = 0; block < kFrames / kBlock; ++block) {
        if (block == 64 || block == 75 || block == 80 || block == 82) {
            stream.setBypass(!stream.bypassed());
            wet.change(stream.bypassed() ? 0.0 : 1.0);
        }
        if (block == 66 || block == 71 || block == 84) {
            const float to = block == 66 ? 4.0f : block == 71 ? 0.25f : 2.0f;
            stream.setMakeUpGain(to);
            gain.change(static_cast<double>(to));
        }
        // A change between two blocks applies to the next block, which is returned one block later.
        stream.process(&input[block * kBlock * 8], &output[block * kBlock * 12], kBlock);
        for (std::size_t i = (block + 1) * kBlock; i < (block + 2) * kBlock; ++i) {
            ++wet.frames;
            ++gain.frames;
            if (block < 20 || i >= kFrames) continue;
            const auto dry = static_cast<double>(stereo[2 * (i - kLatency)]);
            const double value =
                wet.now() * gain.now() * static_cast<double>(expected[0][i - kBlock]) + (1.0 - wet.now()) * dry;
            largest = std::max(largest, std::abs(value));
            expectedValues.emplace_back(i, value);
        }
    }
    ASSERT_GT(largest, 0x1p25) << "precondition of this test";
    const auto left = slotOf(output, 0, 3, SampleFormat::S32);
    for (const auto& [frame, value] : expectedValues) ASSERT_EQ(left[frame], std::llround(value)) << frame;
    ASSERT_EQ(left.back(), std::llround(2.0 * static_cast<double>(expected[0][kFrames - 1 - kBlock])))
        << "the last change";
}

TEST(UpmixStream, MakeUpGainMultipliesEngineOutputsAndCountsSaturatedSamples)
{
    StreamConfiguration configuration{.format = SampleFormat::S16};
    configuration.outputSlots = 4;
    configuration.outputs = {{engine(0), engine(1), engine(2), copied(0)}};
    constexpr std::size_t kFrames = 12000;
    auto stereo = stereoOf(kFrames, 16, Signal::CentredNoise);
    const Bytes input = hostBuffer(stereo, configuration);
    const auto expected = expectedOutputs(stereo, 48000, 16);
    UpmixStream stream(configuration);
    stream.setMakeUpGain(6.0f);
    Bytes output(kFrames * 8);
    stream.process(input.data(), output.data(), kFrames);
    std::uint64_t saturated = 0;
    const auto count = [&saturated, &expected](std::size_t i, std::size_t slot) {
        const std::int64_t value = 6 * expected[slot][i - kBlock];
        const std::int64_t limited = std::clamp<std::int64_t>(value, -32768, 32767);
        if (value != limited) ++saturated;
        return limited;
    };
    for (std::size_t i = kBlock; i < kFrames; ++i) {
        for (std::size_t slot = 0; slot < 3; ++slot)
            ASSERT_EQ(get(&output[(i * 4 + slot) * 2], SampleFormat::S16), count(i, slot)) << slot << ", " << i;
        if (i >= kLatency) {
            ASSERT_EQ(get(&output[(i * 4 + 3) * 2], SampleFormat::S16), stereo[2 * (i - kLatency)]) << i;
        }
    }
    // The meters include the part of the last block that has not been returned yet.
    for (std::size_t i = kFrames; i < kFrames / kBlock * kBlock + kBlock; ++i)
        for (std::size_t slot = 0; slot < 3; ++slot) count(i, slot);
    EXPECT_GT(saturated, 0u) << "precondition of this test";
    EXPECT_EQ(stream.meters().saturated, saturated);
    stream.reset();
    EXPECT_EQ(stream.meters().saturated, 0u);
    stream.setMakeUpGain(std::numeric_limits<float>::quiet_NaN());
    stream.process(input.data(), output.data(), kFrames);
    for (std::size_t i = kBlock; i < kFrames; ++i)
        ASSERT_EQ(get(&output[i * 8], SampleFormat::S16), expected[0][i - kBlock]) << "NaN sets gain 1";
    EXPECT_EQ(stream.meters().saturated, 0u);
}

TEST(UpmixStream, MakeUpGainFadesLinearlyWithin1024Frames)
{
    const StreamConfiguration configuration{.format = SampleFormat::S32};
    constexpr std::size_t kFrames = 8192;
    constexpr std::size_t kChange = 4096;                      ///< the first frame of a block
    auto stereo = stereoOf(kFrames, 28, Signal::CentredNoise); // 1/16 of full scale
    const Bytes input = hostBuffer(stereo, configuration);
    const auto expected = expectedOutputs(stereo, 48000, 32);
    for (const double gain : {8.0, 1.25, 0.0, 0.3, 100.0, -1.0}) {
        const auto reached = static_cast<double>(std::clamp(static_cast<float>(gain), 0.0f, 8.0f));
        UpmixStream stream(configuration);
        Bytes output(kFrames * 12);
        stream.process(input.data(), output.data(), kChange);
        stream.setMakeUpGain(static_cast<float>(gain));
        stream.process(&input[kChange * 8], &output[kChange * 12], kFrames - kChange);
        const auto samples = slotOf(output, 2, 3, SampleFormat::S32);
        // The block that was processed before the change is returned first.
        for (std::size_t i = kChange; i < kFrames; ++i) {
            const auto wet = static_cast<double>(expected[2][i - kBlock]);
            const auto since = static_cast<double>(i + 1) - static_cast<double>(kChange + kBlock);
            const double part = std::clamp(since / 1024.0, 0.0, 1.0);
            const double now = 1.0 + (reached - 1.0) * part;
            ASSERT_EQ(samples[i], std::llround(now * wet)) << gain << ", " << i;
        }
    }
}

TEST(UpmixStream, GainAndBypassSetBeforeTheFirstFrameApplyWithoutAFade)
{
    const StreamConfiguration configuration{.format = SampleFormat::S24};
    constexpr std::size_t kFrames = 4000;
    const auto stereo = stereoOf(kFrames, 24);
    const Bytes input = hostBuffer(stereo, configuration);
    const auto expected = expectedOutputs(stereo, 48000, 24);
    UpmixStream stream(configuration);
    Random random(3);
    for (const double gain : {0.25, 0.0, 0.75}) {
        stream.setMakeUpGain(7.0f);
        stream.setMakeUpGain(static_cast<float>(gain));
        stream.setBypass(false);
        const Bytes output = processed(stream, configuration, input, 0, random);
        for (std::size_t slot = 0; slot < 3; ++slot) {
            const auto samples = slotOf(output, slot, 3, SampleFormat::S24);
            for (std::size_t i = kBlock; i < kFrames; ++i)
                ASSERT_EQ(samples[i], std::llround(gain * static_cast<double>(expected[slot][i - kBlock])))
                    << gain << ", " << slot << ", " << i;
        }
        stream.reset();
        stream.setBypass(true);
        const Bytes plain = processed(stream, configuration, input, 0, random);
        for (std::size_t slot = 0; slot < 2; ++slot) {
            const auto samples = slotOf(plain, slot, 3, SampleFormat::S24);
            for (std::size_t i = 0; i < kFrames; ++i)
                ASSERT_EQ(samples[i], i < kLatency ? 0 : stereo[2 * (i - kLatency) + slot]) << slot << ", " << i;
        }
        stream.reset();
    }
}

TEST(UpmixStream, ModeChangesKeepTheSignal)
{
    // A static tone has the same level in both modes, and no gap at the change.
    const StreamConfiguration configuration{.sampleRateHz = 96000, .format = SampleFormat::S32};
    const auto stereo = stereoOf(40000, 32, Signal::MidTone);
    const Bytes input = hostBuffer(stereo, configuration);
    Bytes output(40000 * 12);
    UpmixStream stream(configuration);
    stream.process(input.data(), output.data(), 20000);
    stream.setMode(zrk_tarn::SteeringMode::Calm);
    stream.process(&input[20000 * 8], &output[20000 * 12], 20000);
    const auto left = slotOf(output, 0, 3, SampleFormat::S32);
    const auto peakIn = [&](std::size_t from, std::size_t to) {
        std::int64_t peak = 0;
        for (std::size_t i = from; i < to; ++i) peak = std::max(peak, std::abs(left[i]));
        return static_cast<double>(peak);
    };
    for (std::size_t i = 19000; i < 39000; i += 500) EXPECT_GT(peakIn(i, i + 500), 0.9 * peakIn(15000, 19000)) << i;

    // After a change before the first frame, and after reset, the mode is the only difference.
    const auto travelling = stereoOf(40000, 32);
    const Bytes moving = hostBuffer(travelling, configuration);
    StreamConfiguration calm = configuration;
    calm.mode = zrk_tarn::SteeringMode::Calm;
    Random random(1);
    UpmixStream always(calm);
    const Bytes expected = processed(always, calm, moving, 1000, random);
    UpmixStream changed(configuration);
    changed.setMode(zrk_tarn::SteeringMode::Calm);
    EXPECT_EQ(processed(changed, configuration, moving, 1000, random), expected);
    changed.setMode(zrk_tarn::SteeringMode::Fast);
    changed.process(moving.data(), output.data(), 128);
    changed.setMode(zrk_tarn::SteeringMode::Calm);
    changed.reset();
    EXPECT_EQ(processed(changed, configuration, moving, 1000, random), expected);
}

TEST(UpmixStream, ModesThatAreChangedBackConverge)
{
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        const StreamConfiguration configuration{.sampleRateHz = rateHz, .format = SampleFormat::S32};
        auto stereo = stereoOf(120000, 32);
        // The source stays at the left, where the steering is fast: the states meet within half a second.
        for (std::size_t i = 20000; i < 120000; ++i) stereo[2 * i + 1] = 0;
        const Bytes input = hostBuffer(stereo, configuration);
        Random random(1);
        UpmixStream always(configuration);
        const Bytes expected = processed(always, configuration, input, 1000, random);
        UpmixStream changed(configuration);
        Bytes output(expected.size());
        const auto run = [&](std::size_t from, std::size_t to) {
            changed.process(&input[from * 8], &output[from * 12], to - from);
        };
        run(0, 6400);
        changed.setMode(zrk_tarn::SteeringMode::Calm);
        run(6400, 12800);
        changed.setMode(zrk_tarn::SteeringMode::Fast);
        run(12800, 120000);
        EXPECT_FALSE(std::equal(output.begin(), output.begin() + 12800 * 12, expected.begin())) << "the modes differ";
        EXPECT_TRUE(std::equal(output.begin() + 118000 * 12, output.end(), expected.begin() + 118000 * 12)) << rateHz;
    }
}

TEST(UpmixStream, RoundingModeOfTheCallerDoesNotChangeBytes)
{
    StreamConfiguration configuration;
    configuration.outputs = {{engine(0), copied(0), engine(2)}};
    std::vector<float> stereo(2 * 6000);
    Random random(3);
    for (float& sample : stereo) sample = static_cast<float>((random.uniform() - 0.5) * 0.9);
    const auto outputs = [&](int rounding) {
        std::vector<float> output(3 * 6000 + 3 * kLatency + 6000 * 3);
        UpmixStream stream(configuration);
        stream.setMakeUpGain(0.7f);
        std::vector<float> rows[5];
        for (auto& row : rows) row.resize(3000);
        for (std::size_t i = 0; i < 3000; ++i)
            for (std::size_t side = 0; side < 2; ++side) rows[side][i] = stereo[2 * i + side];
        const float* const from[] = {rows[0].data(), rows[1].data()};
        float* const to[] = {rows[2].data(), rows[3].data(), rows[4].data()};
        std::fesetround(rounding);
        stream.process(stereo.data(), output.data(), 6000);
        const std::size_t drained = stream.drain(&output[3 * 6000], kLatency);
        stream.processPlanar(from, to, 3000);
        EXPECT_EQ(std::fegetround(), rounding);
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(drained, kLatency);
        for (std::size_t slot = 2; slot < 5; ++slot)
            std::copy(rows[slot].begin(), rows[slot].end(),
                      output.end() - static_cast<std::ptrdiff_t>((slot - 1) * 3000));
        return output;
    };
    const auto expected = outputs(FE_TONEAREST);
    for (const int rounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        EXPECT_TRUE(outputs(rounding) == expected) << rounding;
}

TEST(UpmixStream, RoundingModeAtCreationAndResetAndForMetersDoesNotChangeResults)
{
    // The filters of the bass, the limiter and the meters of the surround channels compute their constants once.
    using enum OutputSlot::Source;
    const StreamConfiguration configuration{.format = SampleFormat::S32,
                                            .outputSlots = 5,
                                            .outputs = {{engine(0), engine(1), engine(2), {Surround, 0}, {Lfe, 0}}},
                                            .limiter = true,
                                            .bass = zrk_tarn::BassMode::Fronts};
    const Bytes input = hostBuffer(stereoOf(5000, 32), configuration);
    struct Results
    {
        std::vector<Bytes> outputs;
        std::vector<float> meters;
    };
    const auto resultsWith = [&](int rounding) {
        Results results;
        Random random(8);
        std::fesetround(rounding);
        UpmixStream stream(configuration);
        EXPECT_EQ(std::fegetround(), rounding);
        for (int time = 0; time < 2; ++time) {
            std::fesetround(FE_TONEAREST);
            results.outputs.push_back(processed(stream, configuration, input, 77, random));
            std::fesetround(rounding);
            const StreamMeters meters = stream.meters();
            for (const std::span<const float> values : std::initializer_list<std::span<const float>>{
                     meters.rms, meters.groupLevel, meters.groupPlace, meters.groupCentre, meters.groupSurround})
                results.meters.insert(results.meters.end(), values.begin(), values.end());
            stream.reset();
        }
        EXPECT_EQ(std::fegetround(), rounding);
        std::fesetround(FE_TONEAREST);
        return results;
    };
    const Results expected = resultsWith(FE_TONEAREST);
    for (const int rounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        const Results results = resultsWith(rounding);
        EXPECT_TRUE(results.outputs == expected.outputs) << rounding;
        EXPECT_TRUE(results.meters == expected.meters) << rounding;
    }
}

TEST(UpmixStream, MetersReportLevelsAndSteering)
{
    StreamConfiguration configuration;
    configuration.outputSlots = 4;
    configuration.outputs = {{engine(0), engine(1), engine(2), copied(0)}};
    std::vector<float> stereo(2 * 48000);
    for (std::size_t i = 0; i < 48000; ++i)
        stereo[2 * i] =
            0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 997.0 / 48000.0 * static_cast<double>(i)));
    std::vector<float> output(4 * 48000);
    UpmixStream stream(configuration);
    stream.process(stereo.data(), output.data(), 48000);
    StreamMeters meters = stream.meters();
    EXPECT_EQ(meters.blocks, 750u);
    // A sine at half full scale, of which 47 040 frames are metered. The peak has fallen for at most a period.
    EXPECT_LE(meters.peak[3], 0.5f);
    EXPECT_GE(meters.peak[3], 0.5 * std::pow(0.1, 1.0 / (1.7 * 997.0)) - 1e-4);
    EXPECT_NEAR(meters.rms[3], 0.5 * std::sqrt(0.5 * (1.0 - std::exp(-47040.0 / 14400.0))), 1e-4);
    EXPECT_GT(meters.peak[0], 0.3f) << "left stays left";
    EXPECT_LT(meters.peak[1], 0.05f);
    EXPECT_LT(meters.peak[2], 0.2f);
    const std::size_t group = 5; // 997 Hz
    EXPECT_GT(meters.leftRight[group], 0.9f);
    EXPECT_EQ(meters.speed[group], zrk_tarn::SteeringSpeed::Fast);

    // Peaks fall by 20 dB in 1.7 s.
    std::fill(stereo.begin(), stereo.end(), 0.0f);
    stream.drain(output.data(), kLatency);
    const float before = stream.meters().peak[3];
    for (int part = 0; part < 17; ++part) stream.process(stereo.data(), output.data(), 4800);
    EXPECT_NEAR(stream.meters().peak[3] / before, 0.1, 1e-5); // 1275 roundings
}

TEST(UpmixStream, MetersShowMidSpeedInsteadOfFastInCalmMode)
{
    std::vector<float> stereo(2 * 48000);
    for (std::size_t i = 0; i < 48000; ++i) stereo[2 * i] = i % 48 < 24 ? 0.5f : -0.5f;
    std::vector<float> output(3 * 48000);
    const auto fastestIn = [&](SteeringMode mode) {
        UpmixStream stream({.mode = mode});
        stream.process(stereo.data(), output.data(), 48000);
        return std::ranges::max(stream.meters().speed);
    };
    EXPECT_EQ(fastestIn(SteeringMode::Fast), zrk_tarn::SteeringSpeed::Fast);
    EXPECT_EQ(fastestIn(SteeringMode::Calm), zrk_tarn::SteeringSpeed::Mid);
}

TEST(UpmixStream, MetersFollowTheirTimeConstantsAndThePositionOfASource)
{
    StreamConfiguration configuration;
    configuration.outputs = {{copied(0), copied(1), engine(2)}};
    std::vector<float> stereo(2 * 48000, 0.5f);
    for (std::size_t i = 1; i < stereo.size(); i += 2) stereo[i] = -0.25f;
    std::vector<float> output(3 * 48000);
    UpmixStream stream(configuration);
    stream.process(stereo.data(), output.data(), kLatency - kBlock + 14400); // 0.3 s of it are metered
    StreamMeters meters = stream.meters();
    EXPECT_NEAR(meters.rms[0], 0.5 * std::sqrt(1.0 - std::exp(-1.0)), 1e-4);
    EXPECT_NEAR(meters.rms[1], 0.25 * std::sqrt(1.0 - std::exp(-1.0)), 1e-4);
    EXPECT_EQ(meters.peak[0], 0.5f);
    EXPECT_EQ(meters.peak[1], 0.25f) << "of either sign";

    stream.reset();
    meters = stream.meters();
    for (std::size_t slot = 0; slot < 3; ++slot) {
        EXPECT_EQ(meters.peak[slot], 0.0f);
        EXPECT_EQ(meters.rms[slot], 0.0f);
    }
    for (std::size_t group = 0; group < 16; ++group) {
        EXPECT_EQ(meters.leftRight[group], 0.0f);
        EXPECT_EQ(meters.frontBack[group], 0.0f);
        EXPECT_EQ(meters.speed[group], zrk_tarn::SteeringSpeed::Slower);
    }

    const auto metersFor = [&](double left, double right) {
        Random random(5);
        for (std::size_t i = 0; i < 48000; ++i) {
            const double value = random.uniform() - 0.5;
            stereo[2 * i] = static_cast<float>(left * value);
            stereo[2 * i + 1] = static_cast<float>(right * value);
        }
        stream.reset();
        stream.process(stereo.data(), output.data(), 48000);
        return stream.meters();
    };
    const StreamMeters left = metersFor(0.5, 0.0);
    const StreamMeters right = metersFor(0.0, 0.5);
    const StreamMeters centre = metersFor(0.5, 0.5);
    const StreamMeters nothing = metersFor(0.0, 0.0);
    for (std::size_t group = 0; group < 16; ++group) {
        EXPECT_GT(left.leftRight[group], 0.9f);
        EXPECT_LT(right.leftRight[group], -0.9f);
        EXPECT_EQ(centre.leftRight[group], 0.0f);
        EXPECT_GT(centre.frontBack[group], 0.9f);
        EXPECT_EQ(left.frontBack[group], 0.0f);
        EXPECT_EQ(centre.speed[group], zrk_tarn::SteeringSpeed::Fast);
        EXPECT_EQ(nothing.speed[group], zrk_tarn::SteeringSpeed::Slower);
    }
}

TEST(UpmixStream, InvalidConfigurationsAreRefusedWithAReason)
{
    const auto problemWith = [](auto change) {
        StreamConfiguration configuration;
        change(configuration);
        try {
            const UpmixStream stream(configuration);
        } catch (const std::invalid_argument& problem) {
            return std::string(problem.what());
        }
        return std::string("none");
    };
    EXPECT_EQ(problemWith([](StreamConfiguration&) {}), "none");
    EXPECT_EQ(problemWith([](auto& c) { c.sampleRateHz = 22050; }),
              "the sample rate has to be 32000, 44100, 48000, 64000, 88200, 96000 or 192000 Hz");
    EXPECT_EQ(problemWith([](auto& c) { c.format = static_cast<SampleFormat>(5); }), "the sample format is unknown");
    EXPECT_EQ(problemWith([](auto& c) { c.inputSlots = 0; }), "there have to be 1 to 8 input slots");
    EXPECT_EQ(problemWith([](auto& c) { c.inputSlots = 1; }), "left and right have to be among the input slots");
    EXPECT_EQ(problemWith([](auto& c) { c.outputSlots = 9; }), "there have to be 1 to 8 output slots");
    EXPECT_EQ(problemWith([](auto& c) { c.outputs[0] = engine(3); }),
              "the engine has outputs 0 to 2, or 0 to 3 with a remap matrix");
    EXPECT_EQ(problemWith([](auto& c) { c.outputs[1] = copied(2); }),
              "an output slot copies an input slot that does not exist");
    EXPECT_EQ(problemWith([](auto& c) { c.outputs[2].source = static_cast<OutputSlot::Source>(7); }),
              "an output slot has an unknown source");
    EXPECT_EQ(problemWith([](auto& c) {
                  c.outputs[0] = {OutputSlot::Source::Surround, 4};
              }),
              "there are surround channels 0 to 3");
    EXPECT_EQ(problemWith([](auto& c) {
                  c.outputs[0] = {OutputSlot::Source::Dialogue, 2};
              }),
              "the dialogue outputs are 0, left, and 1, right");
    EXPECT_EQ(problemWith([](auto& c) { c.outputs[0] = {OutputSlot::Source::Lfe, 1}; }), "there is one LFE channel, 0");
    for (const OutputSlot::Source source :
         {OutputSlot::Source::Surround, OutputSlot::Source::Dialogue, OutputSlot::Source::Lfe})
        EXPECT_NE(problemWith([=](auto& c) {
                      c.remap.emplace();
                      c.outputs[0].source = source;
                  }).find("a remapped engine has no"),
                  std::string::npos);
    EXPECT_EQ(problemWith([](auto& c) { c.bass = static_cast<zrk_tarn::BassMode>(2); }), "the bass mode is unknown");
    EXPECT_EQ(problemWith([](auto& c) {
                  c.remap.emplace();
                  c.bass = zrk_tarn::BassMode::Fronts;
              }),
              "a remapped engine has no fronts to play the bass");
    EXPECT_EQ(problemWith([](auto& c) { c.mode = static_cast<zrk_tarn::SteeringMode>(2); }),
              "the steering mode is unknown");
}

} // namespace tests
