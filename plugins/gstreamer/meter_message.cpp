// Meter values as an element message.
// SPDX-License-Identifier: MIT
#include "meter_message.h"

#include <cmath>
#include <iterator>

namespace tarn_gst
{

namespace
{

constexpr double kSilenceDb = -350.0; ///< for a level of zero, as in the messages of the element `level`

double decibels(float level)
{
    return level > 0.0f ? 20.0 * std::log10(static_cast<double>(level)) : kSilenceDb;
}

/// Adds a list of the results of a function for each value.
template <typename Value, typename Function>
void addList(GstStructure* structure, const char* name, const Value* values, std::size_t count, Function valueOf)
{
    GValue list = G_VALUE_INIT;
    gst_value_array_init(&list, static_cast<guint>(count));
    for (std::size_t i = 0; i < count; ++i) {
        GValue item = valueOf(values[i]);
        gst_value_array_append_and_take_value(&list, &item);
    }
    gst_structure_take_value(structure, name, &list);
}

GValue doubleValue(double number)
{
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_DOUBLE);
    g_value_set_double(&value, number);
    return value;
}

GValue levelValue(float level)
{
    return doubleValue(decibels(level));
}

GValue plainValue(float number)
{
    return doubleValue(static_cast<double>(number));
}

GstClockTime runningTime(const GstSegment& segment, GstClockTime time)
{
    return segment.format == GST_FORMAT_TIME ? gst_segment_to_running_time(&segment, GST_FORMAT_TIME, time)
                                             : GST_CLOCK_TIME_NONE;
}

GValue speedValue(zrk_tarn::SteeringSpeed speed)
{
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_INT);
    g_value_set_int(&value, static_cast<int>(speed));
    return value;
}

} // namespace

GstClockTime streamTime(const GstSegment& segment, GstClockTime time)
{
    return segment.format == GST_FORMAT_TIME ? gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, time)
                                             : GST_CLOCK_TIME_NONE;
}

GstMessage* meterMessage(GstElement* element, const GstSegment& segment, const Interval& interval,
                         const zrk_tarn::StreamMeters& meters, guint channels)
{
    GstStructure* const structure = gst_structure_new(
        "tarnupmix", "endtime", GST_TYPE_CLOCK_TIME, interval.to, "timestamp", G_TYPE_UINT64, interval.from,
        "stream-time", G_TYPE_UINT64, streamTime(segment, interval.from), "running-time", G_TYPE_UINT64,
        runningTime(segment, interval.from), "duration", G_TYPE_UINT64, interval.duration, "blocks", G_TYPE_UINT64,
        meters.blocks, "saturated", G_TYPE_UINT64, meters.saturated, "invalid", G_TYPE_UINT64, meters.invalid,
        "limiter-gain", G_TYPE_DOUBLE, decibels(meters.limiterGain), "smallest-limiter-gain", G_TYPE_DOUBLE,
        decibels(meters.smallestLimiterGain), "limited-blocks", G_TYPE_UINT64, meters.limitedBlocks, nullptr);
    addList(structure, "peak", meters.peak, channels, levelValue);
    addList(structure, "rms", meters.rms, channels, levelValue);
    addList(structure, "left-right", meters.leftRight, std::size(meters.leftRight), plainValue);
    addList(structure, "front-back", meters.frontBack, std::size(meters.frontBack), plainValue);
    addList(structure, "speed", meters.speed, std::size(meters.speed), speedValue);
    addList(structure, "group-level", meters.groupLevel, std::size(meters.groupLevel), levelValue);
    addList(structure, "group-place", meters.groupPlace, std::size(meters.groupPlace), plainValue);
    addList(structure, "group-centre", meters.groupCentre, std::size(meters.groupCentre), plainValue);
    addList(structure, "group-upper-hz", meters.groupUpperHz, std::size(meters.groupUpperHz), plainValue);
    addList(structure, "group-surround", meters.groupSurround, std::size(meters.groupSurround), levelValue);
    return gst_message_new_element(GST_OBJECT(element), structure);
}

} // namespace tarn_gst
