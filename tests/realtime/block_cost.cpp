// The cost of a block, in instructions or ticks.
// SPDX-License-Identifier: MIT
#include "tests/realtime/block_cost.h"

#include "tests/support/music.h"
#include "tests/support/single_steps.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace tests
{

std::uint64_t medianInMusic(const StreamFormat& format, std::size_t blocks,
                            const std::function<std::uint64_t(zrk_tarn_processor_t&, HostBlock&)>& measure)
{
    constexpr std::size_t kUnmeasured = 99; ///< blocks between two measured ones
    constexpr double kFullScale = 2147483648.0;

    zrk_tarn_processor_t processor;
    configure(processor, 0);
    HostBlock block(format);
    // Music at the width of the format, right-justified in its container.
    const double scale = std::ldexp(1.0 / kFullScale, static_cast<int>(format.bits - 8 * format.sampleBytes()));
    auto nextBlock = [&, sample = music().begin()]() mutable {
        for (std::size_t i = 0; i < kBlockFrames; ++i, sample += 2) block.put(i, scale * sample[0], scale * sample[1]);
    };

    std::vector<std::uint64_t> measured;
    while (measured.size() < blocks) {
        for (std::size_t i = 0; i < kUnmeasured; ++i) {
            nextBlock();
            block.process(processor, kBlockFrames);
        }
        nextBlock();
        measured.push_back(measure(processor, block));
    }
    const auto middle = measured.begin() + static_cast<std::ptrdiff_t>(blocks / 2);
    std::nth_element(measured.begin(), middle, measured.end());
    return *middle;
}

std::uint64_t instructionsOfLastBlock(const HostileSignal& signal)
{
    PlayedSignal played(signal);
    return instructionsOf([&] { played.processLastBlock(); });
}

std::uint64_t instructionsInMusic(const StreamFormat& format)
{
    return medianInMusic(format, 7, [](zrk_tarn_processor_t& processor, HostBlock& block) {
        return instructionsOf([&] { block.process(processor, kBlockFrames); });
    });
}

} // namespace tests
