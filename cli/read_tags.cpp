// Reads the tags of all file formats with TagLib and libsndfile.
// SPDX-License-Identifier: MIT
#include "cli/tags.h"

#include "cli/caf_info.h"
#include "cli/chunks.h"
#include "cli/riff_info.h"
#include "cli/text.h"
#include "cli/utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include <aifffile.h>
#include <apetag.h>
#include <attachedpictureframe.h>
#include <flacpicture.h>
#include <id3v1tag.h>
#include <id3v2header.h>
#include <id3v2tag.h>
#include <infotag.h>
#include <mpegfile.h>
#include <oggflacfile.h>
#include <opusfile.h>
#include <tbytevectorstream.h>
#include <textidentificationframe.h>
#include <tfilestream.h>
#include <unistd.h>
#include <vorbisfile.h>
#include <wavfile.h>
#include <xiphcomment.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;
using TagLib::String;
using TagLib::StringList;

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

/// Whether a text describes the stereo file instead of the recording.
bool describesFile(const String& name)
{
    constexpr std::array kPrefixes{"REPLAYGAIN_", "R128_",    "ENCODER",      "ENCODING",
                                   "ITUNNORM",    "ITUNSMPB", "COMMENT:ITUN", "WAVEFORMATEXTENSIBLE_CHANNEL_MASK"};
    const std::string text = name.to8Bit(true);
    return std::ranges::any_of(kPrefixes, [&text](const char* prefix) { return text.starts_with(prefix); });
}

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

/// Keeps the bytes of RIFF INFO texts, which declare no encoding.
class RawText final : public TagLib::RIFF::Info::StringHandler
{
public:
    String parse(const ByteVector& data) const override { return {data, String::Latin1}; }
};

/// Adds the people of an ID3v2 tag by their roles if TagLib does not: roles in lower case or unknown to TagLib. Returns
/// whether every role has a name and the number of fields is within the limit.
bool addInvolvedPeople(const TagLib::ID3v2::FrameList& frames, TagLib::PropertyMap& texts)
{
    constexpr unsigned kMaxFields = 1000; ///< per frame
    bool isComplete = true;
    for (const TagLib::ID3v2::Frame* frame : frames) {
        const auto* const people = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame*>(frame);
        if (people == nullptr || people->asProperties().unsupportedData().isEmpty()) continue;
        const StringList fields = people->fieldList();
        for (unsigned i = 0; i + 1 < std::min(fields.size(), kMaxFields); i += 2) {
            String role = fields[i].upper();
            for (const auto& [name, key] : TagLib::ID3v2::TextIdentificationFrame::involvedPeopleMap())
                if (role == key) role = name;
            if (!texts[role].contains(fields[i + 1])) texts[role].append(fields[i + 1]);
        }
        isComplete = isComplete && fields.size() % 2 == 0 && fields.size() <= kMaxFields;
    }
    return isComplete;
}

/// Collects the tags of a file. The first tag of a name wins.
class Collector
{
public:
    /// Returns whether a new text has characters outside ASCII.
    bool add(const TagLib::PropertyMap& texts)
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

    void addPicture(const TagLib::FLAC::Picture& picture)
    {
        tags.pictures.push_back({.kind = picture.type(),
                                 .mimeType = picture.mimeType(),
                                 .description = picture.description(),
                                 .width = picture.width(),
                                 .height = picture.height(),
                                 .depth = picture.colorDepth(),
                                 .colours = picture.numColors(),
                                 .data = picture.data()});
    }

