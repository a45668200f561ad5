// Time stamps: where output frames belong, gaps, and drift of the input's clock.
// SPDX-License-Identifier: MIT
#include "timing.h"

#include <algorithm>

namespace tarn_gst
{

guint64 usable(guint64 timeOrOffset)
{
    static_assert(GST_CLOCK_TIME_NONE == GST_BUFFER_OFFSET_NONE);
    return timeOrOffset < guint64{1} << 62 ? timeOrOffset : GST_CLOCK_TIME_NONE;
}

GstClockTime durationOf(const State& state, guint64 frames)
{
    return gst_util_uint64_scale_round(frames, GST_SECOND, state.rateHz);
}

GstClockTime timeOf(const State& state, guint64 frame)
{
    const Run& run = state.run;
    if (!GST_CLOCK_TIME_IS_VALID(run.firstPts)) return GST_CLOCK_TIME_NONE;
    const GstClockTime time = run.firstPts + durationOf(state, frame);
    if (run.drift >= 0) return time + static_cast<GstClockTime>(run.drift);
    return time - std::min(time, static_cast<GstClockTime>(-run.drift));
}

bool isGapBefore(const State& state, const GstBuffer* buffer)
{
    const bool discontinuous = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const guint64 maxFrames = discontinuous ? 1 : state.rateHz / 32;
    const auto difference = [](guint64 a, guint64 b) { return std::max(a, b) - std::min(a, b); };
    if (const GstClockTime pts = usable(GST_BUFFER_PTS(buffer)); GST_CLOCK_TIME_IS_VALID(pts)) {
        if (!GST_CLOCK_TIME_IS_VALID(state.run.firstPts)) return true;
        const GstClockTime time = difference(pts, timeOf(state, state.run.inputFrames));
        return gst_util_uint64_scale_round(time, state.rateHz, GST_SECOND) > maxFrames;
    }
    const guint64 offset = usable(GST_BUFFER_OFFSET(buffer));
    if (offset != GST_BUFFER_OFFSET_NONE && state.run.firstOffset != GST_BUFFER_OFFSET_NONE)
        return difference(offset, state.run.firstOffset + state.run.inputFrames) > maxFrames;
    return false;
}

void followDrift(State& state, const GstBuffer* buffer, guint64 frames)
{
    constexpr GstClockTimeDiff kIgnored = 2 * GST_MSECOND;
    Run& run = state.run;
    const GstClockTime pts = usable(GST_BUFFER_PTS(buffer));
    if (run.outputFrames < kLatency || !GST_CLOCK_TIME_IS_VALID(pts) || !GST_CLOCK_TIME_IS_VALID(run.firstPts)) return;
    const auto lateness =
        static_cast<GstClockTimeDiff>(pts) - static_cast<GstClockTimeDiff>(timeOf(state, run.inputFrames));
    const GstClockTimeDiff excess = lateness - std::clamp(lateness, -kIgnored, kIgnored);
    const auto second = static_cast<GstClockTimeDiff>(state.rateHz);
    run.drift += excess * std::min(static_cast<GstClockTimeDiff>(frames), second) / second;
}

} // namespace tarn_gst
