// Pages, packets and streams of Ogg files.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/byte_range.h"
#include "cli/file_window.h"

#include <cstdint>

#include <ogg/ogg.h>

namespace tarn
{

/// Reads the pages with a correct checksum from a part of an Ogg file, in order.
class OggPages
{
public:
    OggPages(int descriptor, ByteRange range);
    ~OggPages();

    OggPages(const OggPages&) = delete;
    OggPages& operator=(const OggPages&) = delete;

    /// Reads the next page. Returns whether there is one. Its bytes are valid until the next call.
    bool next(ogg_page& page);

    /// The position of the last page in the file.
    std::uint64_t pageBegin() const noexcept { return begin; }

    /// Bytes between the pages read so far, and after the last page.
    std::uint64_t skippedBytes() const noexcept { return skipped; }

    /// The errno of the first read that failed; 0 if none did.
    int error() const noexcept { return window.error(); }

private:
    FileWindow window;
    ogg_sync_state sync{};
    std::uint64_t begin = 0;
    std::uint64_t position; ///< in the file, after the parsed bytes
    std::uint64_t end;      ///< of the part
    std::uint64_t skipped = 0;
};

/// Reads the packets of one stream of an Ogg file.
class OggStream
{
public:
    OggStream(int descriptor, ByteRange range, int serial);
    ~OggStream();

    OggStream(const OggStream&) = delete;
    OggStream& operator=(const OggStream&) = delete;

    /// Reads the next page of the stream. Returns whether there is one.
    bool nextPage();

    /// Reads the next packet that ends on the page. Returns 1 for a packet, -1 if packets are missing, 0 at the end.
    int nextPacket(ogg_packet& packet) { return ogg_stream_packetout(&stream, &packet); }

    /// The errno of the first read that failed; 0 if none did.
    int error() const noexcept { return pages.error(); }

private:
    OggPages pages;
    ogg_stream_state stream{};
};

/// Codecs of Ogg streams.
enum class OggCodec
{
    Other,
    Vorbis,
    Opus,
    Flac
};

/// Codec and serial number of an Ogg audio stream.
struct OggHead
{
    OggCodec codec = OggCodec::Other;
    int serial = 0;
};

/// Finds the first stream with a known codec among the first pages of all streams.
OggHead oggHead(int descriptor, ByteRange part);

/// Whether a granule position is plausible; -1 means none, and a damaged page can have any.
constexpr bool isPosition(std::int64_t granule) noexcept
{
    return granule >= 0 && granule < std::int64_t{1} << 48;
}

/// Data about the last page of an Ogg stream.
struct OggEnd
{
    std::int64_t granule = -1; ///< the last position that a page declares; -1 if none does
    bool isMarked = false;     ///< the page has the end-of-stream flag
};

/// Finds the last page of a stream.
OggEnd oggEnd(int descriptor, ByteRange part, int serial);

} // namespace tarn
