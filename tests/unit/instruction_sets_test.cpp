// Tests of dispatch/instruction_sets.cpp.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "lanes/subnormal_speed.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#if defined __x86_64__
#include <cpuid.h>
#endif

namespace
{

/// Whether the processor is one of AMD of family 0x19 or later.
bool isRecentProcessorOfAmd()
{
#if defined __x86_64__
    __builtin_cpu_init();
    unsigned int signature = 0;
    unsigned int unused = 0;
    if (__builtin_cpu_is("amd") == 0 || __get_cpuid(1, &signature, &unused, &unused, &unused) == 0) return false;
    const unsigned int family = signature >> 8 & 0xf;
    return family == 0xf && family + (signature >> 20 & 0xff) >= 0x19;
#else
    return false;
#endif
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
