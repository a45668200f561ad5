// What is missing from a damaged film.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// A part of a track that is not stereo.
struct ChannelChange
{
    int channels = 0;
    double seconds = 0.0; ///< time of its first frame
};

/// Damage of a track, in frames of the upmix.
struct TrackDamage
{
    std::uint64_t damagedPackets = 0; ///< that cannot be decoded, or only in part
    std::uint64_t silenced = 0;       ///< missing sound that became silence
    std::uint64_t skipped = 0;        ///< sound that is left out, because its time is before that of the sound before
    std::uint64_t missingAtEnd = 0;   ///< sound of packets at the end that cannot be decoded
    std::uint64_t uncertain = 0;      ///< sound of damaged packets that was decoded all the same
    std::optional<ChannelChange> change;    ///< the first one; its sound is missing
    std::optional<std::int64_t> firstFrame; ///< time of the first damage, since the start of the film
};

/// Damage of a file.
struct FileDamage
{
    int errors = 0;                 ///< parts that cannot be read
    double declaredSeconds = 0.0;   ///< length of the film
    double missingEndSeconds = 0.0; ///< that the film declares and does not have
};

/// Describes what is missing. Returns none if nothing is.
std::optional<Loss> lossOf(const TrackDamage& track, const FileDamage& file, unsigned index, std::uint32_t rateHz);

} // namespace tarn
