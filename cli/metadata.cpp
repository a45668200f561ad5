// Reads, converts and writes metadata other than tags.
// SPDX-License-Identifier: MIT
#include "cli/metadata.h"

#include "cli/stream_format.h"
#include "cli/wave_chunks.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace tarn
{

namespace
{

constexpr std::uint64_t kMaxTimeReference = std::uint64_t{1} << 48; ///< 46 years at 192 kHz

std::optional<BroadcastInfo> readBroadcastInfo(SNDFILE* file)
{
    BroadcastInfo info{};
    if (sf_command(file, SFC_GET_BROADCAST_INFO, &info, sizeof info) != SF_TRUE) return std::nullopt;
    // libsndfile writes version 2 of the chunk, where this value marks loudness that was not measured.
    constexpr std::int16_t kNoLoudness = 0x7fff;
    std::fill(std::begin(info.umid), std::end(info.umid), '\0');
    info.loudness_value = info.loudness_range = info.max_true_peak_level = kNoLoudness;
    info.max_momentary_loudness = info.max_shortterm_loudness = kNoLoudness;
    return info;
}

/// Adds a note about chunks.
///
/// predicate  what happens to them
void addLeftOut(Metadata& metadata, const std::vector<std::string>& chunks, const std::string& predicate)
{
    std::string names;
    for (const std::string& name : chunks) names += (names.empty() ? "" : ", ") + name;
    if (!names.empty()) metadata.tags.leftOut.push_back("its chunks " + names + " " + predicate);
}

} // namespace

Metadata atRate(Metadata metadata, std::uint32_t rate, std::uint32_t newRate)
{
    if (metadata.broadcast) {
        BroadcastInfo& info = *metadata.broadcast;
        const std::uint64_t frames = std::uint64_t{info.time_reference_high} << 32 | info.time_reference_low;
        const std::uint64_t converted = framesAtRate(std::min(frames, kMaxTimeReference), rate, newRate);
        info.time_reference_high = static_cast<std::uint32_t>(converted >> 32);
        info.time_reference_low = static_cast<std::uint32_t>(converted);
    }
    std::erase_if(metadata.chunks, [&](const Chunk& chunk) {
        if (!hasMarkers(chunk)) return false;
        metadata.tags.leftOut.push_back("its " + printedName(chunk) + " chunk counts samples at " +
                                        std::to_string(rate) + " Hz and is left out");
        return true;
    });
    for (Chunk& chunk : metadata.chunks)
        for (const std::string& element : convertRate(chunk, rate, newRate))
            metadata.tags.leftOut.push_back(element + " of its " + chunk.name + " chunk counts samples at " +
                                            std::to_string(rate) + " Hz and is left out");
    const auto isCueSheet = [](const FlacBlock& block) { return block.isCueSheet; };
    if (std::erase_if(metadata.tags.flacBlocks, isCueSheet) > 0)
        metadata.tags.leftOut.push_back("its cue sheet counts samples at " + std::to_string(rate) +
                                        " Hz and is left out");
    return metadata;
}

Metadata delayed(Metadata metadata, std::uint32_t frames)
{
    for (Chunk& chunk : metadata.chunks) delayMarkers(chunk, frames);
    const auto isCueSheet = [](const FlacBlock& block) { return block.isCueSheet; };
    if (std::erase_if(metadata.tags.flacBlocks, isCueSheet) > 0)
        metadata.tags.leftOut.emplace_back("its cue sheet does not allow for the delay of --no-align and is left out");
    return metadata;
}

void addWaveMetadata(Metadata& metadata, int descriptor, SNDFILE* file, bool bigEndian)
{
    WaveChunks chunks = readWaveChunks(descriptor, bigEndian);
    metadata.chunks = std::move(chunks.kept);
    metadata.broadcast = readBroadcastInfo(file);
    if (metadata.broadcast) std::erase(chunks.leftOut, "bext");
    addLeftOut(metadata, chunks.leftOut, "are left out");
    addLeftOut(metadata, chunks.invalid, "are invalid and are left out");
}

void addOtherMetadata(Metadata& metadata, int descriptor)
{
    addLeftOut(metadata, otherChunkNames(descriptor), "are left out");
}

bool writeBroadcastInfo(SNDFILE* file, const BroadcastInfo& broadcast)
{
    BroadcastInfo copy = broadcast;
    return sf_command(file, SFC_SET_BROADCAST_INFO, &copy,
                      static_cast<int>(offsetof(BroadcastInfo, coding_history) + copy.coding_history_size)) == SF_TRUE;
}

} // namespace tarn
