// Collects texts and pictures; leaves out what describes the stereo file.
// SPDX-License-Identifier: MIT
#include "cli/tag_collector.h"

#include "cli/text.h"
#include "cli/utf8.h"

#include <algorithm>
#include <array>

namespace tarn
{

namespace
{

using TagLib::String;
using TagLib::StringList;

/// Whether a text describes the stereo file instead of the recording.
bool describesFile(const String& name)
{
    constexpr std::array kPrefixes{"REPLAYGAIN_", "R128_",        "ENCODER",
                                   "ENCODING",    "FILETYPE",     "ITUNNORM",
                                   "ITUNSMPB",    "COMMENT:ITUN", "WAVEFORMATEXTENSIBLE_CHANNEL_MASK"};
    const std::string text = name.to8Bit(true);
    return std::ranges::any_of(kPrefixes, [&text](const char* prefix) { return text.starts_with(prefix); });
}

} // namespace

bool TagCollector::add(const TagLib::PropertyMap& texts)
{
    bool beyondAscii = false;
    for (const auto& [name, values] : texts) {
        StringList kept;
        for (const String& value : values)
            if (!value.isEmpty()) kept.append(value);
        if (kept.isEmpty() || describesFile(name) || tags.texts.contains(name)) continue;
        tags.texts.insert(name, kept);
        beyondAscii = beyondAscii || !kept.toString("").isAscii();
    }
    return beyondAscii;
}

std::string TagCollector::toUtf8Text(const std::string& bytes)
{
    if (!isUtf8(bytes)) tags.converted = true;
    return toUtf8(bytes);
}

void TagCollector::addPicture(const TagLib::FLAC::Picture& picture)
{
    tags.pictures.push_back({.kind = pictureKind(picture.type()),
                             .mimeType = picture.mimeType(),
                             .description = picture.description(),
                             .width = picture.width(),
                             .height = picture.height(),
                             .depth = picture.colorDepth(),
                             .colours = picture.numColors(),
                             .data = picture.data()});
}

std::string joinedNames(const StringList& names)
{
    return names.toString(", ").to8Bit(true);
}

} // namespace tarn
