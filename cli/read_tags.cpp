// Reads the tags of all file formats with TagLib and libsndfile.
// SPDX-License-Identifier: MIT
#include "cli/tags.h"

#include "cli/caf_info.h"
#include "cli/chunks.h"
#include "cli/id3v2_tags.h"
#include "cli/interrupt.h"
#include "cli/mpeg_tags.h"
#include "cli/riff_info.h"
#include "cli/tag_collector.h"
#include "cli/xiph_tags.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <aifffile.h>
#include <tfilestream.h>
#include <unistd.h>
#include <wavfile.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;
using TagLib::String;

/// Name of a Vorbis comment for a text that libsndfile reads.
struct TextKind
{
    int number;
    const char* name;
};

constexpr std::array<TextKind, 9> kTextKinds{{{SF_STR_TITLE, "TITLE"},
                                              {SF_STR_COPYRIGHT, "COPYRIGHT"},
                                              {SF_STR_ARTIST, "ARTIST"},
                                              {SF_STR_COMMENT, "COMMENT"},
                                              {SF_STR_DATE, "DATE"},
                                              {SF_STR_ALBUM, "ALBUM"},
                                              {SF_STR_LICENSE, "LICENSE"},
                                              {SF_STR_TRACKNUMBER, "TRACKNUMBER"},
                                              {SF_STR_GENRE, "GENRE"}}};

/// A file that ends when a signal arrives. TagLib searches some files to their end.
class InterruptibleStream final : public TagLib::FileStream
{
public:
    using FileStream::FileStream;

    ByteVector readBlock(unsigned long length) override
    {
        return arrivedSignal() != 0 ? ByteVector() : FileStream::readBlock(length);
    }
};

String textOf(TagCollector& collector, const std::string& bytes)
{
    return {collector.toUtf8Text(bytes), String::UTF8};
}

/// The name of a Vorbis comment for a RIFF INFO field; the field itself if there is none.
String nameOfInfo(const std::string& field)
{
    const auto* const found = std::ranges::find(kInfoNames, field, &InfoName::info);
    return found == kInfoNames.end() ? String(field) : String(found->name);
}

/// Adds the LIST chunks with RIFF INFO of a WAVE or RF64 file. Fields have a name, a 32-bit size and a text in unknown
/// encoding, padded to an even size. TagLib would decode the texts as UTF-8.
void addInfo(int descriptor, TagCollector& collector)
{
    constexpr std::size_t kHead = 8;
    TagLib::PropertyMap texts;
    for (const std::string& list : chunksNamed(descriptor, "LIST")) {
        if (!list.starts_with("INFO")) continue;
        for (std::size_t at = 4; at + kHead <= list.size();) {
            const std::string field = list.substr(at, 4);
            const std::size_t size = ByteVector(list.data() + at + 4, 4).toUInt(false);
            const std::string all = list.substr(at + kHead, size);
            const std::string text = all.substr(0, all.find('\0'));
            const String name = nameOfInfo(field);
            if (!text.empty() && !texts.contains(name) && !collector.tags.texts.contains(name))
                texts.insert(name, textOf(collector, text));
            at += kHead + size + size % 2;
        }
    }
    collector.add(texts);
}

/// Adds the texts of a CAF file, which should be UTF-8.
void collectCaf(int descriptor, TagCollector& collector)
{
    TagLib::PropertyMap texts;
    for (const std::string& contents : chunksNamed(descriptor, "info")) {
        const CafInfo info = readCafInfo(contents);
        for (const auto& [name, text] : info.texts) {
            texts.insert(textOf(collector, name), textOf(collector, text));
        }
        if (contents.empty() || info.isTruncated)
            collector.tags.leftOut.emplace_back(contents.empty() ? "its info chunk is too large or cannot be read"
                                                                 : "its texts after the first 1000 are left out");
    }
    collector.add(texts);
}

/// Adds the texts of libsndfile, in unknown encoding.
void addStrings(SNDFILE* file, TagCollector& collector)
{
    TagLib::PropertyMap texts;
    for (const auto& [number, name] : kTextKinds) {
        const char* const bytes = sf_get_string(file, number);
        if (bytes == nullptr || *bytes == '\0' || collector.tags.texts.contains(name)) continue;
        texts.insert(name, textOf(collector, bytes));
    }
    collector.add(texts);
}

/// Reads the ID3v2 tags of files that TagLib does not support: RF64, WAVE with wrong sizes, and long files.
void collectId3Chunks(int descriptor, const std::string& name, TagCollector& collector)
{
    for (const std::string& contents : chunksNamed(descriptor, name)) {
        addId3v2(collector, ByteVector(contents.data(), static_cast<unsigned>(contents.size())));
        if (contents.empty()) collector.tags.leftOut.emplace_back("its ID3v2 tag of more than 16 MiB is left out");
    }
}

/// Reads the ID3v2 tag of a WAVE file with TagLib. Returns whether there is one.
bool collectId3OfWave(TagLib::IOStream& stream, TagCollector& collector)
{
    const TagLib::RIFF::WAV::File wave(&stream, false);
    if (wave.hasID3v2Tag()) addId3v2(collector, wave.ID3v2Tag());
    return wave.hasID3v2Tag();
}

} // namespace

Tags readTags(int descriptor, SNDFILE* file, int format)
{
    TagCollector collector;
    // The stream closes its descriptor.
    InterruptibleStream stream(dup(descriptor), true);
    if (!stream.isOpen()) return {};
    // TagLib counts bytes between chunks with 32 bits, and can walk in circles through longer files.
    const bool isLong = static_cast<std::uint64_t>(stream.length()) > UINT32_MAX;
    switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_FLAC:
        collectFlac(stream, collector);
        break;
    case SF_FORMAT_OGG:
        collectOgg(stream, format & SF_FORMAT_SUBMASK, collector);
        break;
    case SF_FORMAT_MPEG:
        collectMpeg(stream, collector);
        break;
    case SF_FORMAT_AIFF:
        if (isLong) {
            collectId3Chunks(descriptor, "ID3 ", collector);
        } else {
            addId3v2(collector, TagLib::RIFF::AIFF::File(&stream, false).tag());
        }
        addStrings(file, collector);
        break;
    case SF_FORMAT_CAF:
        collectCaf(descriptor, collector);
        addStrings(file, collector);
        break;
    case SF_FORMAT_RF64:
        collectId3Chunks(descriptor, "id3 ", collector);
        addInfo(descriptor, collector);
        break;
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
        if (isLong || !collectId3OfWave(stream, collector)) collectId3Chunks(descriptor, "id3 ", collector);
        addInfo(descriptor, collector);
        break;
    default:
        addStrings(file, collector);
    }
    throwIfInterrupted(); // the stream has ended early
    return collector.tags;
}

} // namespace tarn
