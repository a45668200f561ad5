#pragma once

#include "stream/stream_types.h"

#include <gst/gst.h>

/// @file
/// The meters as an element message.

namespace tarn_gst
{

/// A stretch of the output, in its own time.
struct Stretch
{
    GstClockTime from; ///< or GST_CLOCK_TIME_NONE, where buffers have no time stamps
    GstClockTime to;   ///< or GST_CLOCK_TIME_NONE
    GstClockTime duration;
};

/// A time of a segment as stream time, or GST_CLOCK_TIME_NONE where it has none.
GstClockTime streamTime(const GstSegment& segment, GstClockTime time);

/// A message with the meters at the end of a stretch.
///
/// Its structure has the element's factory name and, as those of the element `level` do, endtime, timestamp,
/// stream-time, running-time, duration (all in ns), peak and rms in dB per channel; further left-right, front-back and
/// speed per band group, and the counters blocks, saturated and invalid. Lists are GstValueArray.
GstMessage* meterMessage(GstElement* element, const GstSegment& segment, const Stretch& stretch,
                         const zrk_tarn::StreamMeters& meters, guint channels);

} // namespace tarn_gst
