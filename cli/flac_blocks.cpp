// Parses cue sheets and application blocks of FLAC.
// SPDX-License-Identifier: MIT
#include "cli/flac_blocks.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace tarn
{

namespace
{

using TagLib::ByteVector;

// Sizes and offsets in the binary form of a cue sheet.
constexpr unsigned kSheetBytes = 396;
constexpr unsigned kLeadIn = 128;
constexpr unsigned kSheetFlags = 136;
constexpr unsigned kTrackCount = 395;
constexpr unsigned kTrackBytes = 36;
constexpr unsigned kIsrc = 9;
constexpr unsigned kIsrcBytes = 12;
constexpr unsigned kTrackFlags = 21;
constexpr unsigned kIndexCount = 35;
constexpr unsigned kIndexBytes = 12;

using Object = std::unique_ptr<FLAC__StreamMetadata, void (*)(FLAC__StreamMetadata*)>;

unsigned byteAt(const ByteVector& bytes, unsigned at)
{
    return static_cast<unsigned char>(bytes[static_cast<int>(at)]);
}

std::uint64_t positionAt(const ByteVector& bytes, unsigned at)
{
    return static_cast<std::uint64_t>(bytes.toLongLong(at, true));
}

/// Reads a track of a cue sheet. Returns the position after it; 0 if the block is too short.
unsigned readTrack(const ByteVector& bytes, unsigned at, FLAC__StreamMetadata* object, unsigned number)
{
    if (bytes.size() - at < kTrackBytes) return 0;
    const unsigned indices = byteAt(bytes, at + kIndexCount);
    const unsigned end = at + kTrackBytes + indices * kIndexBytes;
    if (end > bytes.size() || !FLAC__metadata_object_cuesheet_track_resize_indices(object, number, indices)) return 0;
    FLAC__StreamMetadata_CueSheet_Track& track = object->data.cue_sheet.tracks[number];
    track.offset = positionAt(bytes, at);
    track.number = static_cast<FLAC__byte>(byteAt(bytes, at + 8));
    std::copy_n(bytes.data() + at + kIsrc, kIsrcBytes, track.isrc);
    track.type = byteAt(bytes, at + kTrackFlags) >> 7 & 1u;
    track.pre_emphasis = byteAt(bytes, at + kTrackFlags) >> 6 & 1u;
    for (unsigned i = 0; i < indices; ++i) {
        const unsigned from = at + kTrackBytes + i * kIndexBytes;
        track.indices[i] = {.offset = positionAt(bytes, from),
                            .number = static_cast<FLAC__byte>(byteAt(bytes, from + 8))};
    }
    return end;
}

std::unique_ptr<FLAC::Metadata::Prototype> cueSheet(const ByteVector& bytes)
{
    const Object object(FLAC__metadata_object_new(FLAC__METADATA_TYPE_CUESHEET), FLAC__metadata_object_delete);
    if (object == nullptr || bytes.size() < kSheetBytes) return nullptr;
    FLAC__StreamMetadata_CueSheet& sheet = object->data.cue_sheet;
    std::copy_n(bytes.begin(), kLeadIn, sheet.media_catalog_number);
    sheet.lead_in = positionAt(bytes, kLeadIn);
    sheet.is_cd = static_cast<FLAC__bool>(byteAt(bytes, kSheetFlags) >> 7);
    const unsigned tracks = byteAt(bytes, kTrackCount);
    if (!FLAC__metadata_object_cuesheet_resize_tracks(object.get(), tracks)) return nullptr;
    unsigned at = kSheetBytes;
    for (unsigned i = 0; i < tracks; ++i) {
        at = readTrack(bytes, at, object.get(), i);
        if (at == 0) return nullptr;
    }
    auto block = std::make_unique<FLAC::Metadata::CueSheet>(object.get());
    return block->is_legal(block->get_is_cd()) ? std::move(block) : nullptr;
}

std::unique_ptr<FLAC::Metadata::Prototype> application(const ByteVector& bytes)
{
    constexpr unsigned kIdBytes = 4;
    if (bytes.size() < kIdBytes) return nullptr;
    auto block = std::make_unique<FLAC::Metadata::Application>();
    block->set_id(reinterpret_cast<const FLAC__byte*>(bytes.data()));
    return block->set_data(reinterpret_cast<const FLAC__byte*>(bytes.data()) + kIdBytes, bytes.size() - kIdBytes)
               ? std::move(block)
               : nullptr;
}

} // namespace

std::unique_ptr<FLAC::Metadata::Prototype> flacMetadata(const FlacBlock& block)
{
    return block.isCueSheet ? cueSheet(block.contents) : application(block.contents);
}

} // namespace tarn
