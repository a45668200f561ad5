// The layouts of the output, in GStreamer's order of channels.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/output_slots.h"

#include <gst/gst.h>

#include <array>

namespace tarn_gst
{

struct Layout
{
    int channels;
    guint64 mask;
    std::array<zrk_tarn::OutputSlot, zrk_tarn::kMaxSlots> outputs;
};

using zrk_tarn::dialogue;
using zrk_tarn::engine;
using zrk_tarn::kLfe;
using zrk_tarn::surround;

/// The layouts of upmixed stereo, the preferred one first.
inline constexpr Layout kUpmixLayouts[] = {
    // FL FR FC
    {3, 0x7, {{engine(0), engine(1), engine(2)}}},
    // FL FR FC LFE RL RR
    {6, 0x3f, {{engine(0), engine(1), engine(2), kLfe, surround(0), surround(1)}}},
    // FL FR FC LFE RL RR SL SR
    {8, 0xc3f, {{engine(0), engine(1), engine(2), kLfe, surround(2), surround(3), surround(0), surround(1)}}}};

/// FL FR, for two loudspeakers or headphones: the stereo with another level of the centre.
inline constexpr Layout kStereoLayout{2, 0x3, {{dialogue(0), dialogue(1)}}};

} // namespace tarn_gst
