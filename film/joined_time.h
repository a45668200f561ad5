// Time stamps of joined recordings.
// SPDX-License-Identifier: MIT
#pragma once

#include "film/av.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tarn
{

/// Continues time stamps where a recording was appended to another and its clock starts elsewhere.
///
/// All tracks of an appended recording move by the same time, so picture and sound keep their distance. Recorders and
/// cat join transport and program streams like this.
class JoinedTime
{
public:
    /// Moves the time stamps of a packet, if a part before it ended.
    void shift(AVPacket& packet, const AVStream& stream);

private:
    struct Track
    {
        std::size_t part = 0;
        std::optional<std::int64_t> end{}; ///< of the packets so far, moved, in units of AV_TIME_BASE
    };

    std::size_t partAt(std::int64_t time, const Track& track, bool canBegin);
    std::int64_t latestEnd() const;

    std::vector<std::int64_t> offsets{0}; ///< of each part, in units of AV_TIME_BASE
    std::vector<Track> tracks;
};

} // namespace tarn
