#include "dispatch/instruction_sets.h"
#include "tests/realtime/block_cost.h"
#include "tests/realtime/instruction_counter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

// The work on a block is bounded: whatever a host hands over, it is at most twice that of ordinary music, counted in
// instructions. worst_blocks.txt holds the worst signals that `./run worst` has found.

namespace tests
{

TEST(InstructionCounter, CountsWhatIsExecuted)
{
    if (!canCountInstructions()) GTEST_SKIP() << "the processor cannot be stepped through here";
#if defined __x86_64__
    // Two instructions a turn, and the one that sets the number of turns.
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

TEST(WorstBlocks, CostAtMostTwiceWhatMusicDoes)
{
    if (!canCountInstructions()) GTEST_SKIP() << "the processor cannot be stepped through here";
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "a sanitizer or coverage executes more than the library";
#if !defined __OPTIMIZE__
    GTEST_SKIP() << "what unoptimised code executes says nothing";
#endif
    constexpr double kBound = 2.0;
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
        EXPECT_LE(ratio, kBound) << signal;
        std::printf("%s: %llu instructions, %.3f times the %llu of music\n", set,
                    static_cast<unsigned long long>(instructions), ratio,
                    static_cast<unsigned long long>(music->second));
        worst = std::max(worst, ratio);
    }
    std::printf("%s: %.3f times at worst\n", set, worst);
}

} // namespace tests
