// Compares outputs with the reference engine before anything is measured.
// SPDX-License-Identifier: MIT
#include "bench/speed/check.h"

#include "bench/speed/room_stream.h"
#include "bench/speed/stages.h"
#include "bench/speed/stream.h"
#include "dispatch/instruction_sets.h"
#include "stream/gain.h"
#include "stream/upmix_stream.h"
#include "tests/reference/reference_engine.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace speed
{

namespace
{

constexpr std::size_t kLoudBlocks = 400;
constexpr std::size_t kSilentBlocks = 400;

void fillOrSilence(auto& stream, std::size_t number)
{
    if (number < kLoudBlocks) {
        stream.fill(number);
    } else {
        stream.fillWithSilence();
    }
}

bool agree(bool same, const char* what, const char* instructionSet, const Format& format, std::size_t number)
{
    if (!same)
        std::fprintf(stderr, "tarn_speed: %s, %s, %s: block %zu differs from the reference engine\n", what,
                     instructionSet, format.name, number);
    return same;
}

std::vector<std::vector<std::uint8_t>> expectedBuffers(const Format& format)
{
    std::vector<std::vector<std::uint8_t>> buffers;
    Stream<reference::Engine> stream(format);
    for (std::size_t number = 0; number < kLoudBlocks + kSilentBlocks; ++number) {
        fillOrSilence(stream, number);
        stream.process();
        buffers.push_back(stream.buffer());
    }
    return buffers;
}

bool sameBlocks(const char* instructionSet, const Format& format,
                const std::vector<std::vector<std::uint8_t>>& expected)
{
    Stream<ZRKTarn> stream(format);
    for (std::size_t number = 0; number < expected.size(); ++number) {
        fillOrSilence(stream, number);
        stream.process();
        if (!agree(stream.buffer() == expected[number], "whole block", instructionSet, format, number)) return false;
    }
    return true;
}

template <typename Engine>
bool sameStages(const char* instructionSet, StageFlow<Engine> flow, const Format& format,
                const std::vector<std::vector<std::uint8_t>>& expected)
{
    Stream<Engine> stream(format);
    for (std::size_t number = 0; number < expected.size(); ++number) {
        fillOrSilence(stream, number);
        for (const Stage<Engine>& stage : flow) stage.run(stream.engine(), format.slots());
        if (!agree(stream.buffer() == expected[number], "stages", instructionSet, format, number)) return false;
    }
    return true;
}

/// The frames of a stream for all blocks.
std::vector<std::int32_t> expectedOutputs()
{
    const std::size_t slots = RoomStream::kConfiguration.outputSlots;
    zrk_tarn::UpmixStream stream(RoomStream::kConfiguration);
    stream.setMakeUpGain(zrk_tarn::gainFactor(RoomStream::kSettings.gainDb));
    const auto music = tests::music().first(2 * kLoudBlocks * tests::kBlockFrames);
    std::vector<std::int32_t> input(music.begin(), music.end());
    input.resize(2 * (kLoudBlocks + kSilentBlocks) * tests::kBlockFrames);
    std::vector<std::int32_t> output(input.size() / 2 * slots);
    stream.process(input.data(), output.data(), input.size() / 2);
    return output;
}

/// A stream returns a block when it has the next one.
bool sameRooms(const char* instructionSet, const std::vector<std::int32_t>& expected)
{
    const std::size_t slots = RoomStream::kConfiguration.outputSlots;
    RoomStream stream;
    for (std::size_t number = 0; number + 1 < kLoudBlocks + kSilentBlocks; ++number) {
        fillOrSilence(stream, number);
        stream.process();
        stream.takeUpmixed();
        stream.computeOutputs();
        const std::int32_t* const block = expected.data() + (number + 1) * tests::kBlockFrames * slots;
        for (std::size_t i = 0; i < tests::kBlockFrames * slots; ++i) {
            if (stream.output(i % slots)[i / slots] == block[i]) continue;
            std::fprintf(stderr, "tarn_speed: film in 5.1, %s: block %zu differs from UpmixStream\n", instructionSet,
                         number);
            return false;
        }
    }
    return true;
}

} // namespace

bool sameAsReference()
{
    for (const Format& format : kFormats) {
        const auto expected = expectedBuffers(format);
        if (!format.remap && !sameStages("reference", referenceStages(), format, expected)) return false;
        for (const zrk_tarn::BlockOperations* const operations : zrk_tarn::usableOperations()) {
            zrk_tarn::chooseOperations(*operations);
            if (!sameBlocks(operations->instructionSet, format, expected)) return false;
            const char* const set = operations->instructionSet;
            if (!format.remap && !sameStages(set, stagesOf(set), format, expected)) return false;
        }
    }
    const std::vector<std::int32_t> outputs = expectedOutputs();
    return std::ranges::all_of(zrk_tarn::usableOperations(), [&](const zrk_tarn::BlockOperations* operations) {
        zrk_tarn::chooseOperations(*operations);
        return sameRooms(operations->instructionSet, outputs);
    });
}

} // namespace speed
