// Parses FLAC metadata blocks and Vorbis comments.
// SPDX-License-Identifier: MIT
#include "cli/xiph_tags.h"

#include "cli/id3v2_tags.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <id3v2header.h>
#include <oggflacfile.h>
#include <opusfile.h>
#include <tpropertymap.h>
#include <vorbisfile.h>
#include <xiphcomment.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;

/// Adds a block of Vorbis comments: length and name of the encoder, count, then length and text of every comment.
/// Numbers have 32 bits.
void addVorbisComments(TagCollector& collector, const ByteVector& block)
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
        comments.push_back(collector.toUtf8Text(bytes));
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
    collector.add(texts);
    for (const TagLib::FLAC::Picture* picture : comment.pictureList()) collector.addPicture(*picture);
}

/// Adds an ID3v2 tag at the start of a file. Moves to its end.
void addLeadingId3v2(TagLib::IOStream& stream, TagCollector& collector)
{
    stream.seek(0);
    const ByteVector head = stream.readBlock(TagLib::ID3v2::Header::size());
    constexpr unsigned kMaxId3v2 = 1u << 24;
    unsigned bytes = 0;
    if (head.startsWith(TagLib::ID3v2::Header::fileIdentifier())) bytes = TagLib::ID3v2::Header(head).completeTagSize();
    stream.seek(0);
    if (bytes > kMaxId3v2) {
        collector.tags.leftOut.emplace_back("its ID3v2 tag of more than 16 MiB is left out");
    } else if (bytes > 0) {
        addId3v2(collector, stream.readBlock(bytes));
    }
    stream.seek(static_cast<long>(bytes));
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
    explicit FlacBlocks(TagCollector& receiver) : collector(receiver) {}

    /// contents  of the block; not used if head.isKept() is false
    void add(const FlacBlockHead& head, const ByteVector& contents)
    {
        isKnown = isKnown && head.type <= FlacBlockHead::kPicture;
        if (contents.size() < head.size) return;
        if (head.type == FlacBlockHead::kVorbisComment) {
            addVorbisComments(collector, contents);
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

    TagCollector& collector;
    bool hasRoom = true;
    bool isKnown = true;
};

/// Reads Ogg FLAC: after the first packet, one packet per metadata block.
void collectOggFlac(TagLib::IOStream& stream, TagCollector& collector)
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
void collectComments(TagLib::IOStream& stream, const char* mark, TagCollector& collector)
{
    File file(&stream, false);
    const ByteVector packet = file.isValid() ? file.packet(1) : ByteVector();
    if (packet.startsWith(mark)) addVorbisComments(collector, packet.mid(ByteVector(mark).size()));
}

} // namespace

void collectFlac(TagLib::IOStream& stream, TagCollector& collector)
{
    addLeadingId3v2(stream, collector);
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

void collectOgg(TagLib::IOStream& stream, int subtype, TagCollector& collector)
{
    addLeadingId3v2(stream, collector);
    if (subtype == SF_FORMAT_OPUS) {
        collectComments<TagLib::Ogg::Opus::File>(stream, "OpusTags", collector);
    } else if (subtype == SF_FORMAT_VORBIS) {
        collectComments<TagLib::Ogg::Vorbis::File>(stream, "\3vorbis", collector);
    } else {
        collectOggFlac(stream, collector);
    }
}

} // namespace tarn
