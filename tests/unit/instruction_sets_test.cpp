// Tests of dispatch/instruction_sets.cpp.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "lanes/subnormal_speed.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

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
#if defined __x86_64__
    __builtin_cpu_init();
    if (__builtin_cpu_is("amdfam19h") != 0) {
        EXPECT_FALSE(zrk_tarn::subnormalsAreSlow);
    } else if (__builtin_cpu_is("amd") == 0 || __builtin_cpu_is("amdfam17h") != 0) {
        EXPECT_TRUE(zrk_tarn::subnormalsAreSlow);
    }
#else
    EXPECT_TRUE(zrk_tarn::subnormalsAreSlow);
#endif
}
