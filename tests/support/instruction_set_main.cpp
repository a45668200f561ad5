// The main of tests that run once for every instruction set: --instruction-set=NAME selects it.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string_view>

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
        const std::string_view name = argument.substr(kOption.size());
        const auto named = [&](const zrk_tarn::BlockOperations* operations) {
            return operations->instructionSet == name;
        };
        const auto all = zrk_tarn::allOperations();
        const auto usable = zrk_tarn::usableOperations();
        if (std::none_of(all.begin(), all.end(), named)) {
            std::cerr << name << ": the library has no such instruction set\n";
            return 64;
        }
        const auto found = std::find_if(usable.begin(), usable.end(), named);
        if (found == usable.end()) {
            // GoogleTest's mark of a skipped test, which ctest recognizes.
            std::cout << "[  SKIPPED ] this processor cannot run " << name << '\n';
            return 0;
        }
        zrk_tarn::chooseOperations(**found);
    }
    return RUN_ALL_TESTS();
}
