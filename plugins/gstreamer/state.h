// The state of the element: settings, the stream and the run of input without a gap.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/presets.h"
#include "stream/upmix_stream.h"

#include <gst/base/gstbasetransform.h>

#include <memory>

namespace tarn_gst
{

/// The delay of a stream in frames. It is that with the limiter, also while the limiter is off.
inline constexpr guint64 kLatency = zrk_tarn::UpmixStream::latencyFrames({.limiter = true});

/// Values of the properties.
struct Settings
{
    bool bypass = false;
    zrk_tarn::SteeringMode mode = zrk_tarn::SteeringMode::Fast;
    int preset = 0; ///< number of the preset that was set last
    zrk_tarn::RoomSettings room = zrk_tarn::kPresets[0].settings;
    bool hasMakeUpGain = false; ///< the make-up gain was set after the preset
    bool postMessages = false;
    GstClockTime interval = 100 * GST_MSECOND;
};

/// Input without a gap: its start and its progress. Output frames are numbered from its start.
struct Run
{
    GstClockTime firstPts = GST_CLOCK_TIME_NONE;
    guint64 firstOffset = GST_BUFFER_OFFSET_NONE;
    GstClockTimeDiff drift = 0;             ///< correction for input time stamps that drift
    GstClockTime end = GST_CLOCK_TIME_NONE; ///< end time of the last output buffer
    guint64 inputFrames = 0;
    guint64 outputFrames = 0;  ///< including the latency, which is trimmed
    guint64 meteredFrames = 0; ///< output frames up to the last meter message
};

/// All state of an element.
struct State
{
    // The element's lock protects these.
    Settings settings;
    std::unique_ptr<zrk_tarn::UpmixStream> stream; ///< null while input passes through; only read without the lock by
                                                   ///< the streaming thread, which replaces it
    bool isForTwoLoudspeakers = false;             ///< whether the stream's output is stereo
    GstClockTime latency = 0;

    // The streaming thread owns these.
    Run run;
    guint64 rateHz = 0;
    gsize inputFrameBytes = 0;
    guint outputChannels = 0;
    gsize outputFrameBytes = 0;
};

/// Holds an element's lock.
class ObjectLock
{
public:
    explicit ObjectLock(gpointer instance) : object(static_cast<GstObject*>(instance)) { GST_OBJECT_LOCK(object); }
    ~ObjectLock() { GST_OBJECT_UNLOCK(object); }
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

private:
    GstObject* object;
};

} // namespace tarn_gst

/// The instance of the element.
struct GstTarnUpmix
{
    GstBaseTransform base;
    tarn_gst::State state; ///< constructed and destroyed in memory of GObject
};

namespace tarn_gst
{

inline State& stateOf(gpointer instance)
{
    return static_cast<GstTarnUpmix*>(instance)->state;
}

} // namespace tarn_gst
