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

/// Caps of the source pad: 3.0, 5.1, 7.1 and stereo, and all that passes through.
GstCaps* sourceCaps();

/// Caps that the other pad can have if the pad of a direction has the given caps. Caps for upmixing come first, then
/// those with the same channels on both sides.
GstCaps* transformedCaps(GstPadDirection direction, const GstCaps* caps);

/// Selects the caps of a pad: upmixed caps if there are any, otherwise the first. Takes ownership of the caps.
GstCaps* fixatedCaps(GstPadDirection direction, GstCaps* possible);

/// Whether fixed caps of the input are stereo that can be upmixed. All others pass through.
bool isUpmixable(const GstCaps* input);

/// Configuration of the stream from stereo to 3.0, 5.1, 7.1 or stereo.
zrk_tarn::StreamConfiguration configurationFor(const GstAudioInfo& input, const GstAudioInfo& output);

/// Whether a stream changes the level of voices in stereo.
bool isForTwoLoudspeakers(const zrk_tarn::StreamConfiguration& configuration);

} // namespace tarn_gst
