// Tests that the binary interface of the shared library is that of abi.txt.
// SPDX-License-Identifier: MIT
#include "c_api/tarn.h"
#include "host/zrk_tarn_processor.h"
#include "stream/upmix_stream.h"
#include "tests/library/command_output.h"
#include "tests/support/record_fields.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <fstream>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

// abi.txt lists the members of the public records and the exported symbols; it is the same for every processor.

namespace
{

constexpr const char* kHeading = "# The binary interface of libzrk_tarn.so.1; written and compared by abi_test.cpp.";

std::string demangled(const char* name)
{
    char* const readable = abi::__cxa_demangle(name, nullptr, nullptr, nullptr);
    const std::string result = readable == nullptr ? name : readable;
    std::free(readable);
    return result;
}

/// Words joined by spaces.
template <typename... Words>
std::string joined(const Words&... words)
{
    std::ostringstream line;
    const char* separator = "";
    ((line << separator << words, separator = " "), ...);
    return line.str();
}

/// Adds the lines of a record: its members in order, then the record, so that the first changed line shows the cause.
template <typename Record, typename ForEach>
void addRecord(const char* name, ForEach forEach, std::vector<std::string>& lines)
{
    Record record{};
    forEach(record, record, [&](const char* member, const auto& field, const auto&) {
        using Field = std::remove_cvref_t<decltype(field)>;
        const auto offset = reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&record);
        lines.push_back(joined("member", std::string(name) + "::" + member, "offset", offset, "size", sizeof field,
                               "alignment", alignof(Field), demangled(typeid(Field).name())));
    });
    lines.push_back(joined("record", name, "size", sizeof record, "alignment", alignof(Record)));
}

/// Visits fields with their names.
template <std::size_t kNames, typename Visit, typename... Fields>
void visitAs(const char* const (&names)[kNames], const Visit& visit, const Fields&... fields)
{
    static_assert(kNames == sizeof...(Fields));
    const char* const* name = names;
    (visit(*name++, fields, fields), ...);
}

/// Adds the records of the streaming adapter and its C interface.
void addStreamRecords(std::vector<std::string>& lines)
{
    using namespace zrk_tarn;
    addRecord<OutputSlot>(
        "OutputSlot",
        [](auto& a, auto&, auto visit) {
            auto& [source, index] = a;
            visitAs({"source", "index"}, visit, source, index);
        },
        lines);
    addRecord<RemapGains>(
        "RemapGains", [](auto& a, auto&, auto visit) { visit("gain", a.gain, a.gain); }, lines);
    addRecord<StreamConfiguration>(
        "StreamConfiguration",
        [](auto& a, auto&, auto visit) {
            auto& [rate, format, inputs, left, right, outputs, slots, remap, mode, limiter, bass] = a;
            visitAs({"sampleRateHz", "format", "inputSlots", "leftSlot", "rightSlot", "outputSlots", "outputs", "remap",
                     "mode", "limiter", "bass"},
                    visit, rate, format, inputs, left, right, outputs, slots, remap, mode, limiter, bass);
        },
        lines);
    addRecord<StreamMeters>(
        "StreamMeters",
        [](auto& a, auto&, auto visit) {
            auto& [peak, rms, leftRight, frontBack, speed, blocks, saturated, invalid, limiterGain, smallest,
                   limitedBlocks, groupLevel, groupPlace, groupCentre, groupUpperHz, groupSurround] = a;
            visitAs({"peak", "rms", "leftRight", "frontBack", "speed", "blocks", "saturated", "invalid", "limiterGain",
                     "smallestLimiterGain", "limitedBlocks", "groupLevel", "groupPlace", "groupCentre", "groupUpperHz",
                     "groupSurround"},
                    visit, peak, rms, leftRight, frontBack, speed, blocks, saturated, invalid, limiterGain, smallest,
                    limitedBlocks, groupLevel, groupPlace, groupCentre, groupUpperHz, groupSurround);
        },
        lines);
    lines.push_back(joined("record", "UpmixStream", "size", sizeof(UpmixStream), "alignment", alignof(UpmixStream)));
    addRecord<tarn_slot>(
        "tarn_slot",
        [](auto& a, auto&, auto visit) {
            auto& [source, index] = a;
            visitAs({"source", "index"}, visit, source, index);
        },
        lines);
    addRecord<tarn_configuration>(
        "tarn_configuration",
        [](auto& a, auto&, auto visit) {
            auto& [size, rate, format, inputs, left, right, outputs, slots, remap, gains, mode, limiter, bass] = a;
            visitAs({"size", "sample_rate", "format", "input_slots", "left_slot", "right_slot", "output_slots",
                     "outputs", "remap", "gains", "mode", "limiter", "bass"},
                    visit, size, rate, format, inputs, left, right, outputs, slots, remap, gains, mode, limiter, bass);
        },
        lines);
    addRecord<tarn_meters>(
        "tarn_meters",
        [](auto& a, auto&, auto visit) {
            auto& [size, peak, rms, leftRight, frontBack, speed, blocks, saturated, invalid, limiterGain, smallest,
                   limitedBlocks, groupLevel, groupPlace, groupCentre, groupUpperHz, groupSurround] = a;
            visitAs({"size", "peak", "rms", "left_right", "front_back", "speed", "blocks", "saturated", "invalid",
                     "limiter_gain", "smallest_limiter_gain", "limited_blocks", "group_level", "group_place",
                     "group_centre", "group_upper_hz", "group_surround"},
                    visit, size, peak, rms, leftRight, frontBack, speed, blocks, saturated, invalid, limiterGain,
                    smallest, limitedBlocks, groupLevel, groupPlace, groupCentre, groupUpperHz, groupSurround);
        },
        lines);
}