    void addId3v2(const TagLib::ID3v2::Tag* tag)
    {
        if (tag == nullptr) return;
        TagLib::PropertyMap texts = tag->properties();
        const bool hasAllPeople = addInvolvedPeople(tag->frameList("TIPL"), texts);
        add(texts);
        std::string others;
        for (const String& frame : texts.unsupportedData())
            if (!frame.startsWith("APIC") && (frame != "TIPL" || !hasAllPeople))
                others += (others.empty() ? "" : ", ") + frame.to8Bit(true);
        if (!others.empty()) tags.leftOut.push_back("its ID3v2 frames " + others + " are left out");
        for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC"))
            if (const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame))
                tags.pictures.push_back({.kind = picture->type(),
                                         .mimeType = picture->mimeType(),
                                         .description = picture->description(),
                                         .data = picture->picture()});
    }

    /// Adds a block of Vorbis comments: length and name of the encoder, count, then length and text of every comment.
    /// Numbers have 32 bits.
    void addVorbisComments(const ByteVector& block)
    {
        ByteVector repaired;
        const auto number = [&block](std::size_t at) { return block.toUInt(static_cast<unsigned>(at), false); };
        const auto append = [&repaired](const std::string& text) {
            repaired.append(ByteVector::fromUInt(static_cast<unsigned>(text.size()), false));
            repaired.append(ByteVector(text.data(), static_cast<unsigned>(text.size())));
        };
        const std::size_t end = block.size();
        if (end < 8 || number(0) > end - 8) return;
        append({});
        std::size_t at = 4 + std::size_t{number(0)};
        std::uint32_t count = 0;
        std::vector<std::string> comments;
        for (std::uint32_t left = number(at); left > 0 && end - at >= 8; --left) {
            at += 4;
            const std::size_t length = number(at);
            if (length > end - at - 4) break;
            const std::string bytes(block.data() + at + 4, length);
            if (!isUtf8(bytes)) tags.converted = true;
            comments.push_back(toUtf8(bytes));
            at += length;
            ++count;
        }
        repaired.append(ByteVector::fromUInt(count, false));
        for (const std::string& comment : comments) append(comment);

        TagLib::Ogg::XiphComment comment(repaired);
        TagLib::PropertyMap texts = comment.properties();
        // FFmpeg writes comments as DESCRIPTION.
        if (texts.contains("DESCRIPTION") && !texts.contains("COMMENT")) {
            texts.insert("COMMENT", texts["DESCRIPTION"]);
            texts.erase("DESCRIPTION");
        }
        add(texts);
        for (const TagLib::FLAC::Picture* picture : comment.pictureList()) addPicture(*picture);
    }

    /// Adds a picture of an APE tag: file name, zero, image data.
    void addApeCover(const TagLib::APE::Tag& tag)
    {
        const auto found = tag.itemListMap().find("COVER ART (FRONT)");
        if (found == tag.itemListMap().end()) return;
        const ByteVector item = found->second.binaryData();
        const int end = item.find('\0');
        if (end < 0) return;
        const ByteVector data = item.mid(static_cast<unsigned>(end) + 1);
        tags.pictures.push_back({.kind = TagLib::FLAC::Picture::FrontCover,
                                 .mimeType = data.startsWith("\x89PNG") ? "image/png" : "image/jpeg",
                                 .description = {},
                                 .data = data});
    }

    /// Adds RIFF INFO, in unknown encoding.
    void addInfo(const TagLib::RIFF::Info::Tag& tag)
    {
        TagLib::PropertyMap texts;
        for (const auto& [name, info] : kInfoNames) {
            const String bytes = tag.fieldText(info);
            if (bytes.isEmpty() || texts.contains(name) || tags.texts.contains(name)) continue;
            const std::string all = bytes.to8Bit(false); // the original bytes
            const std::string text = all.substr(0, all.find('\0'));
            if (text.empty()) continue;
            if (!isUtf8(text)) tags.converted = true;
            texts.insert(name, StringList(String(toUtf8(text), String::UTF8)));
        }
        add(texts);
    }

    /// Adds the texts of a CAF file, which should be UTF-8.
    void addCafInfo(int descriptor)
    {
        TagLib::PropertyMap texts;
        for (const std::string& contents : chunksNamed(descriptor, "info")) {
            const CafInfo info = readCafInfo(contents);
            for (const auto& [name, text] : info.texts) {
                if (!isUtf8(name + text)) tags.converted = true;
                texts.insert(String(toUtf8(name), String::UTF8), StringList(String(toUtf8(text), String::UTF8)));
            }
            if (contents.empty() || info.isTruncated)
                tags.leftOut.emplace_back(contents.empty() ? "its info chunk is too large or cannot be read"
                                                           : "its texts after the first 1000 are left out");
        }
        add(texts);
    }

    /// Adds the texts of libsndfile, in unknown encoding.
    void addStrings(SNDFILE* file)
    {
        TagLib::PropertyMap texts;
        for (const auto& [number, name] : kTextKinds) {
            const char* const bytes = sf_get_string(file, number);
            if (bytes == nullptr || *bytes == '\0' || tags.texts.contains(name)) continue;
            if (!isUtf8(bytes)) tags.converted = true;
            texts.insert(name, StringList(String(toUtf8(bytes), String::UTF8)));
        }
        add(texts);
    }

    Tags tags;
};

