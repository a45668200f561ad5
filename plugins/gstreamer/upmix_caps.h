#pragma once

#include "stream/stream_types.h"

#include <gst/audio/audio.h>

/// @file
/// What the element upmixes and what it lets pass, in GStreamer's words. All results belong to the caller.

namespace tarn_gst
{

/// What the sink pad takes: stereo that is upmixed, and whatever passes through.
GstCaps* sinkCaps();

/// What the source pad gives: 3.0 and 5.1, and whatever passed through.
GstCaps* sourceCaps();

/// What the other pad can have if the pad of a direction has the given caps: what the upmix makes or takes first, then
/// what passes through.
GstCaps* transformedCaps(GstPadDirection direction, const GstCaps* caps);

/// The caps that a pad takes of several possible ones, the first being the best; but the upmixed, if there are any,
/// before what merely passes. Takes the caps over.
GstCaps* fixatedCaps(GstPadDirection direction, GstCaps* possible);

/// The channels of fixed caps.
int channelsOf(const GstCaps* caps);

/// What the stream between stereo and upmixed caps is made for.
zrk_tarn::StreamConfiguration configurationFor(const GstAudioInfo& input, const GstAudioInfo& output);

} // namespace tarn_gst