/// Adds exported symbols with their versions, and the sizes of data, which programs with copy relocations rely on.
void addSymbols(std::vector<std::string>& lines)
{
    const auto first = static_cast<std::ptrdiff_t>(lines.size());
    for (const std::string& line :
         tests::linesOf(TARN_NM " --dynamic --defined-only --format=posix '" TARN_SHARED_LIBRARY "'")) {
        std::istringstream words(line);
        std::string name;
        char kind = 0;
        std::string address;
        std::size_t size = 0;
        words >> name >> kind >> address >> std::hex >> size;
        const std::string readable = demangled(name.substr(0, name.find('@')).c_str());
        if (kind == 'A') {
            lines.push_back(joined("version", name));
        } else if (kind == 'T') {
            lines.push_back(joined("function", name, readable));
        } else {
            lines.push_back(joined("data", name, "size", size, readable));
        }
    }
    std::sort(lines.begin() + first, lines.end());
}

std::vector<std::string> builtInterface()
{
    std::vector<std::string> lines{kHeading};
    addRecord<ZRKTarn>(
        "ZRKTarn", [](auto&&... each) { tests::forEachField(each...); }, lines);
    addRecord<zrk_tarn_processor_t>(
        "zrk_tarn_processor_t", [](auto&&... each) { tests::forEachProcessorField(each...); }, lines);
    addRecord<Tarn_Parameters>(
        "Tarn_Parameters", [](auto&&... each) { tests::forEachParameter(each...); }, lines);
    addRecord<audio_channel_assignment_t>(
        "audio_channel_assignment_t",
        [](auto& a, auto&, auto visit) {
            auto& [code] = a;
            visit("code", code, code);
        },
        lines);
    addStreamRecords(lines);
    addSymbols(lines);
    return lines;
}

} // namespace

TEST(SharedLibrary, KeepsItsBinaryInterface)
{
    const auto needed = tests::linesOf(TARN_NM " --dynamic --undefined-only '" TARN_SHARED_LIBRARY "'");
    if (std::any_of(needed.begin(), needed.end(), [](const auto& line) { return line.find("__asan_") != line.npos; }))
        GTEST_SKIP() << "AddressSanitizer widens exported data";

    const auto built = builtInterface();
    std::ofstream copy(TARN_BUILT_ABI);
    for (const std::string& line : built) copy << line << '\n';
    copy.close();

    std::vector<std::string> expected;
    std::ifstream file(TARN_ABI);
    for (std::string line; std::getline(file, line);) expected.push_back(line);

    const auto [was, is] = std::mismatch(expected.begin(), expected.end(), built.begin(), built.end());
    if (was == expected.end() && is == built.end()) return;
    ADD_FAILURE()
        << "abi.txt, line " << was - expected.begin() + 1 << '\n'
        << "  was: " << (was == expected.end() ? "the end" : *was) << '\n'
        << "  is:  " << (is == built.end() ? "the end" : *is) << '\n'
        << "Programs that were linked with an earlier library break if members or symbols have moved or disappeared.\n"
        << "If the change is intended, raise SOVERSION unless lines were only added, and\n"
        << "  cp " TARN_BUILT_ABI " " TARN_ABI;
}
