// The caps that the element upmixes and those that it passes through.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <gst/audio/audio.h>

// The caller owns all returned caps.

namespace tarn_gst
{

/// Caps of the sink pad: stereo that can be upmixed, and all that passes through.
GstCaps* sinkCaps();

/// Caps of the source pad: 3.0 and 5.1, and all that passes through.
GstCaps* sourceCaps();

/// Caps that the other pad can have if the pad of a direction has the given caps. Caps for upmixing come first, then
/// those that pass through.
GstCaps* transformedCaps(GstPadDirection direction, const GstCaps* caps);

/// Selects the caps of a pad: upmixed caps if there are any, otherwise the first. Takes ownership of the caps.
GstCaps* fixatedCaps(GstPadDirection direction, GstCaps* possible);

/// Number of channels of fixed caps.
int channelsOf(const GstCaps* caps);

/// Configuration of the stream from stereo to upmixed caps.
zrk_tarn::StreamConfiguration configurationFor(const GstAudioInfo& input, const GstAudioInfo& output);

} // namespace tarn_gst
