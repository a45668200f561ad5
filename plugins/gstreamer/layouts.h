// The layouts of the output, in GStreamer's order of channels.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <gst/gst.h>

#include <array>
#include <cstdint>

namespace tarn_gst
{

struct Layout
{
    int channels;
    guint64 mask;
    std::array<zrk_tarn::OutputSlot, zrk_tarn::kMaxSlots> outputs;
};

constexpr zrk_tarn::OutputSlot engine(std::uint8_t output)
{
    return {zrk_tarn::OutputSlot::Source::Engine, output};
}

constexpr zrk_tarn::OutputSlot surround(std::uint8_t channel)
{
    return {zrk_tarn::OutputSlot::Source::Surround, channel};
}

constexpr zrk_tarn::OutputSlot dialogue(std::uint8_t side)
{
    return {zrk_tarn::OutputSlot::Source::Dialogue, side};
}

/// The layouts of upmixed stereo, the preferred one first.
inline constexpr Layout kUpmixLayouts[] = {
    // FL FR FC
    {3, 0x7, {{engine(0), engine(1), engine(2)}}},
    // FL FR FC LFE RL RR
    {6, 0x3f, {{engine(0), engine(1), engine(2), {}, surround(0), surround(1)}}},
    // FL FR FC LFE RL RR SL SR
    {8, 0xc3f, {{engine(0), engine(1), engine(2), {}, surround(2), surround(3), surround(0), surround(1)}}}};

/// FL FR, for two loudspeakers or headphones: the stereo with another level of the centre.
inline constexpr Layout kStereoLayout{2, 0x3, {{dialogue(0), dialogue(1)}}};

} // namespace tarn_gst
