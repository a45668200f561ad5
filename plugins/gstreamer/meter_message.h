// Meter values as an element message.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <gst/gst.h>

namespace tarn_gst
{

/// A part of the output. Times are GST_CLOCK_TIME_NONE if buffers have no time stamps.
struct Interval
{
    GstClockTime from;
    GstClockTime to;
    GstClockTime duration;
};

/// Converts a time to stream time. Returns GST_CLOCK_TIME_NONE if the segment has none.
GstClockTime streamTime(const GstSegment& segment, GstClockTime time);

/// Creates a message with the meters at the end of an interval.
///
/// Its structure has the element's factory name. As in messages of the element `level`, its fields are endtime,
/// timestamp, stream-time, running-time, duration (ns), peak and rms (dB per channel). Further fields are left-right,
/// front-back, speed, group-level (dB), group-place, group-centre, group-upper-hz and group-surround (dB) per band
/// group, limiter-gain and smallest-limiter-gain (dB), and the counters blocks, saturated, invalid and limited-blocks.
/// Lists are GstValueArray.
GstMessage* meterMessage(GstElement* element, const GstSegment& segment, const Interval& interval,
                         const zrk_tarn::StreamMeters& meters, guint channels);

} // namespace tarn_gst
