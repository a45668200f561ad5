// Reads Ogg pages and packets with libogg.
// SPDX-License-Identifier: MIT
#include "cli/ogg_pages.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

namespace
{

constexpr long kReadBytes = 65536;
constexpr std::uint64_t kMaxPageBytes = 65307; ///< header, 255 lengths, 255 times 255 bytes

OggCodec codecOf(const ogg_page& page)
{
    const std::string_view body(reinterpret_cast<const char*>(page.body), static_cast<std::size_t>(page.body_len));
    if (body.starts_with("\1vorbis")) return OggCodec::Vorbis;
    if (body.starts_with("OpusHead")) return OggCodec::Opus;
    if (body.starts_with("\177FLAC")) return OggCodec::Flac;
    return OggCodec::Other;
}

} // namespace

OggPages::OggPages(int descriptor, ByteRange range) : window(descriptor, range), position(range.begin), end(range.end)
{
    ogg_sync_init(&sync);
}

OggPages::~OggPages()
{
    ogg_sync_clear(&sync);
}

bool OggPages::next(ogg_page& page)
{
    while (true) {
        const long found = ogg_sync_pageseek(&sync, &page);
        if (found > 0) {
            begin = position;
            position += static_cast<std::uint64_t>(found);
            return true;
        }
        if (found < 0) {
            skipped += static_cast<std::uint64_t>(-found);
            position += static_cast<std::uint64_t>(-found);
            continue;
        }
        char* const buffer = ogg_sync_buffer(&sync, kReadBytes);
        const std::size_t got = buffer != nullptr ? window.read(buffer, kReadBytes) : 0;
        if (got == 0) {
            skipped += end - position;
            position = end;
            return false;
        }
        ogg_sync_wrote(&sync, static_cast<long>(got));
    }
}

OggStream::OggStream(int descriptor, ByteRange range, int serial) : pages(descriptor, range)
{
    ogg_stream_init(&stream, serial);
}

OggStream::~OggStream()
{
    ogg_stream_clear(&stream);
}

bool OggStream::nextPage()
{
    ogg_page page;
    while (pages.next(page))
        if (ogg_stream_pagein(&stream, &page) == 0) return true; // else it belongs to another stream
    return false;
}

OggHead oggHead(int descriptor, ByteRange part)
{
    OggPages pages(descriptor, part);
    ogg_page page;
    while (pages.next(page) && ogg_page_bos(&page) != 0)
        if (const OggCodec codec = codecOf(page); codec != OggCodec::Other)
            return {.codec = codec, .serial = ogg_page_serialno(&page)};
    return {};
}

OggEnd oggEnd(int descriptor, ByteRange part, int serial)
{
    // The last pages of the file usually belong to the stream. With several streams, search the whole part.
    const std::uint64_t tail = part.end - std::min(part.size(), 2 * kMaxPageBytes);
    for (const std::uint64_t begin : {tail, part.begin}) {
        OggPages pages(descriptor, {.begin = begin, .end = part.end});
        OggEnd last;
        ogg_page page;
        while (pages.next(page)) {
            if (ogg_page_serialno(&page) != serial) continue;
            if (isPosition(ogg_page_granulepos(&page))) last.granule = ogg_page_granulepos(&page);
            last.isMarked = ogg_page_eos(&page) != 0;
        }
        if (last.granule >= 0) return last;
    }
    return {};
}

} // namespace tarn