/// The end of an ID3v2 tag at the start of a file; 0 if there is none.
long id3v2End(TagLib::IOStream& stream)
{
    stream.seek(0);
    const ByteVector head = stream.readBlock(TagLib::ID3v2::Header::size());
    if (!head.startsWith(TagLib::ID3v2::Header::fileIdentifier())) return 0;
    return static_cast<long>(TagLib::ID3v2::Header(head).completeTagSize());
}

/// Header of a FLAC metadata block: a byte with type and last-block flag, then a 24-bit size.
struct FlacBlockHead
{
    static constexpr unsigned kBytes = 4;

    explicit FlacBlockHead(const ByteVector& bytes)
        : type(static_cast<unsigned char>(bytes[0]) & 0x7fu),
          size(bytes.toUInt(1, 3, true)),
          isLast((static_cast<unsigned char>(bytes[0]) & 0x80u) != 0)
    {}

    bool isKept() const
    {
        return type == kVorbisComment || type == kPicture || type == kCueSheet || type == kApplication;
    }

    static constexpr unsigned kApplication = 2;
    static constexpr unsigned kVorbisComment = 4;
    static constexpr unsigned kCueSheet = 5;
    static constexpr unsigned kPicture = 6;

    unsigned type;
    unsigned size;
    bool isLast;
};

/// Collects the metadata blocks of a FLAC stream.
class FlacBlocks
{
public:
    explicit FlacBlocks(Collector& receiver) : collector(receiver) {}

    /// contents  of the block; not used if head.isKept() is false
    void add(const FlacBlockHead& head, const ByteVector& contents)
    {
        isKnown = isKnown && head.type <= FlacBlockHead::kPicture;
        if (contents.size() < head.size) return;
        if (head.type == FlacBlockHead::kVorbisComment) {
            collector.addVorbisComments(contents);
        } else if (head.type == FlacBlockHead::kPicture) {
            TagLib::FLAC::Picture picture;
            if (picture.parse(contents)) collector.addPicture(picture);
        } else if (head.isKept()) {
            addBytes(head.type, contents);
        }
    }

    /// Reports the blocks that are left out.
    void finish()
    {
        if (!hasRoom)
            collector.tags.leftOut.emplace_back(
                "its cue sheets and application blocks after the first 100 are left out");
        if (!isKnown) collector.tags.leftOut.emplace_back("its metadata blocks of unknown types are left out");
    }

private:
    /// Adds a cue sheet or the data of an application.
    void addBytes(unsigned type, const ByteVector& contents)
    {
        constexpr std::size_t kMaxBlocks = 100;
        constexpr std::size_t kIdBytes = 4;
        // Applications that store chunks of another container.
        const bool isForeign =
            contents.startsWith("riff") || contents.startsWith("aiff") || contents.startsWith("w64 ");
        if (type == FlacBlockHead::kApplication && (isForeign || contents.size() < kIdBytes)) return;
        std::vector<FlacBlock>& blocks = collector.tags.flacBlocks;
        hasRoom = blocks.size() < kMaxBlocks;
        if (hasRoom) blocks.push_back({.isCueSheet = type == FlacBlockHead::kCueSheet, .contents = contents});
    }

    Collector& collector;
    bool hasRoom = true;
    bool isKnown = true;
};

void collectFlac(TagLib::IOStream& stream, Collector& collector)
{
    stream.seek(id3v2End(stream));
    if (stream.readBlock(4) != "fLaC") return;
    FlacBlocks blocks(collector);
    for (bool isLast = false; !isLast;) {
        const ByteVector bytes = stream.readBlock(FlacBlockHead::kBytes);
        if (bytes.size() < FlacBlockHead::kBytes) break;
        const FlacBlockHead head(bytes);
        isLast = head.isLast;
        if (!head.isKept()) stream.seek(static_cast<long>(head.size), TagLib::IOStream::Current);
        blocks.add(head, head.isKept() ? stream.readBlock(head.size) : ByteVector());
    }
    blocks.finish();
}

