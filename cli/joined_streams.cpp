// Splits chained Ogg, joined containers and joined MPEG audio into parts.
// SPDX-License-Identifier: MIT
#include "cli/joined_streams.h"

#include "cli/declared_length.h"
#include "cli/file_bytes.h"
#include "cli/mpeg_frames.h"
#include "cli/mpeg_index.h"
#include "cli/ogg_pages.h"

#include <algorithm>
#include <cstdint>

namespace tarn
{

namespace
{

/// The parts of a file that begin at these positions. Bytes before the first belong to the first part.
std::vector<ByteRange> partsFrom(const std::vector<std::uint64_t>& begins, std::uint64_t size)
{
    std::vector<ByteRange> parts{{.begin = 0, .end = size}};
    for (std::size_t i = 1; i < begins.size(); ++i) {
        parts.back().end = begins[i];
        parts.push_back({.begin = begins[i], .end = size});
    }
    return parts;
}

/// Whether several frames of one kind follow each other; a single one can be a damaged header.
bool isRun(const FileBytes& file, std::uint64_t position, const MpegFrame& first)
{
    constexpr int kFrames = 8;
    for (int i = 0; i < kFrames; ++i) {
        const auto frame = mpegFrameAt(file, position);
        if (!frame || frame->kind != first.kind) return false;
        position += frame->bytes;
    }
    return true;
}

} // namespace

OggLinks oggLinks(int descriptor)
{
    const FileBytes file(descriptor);
    OggPages pages(descriptor, {.begin = std::min(file.id3v2Size(0), file.size()), .end = file.size()});
    std::vector<std::uint64_t> begins;
    bool inHeads = false; // the first pages of all streams of a link are adjacent
    std::uint64_t end = 0;
    ogg_page page;
    while (pages.next(page)) {
        end = pages.pageBegin() + static_cast<std::uint64_t>(page.header_len + page.body_len);
        const bool isFirstPage = ogg_page_bos(&page) != 0;
        if (isFirstPage && !inHeads) begins.push_back(pages.pageBegin());
        inHeads = isFirstPage;
    }
    return {.links = partsFrom(begins, file.size()), .skippedBytes = pages.skippedBytes(), .end = end};
}

std::vector<ByteRange> containerParts(int descriptor)
{
    const FileBytes file(descriptor);
    std::vector<std::uint64_t> begins{0};
    while (const auto next = nextContainer(file, begins.back())) begins.push_back(*next);
    return partsFrom(begins, file.size());
}

std::vector<ByteRange> mpegParts(int descriptor)
{
    constexpr std::uint64_t kMinFrames = 39; ///< about a second; an index may be wrong by a few frames
    const FileBytes file(descriptor);
    std::vector<std::uint64_t> begins;
    std::uint64_t indexed = 0; // frames declared by the last index
    std::uint64_t walked = 0;  // frames since the last index
    std::uint64_t overdue = 0; // position of the first frame beyond the index
    const auto begin = [&](std::uint64_t position) {
        if (overdue != 0 && walked >= indexed + kMinFrames) begins.push_back(overdue);
        begins.push_back(position);
        indexed = walked = overdue = 0;
    };

    std::uint32_t kind = 0; // of the frames in this part
    for (std::uint64_t position = 0; position < file.size();) {
        if (const std::uint64_t tag = file.id3v2Size(position)) {
            position += tag;
            continue;
        }
        const auto frame = mpegFrameAt(file, position);
        if (!frame && !begins.empty() && !fileKindAt(file, position).empty()) {
            begin(position);
            return partsFrom(begins, file.size());
        }
        if (!frame) {
            position = nextMpegFrame(file, position + 1, file.size());
            continue;
        }
        const auto index = mpegIndexAt(file, position, *frame);
        if (index || begins.empty() || (frame->kind != kind && isRun(file, position, *frame))) {
            begin(position);
            kind = frame->kind;
            indexed = index ? index->frames : 0;
        } else if (++walked == indexed + 1 && indexed > 0) {
            overdue = position;
        }
        position += frame->bytes;
    }
    if (overdue != 0 && walked >= indexed + kMinFrames) begins.push_back(overdue);
    return partsFrom(begins, file.size());
}

} // namespace tarn
