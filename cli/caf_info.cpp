// Parses the info chunk of CAF files into names and texts.
// SPDX-License-Identifier: MIT
#include "cli/caf_info.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace tarn
{

namespace
{

constexpr std::size_t kMaxTexts = 1000;
constexpr std::size_t kCountBytes = 4;

/// The name of a Vorbis comment for a key.
struct CafKey
{
    std::string_view key; ///< in capitals
    std::string_view name;
};

constexpr std::array<CafKey, 12> kCafKeys{{{"TRACK NUMBER", "TRACKNUMBER"},
                                           {"TRACK", "TRACKNUMBER"},
                                           {"DISC NUMBER", "DISCNUMBER"},
                                           {"DISC", "DISCNUMBER"},
                                           {"ALBUM_ARTIST", "ALBUMARTIST"},
                                           {"ALBUM ARTIST", "ALBUMARTIST"},
                                           {"RECORDED DATE", "DATE"},
                                           {"YEAR", "DATE"},
                                           {"COMMENTS", "COMMENT"},
                                           {"TEMPO", "BPM"},
                                           {"KEY SIGNATURE", "INITIALKEY"},
                                           {"TIME SIGNATURE", "TIMESIGNATURE"}}};

/// Keys that describe the encoding of the file.
constexpr std::array<std::string_view, 4> kFileKeys{"SOURCE ENCODER", "NOMINAL BIT RATE", "CHANNEL LAYOUT",
                                                    "APPROXIMATE DURATION IN SECONDS"};

/// Removes the text up to the next zero from the front and returns it.
std::string popText(std::string_view& rest)
{
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    std::string text(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return text;
}

/// The name of a key; the key itself if another text has the name already.
std::string nameOf(const std::string& key, const CafInfo& info)
{
    const auto* const found =
        std::find_if(kCafKeys.begin(), kCafKeys.end(), [&key](const CafKey& each) { return each.key == key; });
    if (found == kCafKeys.end()) return key;
    const bool isUsed = std::any_of(info.texts.begin(), info.texts.end(),
                                    [found](const auto& text) { return text.first == found->name; });
    return std::string(isUsed ? key : found->name);
}

} // namespace

CafInfo readCafInfo(std::string_view contents)
{
    CafInfo info;
    contents.remove_prefix(std::min(kCountBytes, contents.size()));
    while (!contents.empty()) {
        std::string key = popText(contents);
        std::string text = popText(contents);
        for (char& c : key) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (key.empty() || text.empty() || std::find(kFileKeys.begin(), kFileKeys.end(), key) != kFileKeys.end())
            continue;
        info.isTruncated = info.texts.size() == kMaxTexts;
        if (info.isTruncated) break;
        info.texts.emplace_back(nameOf(key, info), std::move(text));
    }
    return info;
}

} // namespace tarn
