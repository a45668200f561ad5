// Time stamps: where output frames belong, gaps, and drift of the input's clock.
// SPDX-License-Identifier: MIT
#include "timing.h"

#include <algorithm>

namespace tarn_gst
{

GstClockTime durationOf(const State& state, guint64 frames)
{
    return gst_util_uint64_scale_round(frames, GST_SECOND, state.rateHz);
}

GstClockTime timeOf(const State& state, guint64 frame)
{
    const Run& run = state.run;
    return GST_CLOCK_TIME_IS_VALID(run.firstPts)
               ? run.firstPts + durationOf(state, frame) + static_cast<GstClockTime>(run.drift)
               : GST_CLOCK_TIME_NONE;
}

bool isGapBefore(const State& state, const GstBuffer* buffer)
{
    const bool discontinuous = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const guint64 maxFrames = discontinuous ? 1 : state.rateHz / 32;
    const auto difference = [](guint64 a, guint64 b) { return std::max(a, b) - std::min(a, b); };
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
        if (!GST_CLOCK_TIME_IS_VALID(state.run.firstPts)) return true;
        const GstClockTime time = difference(GST_BUFFER_PTS(buffer), timeOf(state, state.run.inputFrames));
        return gst_util_uint64_scale_round(time, state.rateHz, GST_SECOND) > maxFrames;
    }
    if (GST_BUFFER_OFFSET_IS_VALID(buffer) && state.run.firstOffset != GST_BUFFER_OFFSET_NONE)
        return difference(GST_BUFFER_OFFSET(buffer), state.run.firstOffset + state.run.inputFrames) > maxFrames;
    return false;
}

void followDrift(State& state, const GstBuffer* buffer, guint64 frames)
{
    constexpr GstClockTimeDiff kIgnored = 2 * GST_MSECOND;
    Run& run = state.run;
    if (run.outputFrames < kLatency || !GST_BUFFER_PTS_IS_VALID(buffer) || !GST_CLOCK_TIME_IS_VALID(run.firstPts))
        return;
    const auto lateness = GST_CLOCK_DIFF(timeOf(state, run.inputFrames), GST_BUFFER_PTS(buffer));
    const GstClockTimeDiff excess = lateness - std::clamp(lateness, -kIgnored, kIgnored);
    const auto second = static_cast<GstClockTimeDiff>(state.rateHz);
    run.drift += excess * std::min(static_cast<GstClockTimeDiff>(frames), second) / second;
}

} // namespace tarn_gst
