// Tests of dispatch/instruction_sets.cpp.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "lanes/subnormal_speed.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace
{

/// Whether the kernel names a processor of AMD of family 0x19 or later.
bool isRecentProcessorOfAmd()
{
#if defined __x86_64__ // an emulator shows the processor that it runs on
    std::ifstream lines("/proc/cpuinfo");
    std::string line;
    bool isAmd = false;
    while (std::getline(lines, line)) {
        const std::string value = line.substr(line.find(':') + 1);
        if (line.starts_with("vendor_id")) isAmd = value == " AuthenticAMD";
        if (line.starts_with("cpu family")) return isAmd && std::stoi(value) >= 0x19;
    }
#endif
    return false;
}

} // namespace

TEST(InstructionSets, FastestUsableSetIsChosenAtLoadTime)
{
    EXPECT_EQ(&zrk_tarn::chosenOperations(), zrk_tarn::usableOperations().back());
    EXPECT_STREQ(zrk_tarn_instruction_set(), zrk_tarn::usableOperations().back()->instructionSet);
    std::printf("chosen: %s\n", zrk_tarn_instruction_set());
}

TEST(InstructionSets, ChosenSetIsReported)
{
    const zrk_tarn::BlockOperations& atLoad = zrk_tarn::chosenOperations();
    for (const zrk_tarn::BlockOperations* operations : zrk_tarn::usableOperations()) {
        zrk_tarn::chooseOperations(*operations);
        EXPECT_STREQ(zrk_tarn_instruction_set(), operations->instructionSet);
    }
    zrk_tarn::chooseOperations(atLoad);
}

TEST(InstructionSets, HaveTheirNames)
{
    std::string names;
    for (const zrk_tarn::BlockOperations* operations : zrk_tarn::usableOperations())
        names += std::string(operations->instructionSet) + ' ';
#if defined TARN_GENERIC
    EXPECT_EQ(names, "generic ");
#elif defined __x86_64__
    EXPECT_TRUE(std::string("sse2 avx2 avx512 ").starts_with(names)) << names;
#elif defined __aarch64__
    EXPECT_EQ(names, "neon ");
#endif
}

TEST(InstructionSets, SubnormalNumbersAreSlowExceptOnRecentProcessorsOfAmd)
{
    EXPECT_EQ(zrk_tarn::subnormalsAreSlow, !isRecentProcessorOfAmd());
}
