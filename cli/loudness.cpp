// Measures loudness with libebur128.
// SPDX-License-Identifier: MIT
#include "cli/loudness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include <sndfile.h>

namespace tarn
{

namespace
{

/// Maps a channel of libsndfile to one of libebur128.
///
/// hasSides  whether the layout has side channels; without them, the rear channels are the surrounds of BS.1770
int meterChannel(int channel, bool hasSides) noexcept
{
    switch (channel) {
    case SF_CHANNEL_MAP_LEFT:
        return EBUR128_LEFT;
    case SF_CHANNEL_MAP_RIGHT:
        return EBUR128_RIGHT;
    case SF_CHANNEL_MAP_CENTER:
        return EBUR128_CENTER;
    case SF_CHANNEL_MAP_REAR_LEFT:
        return hasSides ? EBUR128_Mp135 : EBUR128_LEFT_SURROUND;
    case SF_CHANNEL_MAP_REAR_RIGHT:
        return hasSides ? EBUR128_Mm135 : EBUR128_RIGHT_SURROUND;
    case SF_CHANNEL_MAP_SIDE_LEFT:
        return EBUR128_Mp090;
    case SF_CHANNEL_MAP_SIDE_RIGHT:
        return EBUR128_Mm090;
    default:
        return EBUR128_UNUSED;
    }
}

} // namespace

LoudnessMeter::LoudnessMeter(std::uint32_t sampleRateHz, std::size_t channels)
    : channelCount(channels), state(ebur128_init(static_cast<unsigned>(channels), sampleRateHz, EBUR128_MODE_I))
{
    if (state == nullptr) throw std::bad_alloc();
}

LoudnessMeter::LoudnessMeter(std::uint32_t sampleRateHz) : LoudnessMeter(sampleRateHz, std::size_t{2}) {}

LoudnessMeter::LoudnessMeter(std::uint32_t sampleRateHz, const Layout& layout)
    : LoudnessMeter(sampleRateHz, std::size_t{layout.slots})
{
    const int* const end = layout.channelMap.begin() + layout.slots;
    const bool hasSides = std::find(layout.channelMap.begin(), end, SF_CHANNEL_MAP_SIDE_LEFT) != end;
    for (unsigned slot = 0; slot < layout.slots; ++slot)
        ebur128_set_channel(state.get(), slot, meterChannel(layout.channelMap[slot], hasSides));
}

void LoudnessMeter::push(const std::int32_t* samples, std::size_t frames, int headroomBits)
{
    const double scale = std::ldexp(1.0, headroomBits - 31);
    fullScale.resize(frames * channelCount);
    for (std::size_t i = 0; i < fullScale.size(); ++i) fullScale[i] = scale * samples[i];
    if (ebur128_add_frames_double(state.get(), fullScale.data(), frames) != EBUR128_SUCCESS) throw std::bad_alloc();
}

double LoudnessMeter::momentary() const
{
    double lufs = -std::numeric_limits<double>::infinity();
    ebur128_loudness_momentary(state.get(), &lufs);
    return lufs;
}

double LoudnessMeter::integrated() const
{
    double lufs = -std::numeric_limits<double>::infinity();
    ebur128_loudness_global(state.get(), &lufs);
    return lufs;
}

void LoudnessSink::write(const std::int32_t* samples, std::size_t frames)
{
    loudness.push(samples, frames, headroom);
    if (sink != nullptr) sink->write(samples, frames);
}

} // namespace tarn
