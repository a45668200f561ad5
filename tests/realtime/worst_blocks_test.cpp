// Tests how many times the instructions of music a block costs at most.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "tests/realtime/block_cost.h"
#include "tests/support/single_steps.h"
#include "tests/support/subnormal_speed_test.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

// worst_blocks.txt has the most expensive signals that `./run worst` has found.

namespace tests
{

TEST(InstructionCounter, CountsExecutedInstructions)
{
    if (!canCountInstructions()) GTEST_SKIP() << "single-stepping is not available";
#if defined __x86_64__
    // Two instructions per turn, and one that sets the number of turns.
    const auto loop = [](std::uint64_t turns) {
        return instructionsOf([turns] {
            std::uint64_t left = turns;
            asm volatile("1: dec %0\n\tjnz 1b" : "+r"(left) : : "cc");
        });
    };
    const std::uint64_t of1 = loop(1);
    EXPECT_LT(of1, 20u);
    EXPECT_EQ(loop(2), of1 + 2);
    EXPECT_EQ(loop(1000), of1 + 2 * 999);
    EXPECT_EQ(instructionsOf([] {}), 0u);
#endif
}

using WorstBlocks = SubnormalSpeedTest;

TEST_P(WorstBlocks, CostAtMostTheBoundTimesMusic)
{
    if (!canCountInstructions()) GTEST_SKIP() << "single-stepping is not available";
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "sanitizers and coverage add instructions";
#if !defined __OPTIMIZE__
    GTEST_SKIP() << "the bound is for optimised code";
#endif
    const char* const set = zrk_tarn::chosenOperations().instructionSet;
    std::map<StreamFormat, std::uint64_t> inMusic;
    double worst = 0.0;
    const auto signals = hostileSignalsIn(TARN_WORST_BLOCKS);
    ASSERT_FALSE(signals.empty());
    for (const HostileSignal& signal : signals) {
        const auto [music, added] = inMusic.try_emplace(signal.format);
        if (added) music->second = instructionsInMusic(signal.format);
        const std::uint64_t instructions = instructionsOfLastBlock(signal);
        const double ratio = static_cast<double>(instructions) / static_cast<double>(music->second);
        EXPECT_LE(ratio, kWorstBlockBound) << signal;
        std::printf("%s: %llu instructions, %.3f times the %llu of music\n", set,
                    static_cast<unsigned long long>(instructions), ratio,
                    static_cast<unsigned long long>(music->second));
        worst = std::max(worst, ratio);
    }
    std::printf("%s: %.3f times at worst\n", set, worst);
}

INSTANTIATE_TEST_SUITE_P(, WorstBlocks, testing::Bool(), nameOfSpeed);

} // namespace tests
