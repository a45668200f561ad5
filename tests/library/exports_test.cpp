// Tests of the shared library: its dependencies, its name and its instructions.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "tests/library/command_output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using tests::linesOf;

namespace
{

struct Symbol
{
    char kind;
    std::string name;
};

/// The dynamic symbols, demangled and without version.
std::vector<Symbol> symbols(const std::string& selection)
{
    std::vector<Symbol> found;
    for (const std::string& line : linesOf(TARN_NM " --dynamic --demangle " + selection + " '" TARN_SHARED_LIBRARY "'"))
        found.push_back({line[17], line.substr(19, line.find('@') - 19)});
    return found;
}

} // namespace

TEST(SharedLibrary, SetsTheSampleFloorAtLoadTime)
{
    // In zero-initialized memory, and correct when the program reads it.
    const auto found = symbols("--defined-only");
    EXPECT_TRUE(std::any_of(found.begin(), found.end(), [](const Symbol& symbol) {
        return symbol.name == "ZRKTarn::INTERNAL_SAMPLE_FLOOR" && symbol.kind == 'B';
    }));
    EXPECT_EQ(ZRKTarn::INTERNAL_SAMPLE_FLOOR, std::numeric_limits<std::int32_t>::min());
}

TEST(SharedLibrary, NeedsOnlyTheStandardLibraries)
{
    std::set<std::string> needed;
    for (const std::string& line : linesOf(TARN_OBJDUMP " --private-headers '" TARN_SHARED_LIBRARY "'"))
        if (line.find("NEEDED") != std::string::npos) needed.insert(line.substr(line.find_last_of(' ') + 1));
    EXPECT_TRUE(needed.contains("libc.so.6"));
    for (const char* standard : {"libstdc++.so.6", "libm.so.6", "libc.so.6", "libgcc_s.so.1", "ld-linux-x86-64.so.2",
                                 "ld-linux-aarch64.so.1", "ld-linux-riscv64-lp64d.so.1"})
        needed.erase(standard);
    EXPECT_EQ(needed, std::set<std::string>{});
}

// Every function that can wait, lock or enter the kernel is a symbol of another library. Compilers choose between sized
// and aligned operators for the engine, which is aligned.
TEST(SharedLibrary, CallsOnlyArithmeticMemoryAndOperatorNew)
{
    if (TARN_INSTRUMENTED) GTEST_SKIP() << "sanitizers and coverage add calls to the library";
    const std::set<std::string> allowed = {
        "memcmp",
        "memcpy",
        "memset",
        "memmove",
        "cosf",
        "cos",
        "sin",
        "pow",
        "floorf",
        "ceilf",
        "operator new(unsigned long)",
        "operator delete(void*)",
        "operator delete(void*, unsigned long)",
        "operator new(unsigned long, std::align_val_t)",
        "operator delete(void*, std::align_val_t)",
        "operator delete(void*, unsigned long, std::align_val_t)",
        // The C interface returns a status if an allocation fails; a stream frees its memory if one fails.
        "__cxa_begin_catch",
        "__cxa_end_catch",
        "_Unwind_Resume",
        "__gxx_personality_v0",
        "std::terminate()",
#if defined TARN_GENERIC
        "fegetenv",
        "fesetenv",
#endif
    };
    // Weak symbols of the startup files.
    const std::set<std::string> allowedIfWeak = {"__cxa_finalize", "__gmon_start__", "_ITM_deregisterTMCloneTable",
                                                 "_ITM_registerTMCloneTable"};
    std::set<std::string> needed;
    for (const Symbol& symbol : symbols("--undefined-only")) {
        const bool weak = symbol.kind == 'w';
        EXPECT_TRUE(weak ? allowedIfWeak.contains(symbol.name) : allowed.contains(symbol.name))
            << symbol.kind << ' ' << symbol.name;
        needed.insert(symbol.name);
    }
    for (const char* required : {"cosf", "pow", "memset", "operator new(unsigned long, std::align_val_t)"})
        EXPECT_TRUE(needed.contains(required)) << required;
}

// Lazy binding would search symbol tables at the first call, possibly on a real-time thread.
TEST(SharedLibrary, IsBoundWhenItIsLoaded)
{
    const auto lines = linesOf(TARN_OBJDUMP " --private-headers '" TARN_SHARED_LIBRARY "'");
    constexpr unsigned long kBindNow = 0x8;
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        std::istringstream words(line);
        std::string name, value;
        words >> name >> value;
        return name == "FLAGS" && (std::stoul(value, nullptr, 16) & kBindNow) != 0;
    }));
}

TEST(SharedLibrary, HasSonameOne)
{
    const auto lines = linesOf(TARN_OBJDUMP " --private-headers '" TARN_SHARED_LIBRARY "'");
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("SONAME") != std::string::npos && line.ends_with("libzrk_tarn.so.1");
    }));
}

TEST(SharedLibrary, HasNoFusedMultiplyAdds)
{
    std::size_t vectorMultiplications = 0;
    for (const std::string& line :
         linesOf(TARN_OBJDUMP " --disassemble --no-show-raw-insn '" TARN_SHARED_LIBRARY "'")) {
        for (const char* fused : {"fmadd", "fmsub", "fnmadd", "fnmsub", "fmla", "fmls"})
            EXPECT_EQ(line.find(fused), std::string::npos) << line;
        for (const char* multiplication : {"mulps", "fmul"})
            if (line.find(multiplication) != std::string::npos) ++vectorMultiplications;
    }
    EXPECT_GT(vectorMultiplications, 0u) << "no disassembly";
}

// The linker keeps one copy of an inline function, which could be the one of a newer instruction set.
TEST(InstructionSets, ShareNoSymbolWithTheRestOfTheLibrary)
{
    std::ifstream list(TARN_INSTRUCTION_SET_OBJECTS);
    std::size_t seen = 0;
    for (std::string set, object; list >> set >> object;) {
        for (const std::string& line : linesOf(TARN_NM " --defined-only --extern-only --demangle '" + object + "'")) {
            const bool isCode = line[17] == 'T' || line[17] == 'W';
            if (!isCode) continue;
            EXPECT_TRUE(line.find("zrk_tarn::" + set + "::") != std::string::npos) << object << ": " << line;
            ++seen;
        }
    }
    EXPECT_GT(seen, 0u) << "no objects in " TARN_INSTRUCTION_SET_OBJECTS;
}

// An option can switch a set off without a word.
TEST(InstructionSets, UseTheirRegisters)
{
    const std::map<std::string, std::string> registers{{"sse2", "%xmm"}, {"avx2", "%ymm"}, {"avx512", "%zmm"}};
    std::map<std::string, std::size_t> uses;
    std::istringstream built(TARN_INSTRUCTION_SETS);
    for (std::string set; built >> set;)
        if (registers.contains(set)) uses.emplace(set, 0);
    std::ifstream list(TARN_INSTRUCTION_SET_OBJECTS);
    for (std::string set, object; list >> set >> object;) {
        if (!uses.contains(set)) continue;
        for (const std::string& line : linesOf(TARN_OBJDUMP " --disassemble --no-show-raw-insn '" + object + "'"))
            if (line.find(registers.at(set)) != std::string::npos) ++uses[set];
    }
    for (const auto& [set, count] : uses) EXPECT_GT(count, 1000u) << set;
}