/// Reads Ogg FLAC: after the first packet, one packet per metadata block.
void collectOggFlac(TagLib::IOStream& stream, Collector& collector)
{
    TagLib::Ogg::FLAC::File file(&stream, false);
    FlacBlocks blocks(collector);
    bool isLast = !file.isValid() || !file.packet(0).startsWith("\177FLAC");
    for (unsigned i = 1; !isLast; ++i) {
        const ByteVector packet = file.packet(i);
        if (packet.size() < FlacBlockHead::kBytes) break;
        const FlacBlockHead head(packet);
        isLast = head.isLast;
        blocks.add(head, packet.mid(FlacBlockHead::kBytes));
    }
    blocks.finish();
}

/// Reads the second packet of an Ogg stream: the mark of the codec, then the comments.
template <typename File>
void collectOgg(TagLib::IOStream& stream, const char* mark, Collector& collector)
{
    File file(&stream, false);
    const ByteVector packet = file.isValid() ? file.packet(1) : ByteVector();
    if (packet.startsWith(mark)) collector.addVorbisComments(packet.mid(ByteVector(mark).size()));
}

void collectMpeg(TagLib::IOStream& stream, Collector& collector)
{
    static const UnknownEncoding kHandler;
    kHandler.converted = false;
    TagLib::ID3v1::Tag::setStringHandler(&kHandler);
    TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    if (!file.isValid()) return;
    collector.addId3v2(file.hasID3v2Tag() ? file.ID3v2Tag() : nullptr);
    if (file.hasAPETag()) {
        collector.add(file.APETag()->properties());
        collector.addApeCover(*file.APETag());
    }
    if (file.hasID3v1Tag() && collector.add(file.ID3v1Tag()->properties()))
        collector.tags.converted = kHandler.converted;
}

/// Reads RF64, which TagLib does not support.
void collectRf64(int descriptor, Collector& collector)
{
    const auto bytesOf = [](const std::string& contents) {
        return ByteVector(contents.data(), static_cast<unsigned>(contents.size()));
    };
    for (const std::string& contents : chunksNamed(descriptor, "id3 ")) {
        TagLib::ByteVectorStream stream(bytesOf(contents));
        TagLib::MPEG::File tagged(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
        collector.addId3v2(tagged.hasID3v2Tag() ? tagged.ID3v2Tag() : nullptr);
        if (contents.empty()) collector.tags.leftOut.emplace_back("its ID3v2 tag of more than 16 MiB is left out");
    }
    for (const std::string& contents : chunksNamed(descriptor, "LIST"))
        if (contents.starts_with("INFO")) collector.addInfo(TagLib::RIFF::Info::Tag(bytesOf(contents)));
}

} // namespace

Tags readTags(int descriptor, SNDFILE* file, int format)
{
    static const RawText kInfoText;
    TagLib::RIFF::Info::Tag::setStringHandler(&kInfoText);
    Collector collector;
    // The stream closes its descriptor.
    TagLib::FileStream stream(dup(descriptor), true);
    if (!stream.isOpen()) return {};
    switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_FLAC:
        collectFlac(stream, collector);
        break;
    case SF_FORMAT_OGG:
        if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
            collectOgg<TagLib::Ogg::Opus::File>(stream, "OpusTags", collector);
        } else if ((format & SF_FORMAT_SUBMASK) != SF_FORMAT_VORBIS) {
            collectOggFlac(stream, collector);
        } else {
            collectOgg<TagLib::Ogg::Vorbis::File>(stream, "\3vorbis", collector);
        }
        break;
    case SF_FORMAT_MPEG:
        collectMpeg(stream, collector);
        break;
    case SF_FORMAT_AIFF:
        collector.addId3v2(TagLib::RIFF::AIFF::File(&stream, false).tag());
        collector.addStrings(file);
        break;
    case SF_FORMAT_CAF:
        collector.addCafInfo(descriptor);
        collector.addStrings(file);
        break;
    case SF_FORMAT_RF64:
        collectRf64(descriptor, collector);
        break;
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX: {
        const TagLib::RIFF::WAV::File wave(&stream, false);
        collector.addId3v2(wave.hasID3v2Tag() ? wave.ID3v2Tag() : nullptr);
        if (wave.hasInfoTag()) collector.addInfo(*wave.InfoTag());
        break;
    }
    default:
        collector.addStrings(file);
    }
    return collector.tags;
}

} // namespace tarn
