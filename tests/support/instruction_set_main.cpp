#include "engine/instruction_sets.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string_view>

// The main of tests that run once for every instruction set: --instruction-set=NAME makes the engines work with it.

int main(int count, char** arguments)
{
    testing::InitGoogleTest(&count, arguments);
    constexpr std::string_view kOption = "--instruction-set=";
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (!argument.starts_with(kOption)) {
            std::cerr << argument << ": not an option of this test\n";
            return 64;
        }
        bool usable = false;
        for (const zrk_tarn::BlockOperations* operations : zrk_tarn::usableOperations()) {
            if (argument.substr(kOption.size()) != operations->instructionSet) continue;
            zrk_tarn::chooseOperations(*operations);
            usable = true;
        }
        if (!usable && !testing::GTEST_FLAG(list_tests)) {
            // As GoogleTest marks a skipped test, so that ctest counts it as such.
            std::cout << "[  SKIPPED ] this processor cannot run " << argument.substr(kOption.size()) << '\n';
            return 0;
        }
    }
    return RUN_ALL_TESTS();
}
