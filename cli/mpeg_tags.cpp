// Reads ID3v2, APE and ID3v1 tags with TagLib.
// SPDX-License-Identifier: MIT
#include "cli/mpeg_tags.h"

#include "cli/id3v2_tags.h"
#include "cli/text.h"
#include "cli/utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include <apetag.h>
#include <id3v1tag.h>
#include <mpegfile.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;
using TagLib::String;

/// Decodes texts of ID3v1, which declares no encoding.
class UnknownEncoding final : public TagLib::ID3v1::StringHandler
{
public:
    String parse(const ByteVector& data) const override
    {
        const std::string bytes(data.data(), data.size());
        const std::string text = toUtf8(bytes.substr(0, bytes.find('\0')));
        if (!isUtf8(bytes.substr(0, bytes.find('\0')))) converted = true;
        return String(text, String::UTF8).stripWhiteSpace();
    }

    mutable bool converted = false;
};

/// The names of pictures in APE tags, in the order of the type numbers of ID3v2: "COVER ART (FRONT)".
constexpr std::array<const char*, 21> kApePictures{"OTHER",
                                                   "ICON",
                                                   "OTHER ICON",
                                                   "FRONT",
                                                   "BACK",
                                                   "LEAFLET",
                                                   "MEDIA",
                                                   "LEAD ARTIST",
                                                   "ARTIST",
                                                   "CONDUCTOR",
                                                   "BAND",
                                                   "COMPOSER",
                                                   "LYRICIST",
                                                   "RECORDING LOCATION",
                                                   "DURING RECORDING",
                                                   "DURING PERFORMANCE",
                                                   "VIDEO CAPTURE",
                                                   "FISH",
                                                   "ILLUSTRATION",
                                                   "BAND LOGOTYPE",
                                                   "PUBLISHER LOGOTYPE"};

/// Adds a picture of an APE tag: file name, zero, image data. Returns whether the item is a picture.
bool addApePicture(TagCollector& collector, const String& key, const ByteVector& item)
{
    const auto* const kind = std::ranges::find_if(
        kApePictures, [&key](const char* name) { return key == "COVER ART (" + String(name) + ")"; });
    const int end = item.find('\0');
    if (kind == kApePictures.end() || end < 0) return false;
    const ByteVector data = item.mid(static_cast<unsigned>(end) + 1);
    collector.tags.pictures.push_back({.kind = static_cast<int>(kind - kApePictures.begin()),
                                       .mimeType = data.startsWith("\x89PNG") ? "image/png" : "image/jpeg",
                                       .description = {},
                                       .data = data});
    return true;
}

/// Adds the texts, links and pictures of an APE tag, and a note about other items.
void addApe(TagCollector& collector, const TagLib::APE::Tag& tag)
{
    TagLib::PropertyMap texts = tag.properties();
    TagLib::StringList others;
    for (const auto& [key, item] : tag.itemListMap()) {
        if (item.type() == TagLib::APE::Item::Text) continue;
        if (item.type() == TagLib::APE::Item::Locator) {
            if (!texts.contains(key)) texts.insert(key, item.values());
        } else if (!addApePicture(collector, key, item.binaryData())) {
            others.append(key);
        }
    }
    collector.add(texts);
    if (!others.isEmpty()) collector.tags.leftOut.push_back("its APE items " + joinedNames(others) + " are left out");
}

} // namespace

void collectMpeg(TagLib::IOStream& stream, TagCollector& collector)
{
    static const UnknownEncoding kHandler;
    kHandler.converted = false;
    TagLib::ID3v1::Tag::setStringHandler(&kHandler);
    TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    if (!file.isValid()) return;
    addId3v2(collector, file.hasID3v2Tag() ? file.ID3v2Tag() : nullptr);
    if (file.hasAPETag()) {
        addApe(collector, *file.APETag());
    }
    if (file.hasID3v1Tag() && collector.add(file.ID3v1Tag()->properties()))
        collector.tags.converted = kHandler.converted;
}

} // namespace tarn
