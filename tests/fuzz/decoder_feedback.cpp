// Feedback to libFuzzer about decoders that are not instrumented.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/decoder_feedback.h"

#include "tests/fuzz/marks.h"

#include <cstdint>
#include <functional>

#include <sndfile.h>

namespace fuzz
{

namespace
{

/// libFuzzer reads and clears the counters of this section for every input.
[[gnu::section("__libfuzzer_extra_counters")]] std::uint8_t extraCounters[1 << 13];

void count(const std::string& event)
{
    extraCounters[std::hash<std::string>{}(event) % sizeof extraCounters] = 1;
}

} // namespace

void noteDecoding(const std::string& path, std::string_view file, int exitCode, std::string_view words)
{
    SF_INFO info{};
    if (SNDFILE* const opened = sf_open(path.c_str(), SFM_READ, &info)) sf_close(opened);
    count(std::to_string(info.format) + " " + std::to_string(info.channels) + " " + std::to_string(exitCode));
    const std::string container = std::to_string(info.format & SF_FORMAT_TYPEMASK) + " ";
    for (const std::string_view mark : kMarks)
        if (file.find(mark) != std::string_view::npos) count(container + std::string(mark));

    std::string text(words);
    const std::string folder = path.substr(0, path.rfind('/'));
    for (std::size_t at = 0; (at = text.find(folder, at)) != std::string::npos;)
        text.erase(at, text.find_first_of(" :;\n", at) - at);
    std::erase_if(text, [](char c) { return c >= '0' && c <= '9'; });
    count(text);
}

} // namespace fuzz
