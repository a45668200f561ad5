#include "cli/metadata.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tarn
{

std::optional<BroadcastInfo> readBroadcastInfo(SNDFILE* file)
{
    BroadcastInfo info{};
    if (sf_command(file, SFC_GET_BROADCAST_INFO, &info, sizeof info) != SF_TRUE) return std::nullopt;
    // A chunk of version 0 has no place for a material number or loudness.
    info.version = 0;
    std::fill(std::begin(info.umid), std::end(info.umid), '\0');
    info.loudness_value = info.loudness_range = info.max_true_peak_level = 0;
    info.max_momentary_loudness = info.max_shortterm_loudness = 0;
    return info;
}

void writeBroadcastInfo(SNDFILE* file, const BroadcastInfo& broadcast)
{
    BroadcastInfo copy = broadcast;
    sf_command(file, SFC_SET_BROADCAST_INFO, &copy,
               static_cast<int>(offsetof(BroadcastInfo, coding_history) + copy.coding_history_size));
}

} // namespace tarn
