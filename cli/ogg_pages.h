#pragma once

#include "cli/byte_range.h"
#include "cli/file_window.h"

#include <cstdint>

#include <ogg/ogg.h>

namespace tarn
{

/// The pages of a part of an Ogg file that have a right checksum, in order.
class OggPages
{
public:
    OggPages(int descriptor, ByteRange range);
    ~OggPages();

    OggPages(const OggPages&) = delete;
    OggPages& operator=(const OggPages&) = delete;

    /// Reads the next page. Returns whether there was one; its bytes stay until the next call.
    bool next(ogg_page& page);

    /// The position in the file of the page that next read.
    std::uint64_t pageBegin() const noexcept { return begin; }

    /// Bytes between the pages read so far, and behind the last one.
    std::uint64_t skippedBytes() const noexcept { return skipped; }

    /// The errno of the first read that failed; 0 if none did.
    int error() const noexcept { return window.error(); }

private:
    FileWindow window;
    ogg_sync_state sync{};
    std::uint64_t begin = 0;
    std::uint64_t position; ///< in the file, behind the bytes looked at
    std::uint64_t end;      ///< of the part
    std::uint64_t skipped = 0;
};

/// The packets of one stream of an Ogg file.
class OggStream
{
public:
    OggStream(int descriptor, ByteRange range, int serial);
    ~OggStream();

    OggStream(const OggStream&) = delete;
    OggStream& operator=(const OggStream&) = delete;

    /// Takes the next page of the stream. Returns whether there was one.
    bool nextPage();

    /// Reads the next packet that ends on the page. Returns 1 for a packet, -1 where packets are missing, else 0.
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

/// An Ogg stream of audio.
struct OggHead
{
    OggCodec codec = OggCodec::Other;
    int serial = 0;
};

/// Finds the first stream with a codec that is not Other, among the first pages of all streams.
OggHead oggHead(int descriptor, ByteRange part);

/// Whether a page can have this position: a damaged one can be any, -1 stands for none.
constexpr bool isPosition(std::int64_t granule) noexcept
{
    return granule >= 0 && granule < std::int64_t{1} << 48;
}

/// The end of an Ogg stream.
struct OggEnd
{
    std::int64_t granule = -1; ///< the last position that a page states; -1 if none does
    bool isMarked = false;     ///< the last page is marked as the last one
};

/// Finds the last page of a stream.
OggEnd oggEnd(int descriptor, ByteRange part, int serial);

} // namespace tarn
