#include "engine/zrk_tarn.h"
#include "tests/library/command_output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <set>
#include <string>
#include <vector>

// The shared library's face: what it needs, how it is named, what is in it. What it exports is in abi_test.cpp.

using tests::linesOf;

namespace
{

struct Symbol
{
    char kind;
    std::string name;
};

/// The dynamic symbols by nm, demangled and without their version.
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
    // In the memory that is zero in the file, and right by the time that a program reads it.
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
    for (const char* standard :
         {"libstdc++.so.6", "libm.so.6", "libc.so.6", "libgcc_s.so.1", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"})
        needed.erase(standard);
    EXPECT_EQ(needed, std::set<std::string>{});
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
    EXPECT_GT(vectorMultiplications, 0u) << "the disassembly shows nothing";
}

// Two definitions of an inline function are one after linking: one that was compiled for a newer instruction set must
// not take the place of one that every processor can run.
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
