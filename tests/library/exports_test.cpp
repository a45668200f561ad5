#include "engine/zrk_tarn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

// The shared library's face: what it exports, what it needs, how it is named.

namespace
{

struct Symbol
{
    char kind;
    std::string name;
};

/// The lines that a command prints.
std::vector<std::string> linesOf(const std::string& command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> lines;
    for (std::array<char, 4096> line; std::fgets(line.data(), line.size(), pipe.get()) != nullptr;) {
        lines.emplace_back(line.data());
        lines.back().pop_back();
    }
    return lines;
}

/// The dynamic symbols by nm, demangled and without their version.
std::vector<Symbol> symbols(const std::string& selection)
{
    std::vector<Symbol> found;
    for (const std::string& line : linesOf(TARN_NM " --dynamic --demangle " + selection + " '" TARN_SHARED_LIBRARY "'"))
        found.push_back({line[17], line.substr(19, line.find('@') - 19)});
    return found;
}

} // namespace

TEST(SharedLibrary, ExportsItsInterfaceAndNothingElse)
{
    std::set<std::string> expected = {
        "ZRK_TARN_1",
        "lpf",
        "zrk_tarn_instruction_set()",
        "cosModTablesInit()",
        "cosModDCT4(float*, float*)",
        "cosModDCT4_X(float*, float*)",
        "cosModDCT4_X1(float*, float*, float*)",
        "DCT2_2(int, float*, float*, float*)",
        "DCT2_2_X(int, float*, float*, float*)",
        "DCT2_3(int, float*, float*, float*)",
        "DCT2_3_X(int, float*, float*, float*)",
        "DCT2_3_XX(int, float*, float*, float*, float*, float*)",
        "DCT4_2(int, float*, float*, float*)",
        "DCT4_3(int, float*, float*, float*)",
        "DCT4_3_X(int, float*, float*, float*)",
        "zrk_tarn_processor_t::zrk_tarn_processor_t()",
        "zrk_tarn_processor_t::~zrk_tarn_processor_t()",
        "zrk_tarn_processor_t::setup(int, int, float)",
        "zrk_tarn_processor_t::set_remap_coeff(unsigned int (*) [4])",
        "zrk_tarn_processor_t::process(void*, unsigned int, unsigned int, unsigned int, unsigned int, "
        "audio_channel_assignment_t*)",
        "ZRKTarn::ZRKTarn()",
        "ZRKTarn::Open()",
        "ZRKTarn::Close()",
        "ZRKTarn::Uninitialize()",
        "ZRKTarn::Process(int**, int**, unsigned int)",
        "ZRKTarn::Initialize(Tarn_Parameters)",
        "ZRKTarn::SetChannelPtrs(unsigned char*, unsigned char*, unsigned char*, unsigned char*)",
        "ZRKTarn::SetRemapCoeff(int (*) [4])",
        "ZRKTarn::SetReserved()",
        "ZRKTarn::ReadInputChannels(unsigned int, unsigned int)",
        "ZRKTarn::WriteOutput(unsigned int, unsigned int)",
        "ZRKTarn::RemapOutput(unsigned int, unsigned int)",
        "ZRKTarn::ProcessCine3(unsigned int, unsigned int)",
        "ZRKTarn::ProcessCine3InterLeave(unsigned int, unsigned int)",
        "ZRKTarn::ProcessCine3InterLeaveRemap(unsigned int, unsigned int)",
    };
    for (const char* constant : {"INTERNAL_BIT_DEPTH", "INTERNAL_SAMPLE_CEILING", "INTERNAL_SAMPLE_FLOOR", "POWER",
                                 "SLOWER", "SLOW", "MID", "FAST", "LOOP_COUNT48", "LOOP_COUNT64", "LOOP_COUNT96",
                                 "LOOP_COUNT192", "THRES_BANDS", "MIDTHRES_BANDS", "SLOWTHRES_BANDS"})
        expected.insert(std::string("ZRKTarn::") + constant);
    for (char region = '1'; region <= '9'; ++region)
        for (const char set : {'5', '6'}) expected.insert(std::string("ZRKTarn::MATRIX") + region + set);

    std::set<std::string> exported;
    for (const Symbol& symbol : symbols("--defined-only")) exported.insert(symbol.name);
    EXPECT_EQ(exported, expected);
}

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
