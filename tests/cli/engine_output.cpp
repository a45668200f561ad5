// The expected output of the command, from the engine itself.
// SPDX-License-Identifier: MIT
#include "tests/cli/engine_output.h"

#include "host/zrk_tarn_processor.h"
#include "stream/gain.h"
#include "stream/upmix_stream.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDelay = 960;

/// Channel codes of the other set for the same positions.
audio_channel_assignment_t codesOf(const std::string& layout)
{
    if (layout == "7.1-remap") return {{0x8000, 0x10000, 0, 0, 0, 0, 0x40000, 0x80000}};
    return {{0x8000, 0x10000, 0x1000, 0, 0, 0, 0, 0}};
}

/// Rounds half away from zero and clips.
std::int64_t rounded(std::int32_t sample, unsigned bits)
{
    const double scaled = std::round(std::ldexp(sample, static_cast<int>(bits) - 32));
    return static_cast<std::int64_t>(std::min(scaled, std::ldexp(1.0, static_cast<int>(bits) - 1) - 1.0));
}

void store(std::int64_t sample, std::uint8_t* to, std::size_t bytes)
{
    for (std::size_t b = 0; b < bytes; ++b)
        to[b] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(sample) >> (8 * b));
}

/// Left-justified.
std::int32_t load(const std::uint8_t* from, std::size_t bytes)
{
    std::uint32_t word = 0;
    for (std::size_t b = 0; b < bytes; ++b) word |= std::uint32_t{from[b]} << (8 * (4 - bytes + b));
    return static_cast<std::int32_t>(word);
}

/// Writes the surround channels of a stream into the last two slots of 5.1, at the level of the default preset.
void fillSurrounds(const Samples& stereo, const EngineRun& run, Samples& output)
{
    using zrk_tarn::OutputSlot;
    using zrk_tarn::SampleFormat;
    const std::size_t bytes = run.bits / 8;
    const std::size_t frames = stereo.size() / 2;
    const std::size_t latency = zrk_tarn::UpmixStream::latencyFrames();
    const std::size_t skipped = run.align ? latency : latency - kDelay;
    std::vector<std::uint8_t> buffer((frames + skipped) * 2 * bytes);
    for (std::size_t i = 0; i < stereo.size(); ++i) store(rounded(stereo[i], run.bits), &buffer[i * bytes], bytes);

    zrk_tarn::StreamConfiguration configuration{.sampleRateHz = run.sampleRate,
                                                .format = run.bits == 16   ? SampleFormat::S16
                                                          : run.bits == 24 ? SampleFormat::S24
                                                                           : SampleFormat::S32,
                                                .outputSlots = 2};
    configuration.outputs = {{{OutputSlot::Source::Surround, 0}, {OutputSlot::Source::Surround, 1}}};
    zrk_tarn::UpmixStream stream(configuration);
    stream.setSurroundGain(zrk_tarn::gainFactor(-3.0));
    stream.process(buffer.data(), buffer.data(), frames + skipped);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t side = 0; side < 2; ++side)
            output[6 * i + 4 + side] = load(&buffer[(2 * (i + skipped) + side) * bytes], bytes);
}

} // namespace

std::size_t slotsOf(const std::string& layout)
{
    return layout == "3.0" ? 3 : layout == "5.1" ? 6 : 8;
}

Samples engineOutput(const Samples& stereo, const EngineRun& run)
{
    const std::size_t slots = slotsOf(run.layout);
    const std::size_t bytes = run.bits / 8;
    const std::size_t frames = stereo.size() / 2;
    const std::size_t skipped = run.align ? kDelay : 0;
    const std::size_t padded = (frames + skipped + kBlock - 1) / kBlock * kBlock;
    std::vector<std::uint8_t> buffer(padded * slots * bytes);
    for (std::size_t i = 0; i < stereo.size(); ++i)
        store(rounded(stereo[i], run.bits), &buffer[((i / 2) * slots + i % 2) * bytes], bytes);

    zrk_tarn_processor_t processor;
    processor.setup(run.mode == "fast" ? 0 : 1, 0, 1.0f);
    unsigned matrix[3][4];
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 4; ++c) matrix[r][c] = static_cast<unsigned>(run.remap[r][c]);
    processor.set_remap_coeff(matrix);
    audio_channel_assignment_t codes = codesOf(run.layout);
    processor.process(buffer.data(), static_cast<std::uint32_t>(padded), static_cast<std::uint32_t>(slots),
                      run.sampleRate, run.bits, &codes);

    Samples output;
    for (std::size_t i = skipped * slots; i < (skipped + frames) * slots; ++i)
        output.push_back(load(&buffer[i * bytes], bytes));
    if (run.layout == "5.1") fillSurrounds(stereo, run, output);
    return output;
}

} // namespace tarn_cli
