// The expected output of the command, from the engine itself.
// SPDX-License-Identifier: MIT
#include "tests/cli/engine_output.h"

#include "host/zrk_tarn_processor.h"

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
    for (std::size_t i = 0; i < stereo.size(); ++i) {
        const auto word = static_cast<std::uint64_t>(rounded(stereo[i], run.bits));
        for (std::size_t b = 0; b < bytes; ++b)
            buffer[((i / 2) * slots + i % 2) * bytes + b] = static_cast<std::uint8_t>(word >> (8 * b));
    }

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
    for (std::size_t i = skipped * slots; i < (skipped + frames) * slots; ++i) {
        std::uint32_t word = 0;
        for (std::size_t b = 0; b < bytes; ++b) word |= std::uint32_t{buffer[i * bytes + b]} << (8 * (4 - bytes + b));
        output.push_back(static_cast<std::int32_t>(word));
    }
    return output;
}

} // namespace tarn_cli
