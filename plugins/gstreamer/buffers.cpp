// Upmixes buffers, trims the latency and returns the tail.
// SPDX-License-Identifier: MIT
#include "buffers.h"

#include "errors.h"
#include "meter_message.h"
#include "timing.h"

#include <algorithm>
#include <utility>

namespace tarn_gst
{

namespace
{

/// Posts the meters of the output from the last message up to a frame.
void postMeters(GstTarnUpmix* self, guint64 frame)
{
    State& state = stateOf(self);
    const Interval interval{timeOf(state, state.run.meteredFrames), timeOf(state, frame),
                            durationOf(state, frame - state.run.meteredFrames)};
    state.run.meteredFrames = frame;
    auto* const element = GST_ELEMENT(self);
    gst_element_post_message(
        element, meterMessage(element, self->base.segment, interval, state.stream->meters(), state.outputChannels));
}

/// Processes frames, or drains the tail if input is null. Posts the meter messages that become due.
void processFrames(GstTarnUpmix* self, const guint8* input, guint8* output, guint64 frames)
{
    State& state = stateOf(self);
    Run& run = state.run;
    Settings settings;
    {
        const ObjectLock lock(self);
        settings = state.settings;
    }
    const guint64 interval = std::max<guint64>(gst_util_uint64_scale(settings.interval, state.rateHz, GST_SECOND), 1);
    while (frames > 0) {
        const guint64 due = kLatency + run.meteredFrames + interval;
        const guint64 count =
            settings.postMessages ? std::min(frames, std::max(due, run.outputFrames + 1) - run.outputFrames) : frames;
        if (input != nullptr) {
            state.stream->process(input, output, count);
            input += count * state.inputFrameBytes;
        } else {
            state.stream->drain(output, count);
        }
        output += count * state.outputFrameBytes;
        frames -= count;
        run.outputFrames += count;
        if (settings.postMessages && run.outputFrames >= due) postMeters(self, run.outputFrames - kLatency);
    }
    if (!settings.postMessages && run.outputFrames > kLatency) run.meteredFrames = run.outputFrames - kLatency;
}

/// Sets time, duration and offsets of an output buffer that holds the run's last frames.
void stamp(State& state, GstBuffer* buffer, guint64 frames)
{
    Run& run = state.run;
    const guint64 end = run.outputFrames - kLatency;
    const guint64 begin = end - frames;
    if (begin == 0) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const GstClockTime pts = std::exchange(run.end, timeOf(state, end));
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) =
        GST_CLOCK_TIME_IS_VALID(pts) ? run.end - pts : durationOf(state, end) - durationOf(state, begin);
    if (run.firstOffset != GST_BUFFER_OFFSET_NONE) {
        GST_BUFFER_OFFSET(buffer) = run.firstOffset + begin;
        GST_BUFFER_OFFSET_END(buffer) = run.firstOffset + end;
    }
}

/// Processes frames into a new buffer, without the latency at the start of a run.
///
/// input   null drains the tail
/// frames  of the input, or of the tail
/// output  null if all frames are latency, or after an error
GstFlowReturn outputFor(GstTarnUpmix* self, const guint8* input, guint64 frames, GstBuffer** output)
{
    *output = nullptr;
    State& state = stateOf(self);
    const guint64 trimmed = std::min(frames, kLatency - std::min(kLatency, state.run.outputFrames));

    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, frames * state.outputFrameBytes, nullptr);
    GstMapInfo map;
    if (buffer == nullptr || !gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        if (buffer != nullptr) gst_buffer_unref(buffer);
        return outOfMemory(self, "Cannot allocate the output buffer.");
    }
    processFrames(self, input, map.data, frames);
    gst_buffer_unmap(buffer, &map);

    if (trimmed == frames) {
        gst_buffer_unref(buffer);
        return GST_FLOW_OK;
    }
    gst_buffer_resize(buffer, static_cast<gssize>(trimmed * state.outputFrameBytes),
                      static_cast<gssize>((frames - trimmed) * state.outputFrameBytes));
    stamp(state, buffer, frames - trimmed);
    *output = buffer;
    return GST_FLOW_OK;
}

} // namespace

void discardRun(GstTarnUpmix* self)
{
    State& state = stateOf(self);
    if (state.stream) state.stream->reset();
    state.run = {};
}

GstFlowReturn drainRun(GstTarnUpmix* self)
{
    if (stateOf(self).run.inputFrames == 0) return GST_FLOW_OK;
    GstBuffer* tail = nullptr;
    const GstFlowReturn flow = outputFor(self, nullptr, kLatency, &tail);
    discardRun(self);
    return flow == GST_FLOW_OK ? gst_pad_push(self->base.srcpad, tail) : flow;
}

GstFlowReturn upmixBuffer(GstTarnUpmix* self, GstBuffer* input, GstBuffer** output)
{
    State& state = stateOf(self);
    const guint64 frames = gst_buffer_get_size(input) / state.inputFrameBytes; // ignores part of a frame
    if (frames == 0) return GST_FLOW_OK;
    if (state.run.inputFrames > 0 && isGapBefore(state, input))
        if (const GstFlowReturn flow = drainRun(self); flow != GST_FLOW_OK) return flow;
    if (state.run.inputFrames == 0) {
        state.run.firstPts = state.run.end = usable(GST_BUFFER_PTS(input));
        state.run.firstOffset = usable(GST_BUFFER_OFFSET(input));
    }
    followDrift(state, input, frames);
    const GstClockTime time = streamTime(self->base.segment, GST_BUFFER_PTS(input));
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(self), time);

    GstMapInfo map;
    if (!gst_buffer_map(input, &map, GST_MAP_READ)) return unreadableBuffer(self);
    state.run.inputFrames += frames;
    const GstFlowReturn flow = outputFor(self, map.data, frames, output);
    gst_buffer_unmap(input, &map);
    return flow;
}

} // namespace tarn_gst
