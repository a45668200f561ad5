#include "tarn_upmix.h"

#include "meter_message.h"
#include "stream/upmix_stream.h"
#include "upmix_caps.h"

#include <gst/base/gstbasetransform.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <utility>

// The element: buffers through a stream, its latency taken out of the time stamps and its tail brought out wherever the
// input has an end.

namespace
{

using tarn_gst::Stretch;
using zrk_tarn::SteeringMode;
using zrk_tarn::UpmixStream;

constexpr guint64 kLatency = UpmixStream::latencyFrames();

GST_DEBUG_CATEGORY_STATIC(debugCategory);
#define GST_CAT_DEFAULT debugCategory

enum Property : guint
{
    kBypass = 1,
    kMode,
    kMakeUpGain,
    kPostMessages,
    kInterval
};

/// What the properties say.
struct Settings
{
    bool bypass = false;
    SteeringMode mode = SteeringMode::Fast;
    double makeUpGainDb = 0.0;
    bool postMessages = false;
    GstClockTime interval = 100 * GST_MSECOND;
};

/// Input without a gap: where it began, and how far it has come. Frames of the output have their places in it.
struct Run
{
    GstClockTime firstPts = GST_CLOCK_TIME_NONE;
    guint64 firstOffset = GST_BUFFER_OFFSET_NONE;
    GstClockTimeDiff drift = 0;               ///< of the input's time stamps since, as far as it is followed
    GstClockTime until = GST_CLOCK_TIME_NONE; ///< where the last buffer that came out ends
    guint64 taken = 0;                        ///< frames
    guint64 given = 0;                        ///< frames, with the latency that is trimmed off
    guint64 metered = 0;                      ///< frames of the output up to the last message
};

/// All of an element that is not its base's.
struct State
{
    Settings settings;                   ///< under the element's lock
    std::unique_ptr<UpmixStream> stream; ///< changes under the element's lock; null while everything passes through
    GstClockTime latency = 0;            ///< under the element's lock

    // Of the streaming thread.
    Run run;
    guint64 rateHz = 0;
    gsize inputFrameBytes = 0;
    guint outputChannels = 0;
    gsize outputFrameBytes = 0;
};

} // namespace

/// The instance.
struct GstTarnUpmix
{
    GstBaseTransform base;
    State state; ///< constructed and destroyed in the memory that GObject gives
};

/// The class.
struct GstTarnUpmixClass
{
    GstBaseTransformClass base;
};

G_DEFINE_TYPE(GstTarnUpmix, gst_tarn_upmix, GST_TYPE_BASE_TRANSFORM)

namespace
{

GstBaseTransformClass* parentClass()
{
    return static_cast<GstBaseTransformClass*>(gst_tarn_upmix_parent_class);
}

State& stateOf(gpointer instance)
{
    return static_cast<GstTarnUpmix*>(instance)->state;
}

/// The element's lock, held as long as this lives.
class ObjectLock
{
public:
    explicit ObjectLock(gpointer object) : object_(static_cast<GstObject*>(object)) { GST_OBJECT_LOCK(object_); }
    ~ObjectLock() { GST_OBJECT_UNLOCK(object_); }
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

private:
    GstObject* object_;
};

// --- Time ------------------------------------------------------------------------------------------------------------

GstClockTime durationOf(const State& state, guint64 frames)
{
    return gst_util_uint64_scale_round(frames, GST_SECOND, state.rateHz);
}

/// When a frame of the run is due.
GstClockTime timeOf(const State& state, guint64 frame)
{
    const Run& run = state.run;
    return GST_CLOCK_TIME_IS_VALID(run.firstPts)
               ? run.firstPts + durationOf(state, frame) + static_cast<GstClockTime>(run.drift)
               : GST_CLOCK_TIME_NONE;
}

/// Whether a buffer is not the continuation of the run.
///
/// Where buffers say that something is missing, a frame is enough. Elsewhere time stamps may be rounded to
/// milliseconds, and only a 32nd of a second tells.
bool isGapBefore(const State& state, const GstBuffer* buffer)
{
    const bool discontinuous = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const guint64 most = discontinuous ? 1 : state.rateHz / 32;
    const auto difference = [](guint64 a, guint64 b) { return std::max(a, b) - std::min(a, b); };
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
        if (!GST_CLOCK_TIME_IS_VALID(state.run.firstPts)) return true;
        const GstClockTime time = difference(GST_BUFFER_PTS(buffer), timeOf(state, state.run.taken));
        return gst_util_uint64_scale_round(time, state.rateHz, GST_SECOND) > most;
    }
    if (GST_BUFFER_OFFSET_IS_VALID(buffer) && state.run.firstOffset != GST_BUFFER_OFFSET_NONE)
        return difference(GST_BUFFER_OFFSET(buffer), state.run.firstOffset + state.run.taken) > most;
    return false;
}

/// Lets the run's times follow those of a source with a clock of its own, before they differ by so much that they look
/// like a gap.
///
/// Differences up to kSteady are left alone: files whose time stamps are rounded to milliseconds get exact ones. What
/// is beyond is made good over a second, so that a single buffer that is early or late moves little.
void followTime(State& state, const GstBuffer* buffer, guint64 frames)
{
    constexpr GstClockTimeDiff kSteady = 2 * GST_MSECOND;
    Run& run = state.run;
    if (run.given < kLatency || !GST_BUFFER_PTS_IS_VALID(buffer) || !GST_CLOCK_TIME_IS_VALID(run.firstPts)) return;
    const auto lateness = GST_CLOCK_DIFF(timeOf(state, run.taken), GST_BUFFER_PTS(buffer));
    const GstClockTimeDiff beyond = lateness - std::clamp(lateness, -kSteady, kSteady);
    const auto second = static_cast<GstClockTimeDiff>(state.rateHz);
    run.drift += beyond * std::min(static_cast<GstClockTimeDiff>(frames), second) / second;
}

/// Stops the pipeline, which is told that memory is short.
GstFlowReturn wantOfMemory(GstTarnUpmix* self, const char* sentence)
{
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("%s", sentence), (nullptr));
    return GST_FLOW_ERROR;
}

// --- Frames ----------------------------------------------------------------------------------------------------------

/// Posts the meters of the output up to here, from where the last message ended.
void postMeters(GstTarnUpmix* self, guint64 frame)
{
    State& state = stateOf(self);
    const Stretch stretch{timeOf(state, state.run.metered), timeOf(state, frame),
                          durationOf(state, frame - state.run.metered)};
    state.run.metered = frame;
    auto* const element = GST_ELEMENT(self);
    gst_element_post_message(element, tarn_gst::meterMessage(element, self->base.segment, stretch,
                                                             state.stream->meters(), state.outputChannels));
}

/// Carries frames through the stream, or its tail out of it where there is no input, and posts the messages that fall
/// due on the way.
void carry(GstTarnUpmix* self, const guint8* input, guint8* output, guint64 frames)
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
        const guint64 due = kLatency + run.metered + interval;
        const guint64 some =
            settings.postMessages ? std::min(frames, std::max(due, run.given + 1) - run.given) : frames;
        if (input != nullptr) {
            state.stream->process(input, output, some);
            input += some * state.inputFrameBytes;
        } else {
            state.stream->drain(output, some);
        }
        output += some * state.outputFrameBytes;
        frames -= some;
        run.given += some;
        if (settings.postMessages && run.given >= due) postMeters(self, run.given - kLatency);
    }
    if (!settings.postMessages && run.given > kLatency) run.metered = run.given - kLatency;
}

/// What comes out for frames that go in, in a buffer of its own: without the latency at the beginning of a run, which
/// may leave nothing, and at the time of the input that it belongs to.
///
/// input   null brings the tail out
/// frames  of the input, or of the tail
/// output  null where nothing is left, or no buffer can be had, which stops the pipeline
GstFlowReturn outputFor(GstTarnUpmix* self, const guint8* input, guint64 frames, GstBuffer** output)
{
    *output = nullptr;
    State& state = stateOf(self);
    Run& run = state.run;
    const guint64 trimmed = std::min(frames, kLatency - std::min(kLatency, run.given));

    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, frames * state.outputFrameBytes, nullptr);
    GstMapInfo map;
    if (buffer == nullptr || !gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        if (buffer != nullptr) gst_buffer_unref(buffer);
        return wantOfMemory(self, "No buffer can be had for the output, or it cannot be written.");
    }
    carry(self, input, map.data, frames);
    gst_buffer_unmap(buffer, &map);

    if (trimmed == frames) {
        gst_buffer_unref(buffer);
        return GST_FLOW_OK;
    }
    gst_buffer_resize(buffer, static_cast<gssize>(trimmed * state.outputFrameBytes),
                      static_cast<gssize>((frames - trimmed) * state.outputFrameBytes));
    const guint64 end = run.given - kLatency;
    const guint64 begin = end - (frames - trimmed);
    if (begin == 0) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const GstClockTime pts = std::exchange(run.until, timeOf(state, end));
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) =
        GST_CLOCK_TIME_IS_VALID(pts) ? run.until - pts : durationOf(state, end) - durationOf(state, begin);
    if (run.firstOffset != GST_BUFFER_OFFSET_NONE) {
        GST_BUFFER_OFFSET(buffer) = run.firstOffset + begin;
        GST_BUFFER_OFFSET_END(buffer) = run.firstOffset + end;
    }
    *output = buffer;
    return GST_FLOW_OK;
}

/// Forgets the run, so that the next buffer begins another one.
void endRun(GstTarnUpmix* self)
{
    State& state = stateOf(self);
    if (state.stream) state.stream->reset();
    state.run = {};
}

/// Brings the run's tail out, as the end of a run that is as long as its input.
GstFlowReturn drain(GstTarnUpmix* self)
{
    if (stateOf(self).run.taken == 0) return GST_FLOW_OK;
    GstBuffer* tail = nullptr;
    const GstFlowReturn flow = outputFor(self, nullptr, kLatency, &tail);
    endRun(self);
    return flow == GST_FLOW_OK ? gst_pad_push(self->base.srcpad, tail) : flow;
}

/// Stops the pipeline, which is told why.
GstFlowReturn unreadable(GstTarnUpmix* self)
{
    GST_ELEMENT_ERROR(self, RESOURCE, READ, (nullptr), ("a buffer cannot be read"));
    return GST_FLOW_ERROR;
}

/// Upmixes a buffer. If there is a gap before it, it begins another run.
GstFlowReturn upmix(GstTarnUpmix* self, GstBuffer* input, GstBuffer** output)
{
    State& state = stateOf(self);
    const guint64 frames = gst_buffer_get_size(input) / state.inputFrameBytes; // part of a frame is no sound
    if (frames == 0) return GST_FLOW_OK;
    if (state.run.taken > 0 && isGapBefore(state, input))
        if (const GstFlowReturn flow = drain(self); flow != GST_FLOW_OK) return flow;
    if (state.run.taken == 0) {
        state.run.firstPts = state.run.until = GST_BUFFER_PTS(input);
        state.run.firstOffset = GST_BUFFER_OFFSET(input);
    }
    followTime(state, input, frames);
    const GstClockTime streamTime = tarn_gst::streamTime(self->base.segment, GST_BUFFER_PTS(input));
    if (GST_CLOCK_TIME_IS_VALID(streamTime)) gst_object_sync_values(GST_OBJECT(self), streamTime);

    GstMapInfo map;
    if (!gst_buffer_map(input, &map, GST_MAP_READ)) return unreadable(self);
    state.run.taken += frames;
    const GstFlowReturn flow = outputFor(self, map.data, frames, output);
    gst_buffer_unmap(input, &map);
    return flow;
}

/// Upmixes the buffer that has come, or lets it pass.
GstFlowReturn generateOutput(GstBaseTransform* base, GstBuffer** output)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    State& state = stateOf(self);
    if (!state.stream) return parentClass()->generate_output(base, output);

    *output = nullptr;
    GstBuffer* const input = std::exchange(base->queued_buf, nullptr);
    if (input == nullptr) return GST_FLOW_OK;
    const GstFlowReturn flow = upmix(self, input, output);
    gst_buffer_unref(input);
    return flow;
}

// --- Caps and events -------------------------------------------------------------------------------------------------

GstCaps* transformCaps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps, GstCaps* filter)
{
    GstCaps* const transformed = tarn_gst::transformedCaps(direction, caps);
    if (filter == nullptr) return transformed;
    GstCaps* const filtered = gst_caps_intersect_full(filter, transformed, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(transformed);
    return filtered;
}

GstCaps* fixateCaps(GstBaseTransform*, GstPadDirection direction, GstCaps*, GstCaps* possible)
{
    return tarn_gst::fixatedCaps(direction, possible);
}

/// Puts bypass, mode and gain into effect. With the element's lock held.
void applySettings(const State& state)
{
    if (!state.stream) return;
    state.stream->setBypass(state.settings.bypass);
    state.stream->setMode(state.settings.mode);
    state.stream->setMakeUpGain(static_cast<float>(std::pow(10.0, state.settings.makeUpGainDb / 20.0)));
}

/// Puts another stream, or none, in the place of the present one, and tells the pipeline if that changes the latency.
void setStream(GstTarnUpmix* self, std::unique_ptr<UpmixStream> stream, guint64 rateHz)
{
    State& state = stateOf(self);
    state.run = {};
    const GstClockTime latency = stream ? gst_util_uint64_scale_ceil(kLatency, GST_SECOND, rateHz) : 0;
    bool changed = false;
    {
        const ObjectLock lock(self);
        std::swap(state.stream, stream);
        changed = std::exchange(state.latency, latency) != latency;
        applySettings(state);
    }
    if (changed) gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
}

/// Makes the stream that new caps need; those with as many channels on both sides need none. The tail of the one before
/// goes out under its own caps: downstream hears of the new ones later.
gboolean setCaps(GstBaseTransform* base, GstCaps* input, GstCaps* output)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    State& state = stateOf(self);
    drain(self);
    const bool passes = tarn_gst::channelsOf(input) == tarn_gst::channelsOf(output);
    gst_base_transform_set_passthrough(base, passes);
    if (passes) {
        setStream(self, nullptr, 0);
        return TRUE;
    }
    GstAudioInfo from{};
    GstAudioInfo to{};
    if (!gst_audio_info_from_caps(&from, input) || !gst_audio_info_from_caps(&to, output)) return FALSE;
    const zrk_tarn::StreamConfiguration configuration = tarn_gst::configurationFor(from, to);
    std::unique_ptr<UpmixStream> stream;
    try {
        stream = std::make_unique<UpmixStream>(configuration);
    } catch (const std::bad_alloc&) { // would unwind GObject's frames
        wantOfMemory(self, "There is not enough memory for the upmix.");
        return FALSE;
    }
    state.rateHz = configuration.sampleRateHz;
    state.inputFrameBytes = static_cast<gsize>(GST_AUDIO_INFO_BPF(&from));
    state.outputChannels = configuration.outputSlots;
    state.outputFrameBytes = static_cast<gsize>(GST_AUDIO_INFO_BPF(&to));
    setStream(self, std::move(stream), state.rateHz);
    return TRUE;
}

/// Lets downstream say where buffers should lie only if it is to get them: those that are upmixed end here.
gboolean proposeAllocation(GstBaseTransform* base, GstQuery* decided, GstQuery* query)
{
    return stateOf(base).stream ? TRUE : parentClass()->propose_allocation(base, decided, query);
}

/// Brings the tail out ahead of whatever ends the run.
gboolean sinkEvent(GstBaseTransform* base, GstEvent* event)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_STOP:
        endRun(self);
        break;
    case GST_EVENT_SEGMENT: {
        GstSegment segment;
        gst_event_copy_segment(event, &segment);
        segment.position = base->segment.position; // moves with the buffers
        if (!gst_segment_is_equal(&segment, &base->segment)) drain(self);
        break;
    }
    case GST_EVENT_STREAM_START:
    case GST_EVENT_GAP:
    case GST_EVENT_SEGMENT_DONE:
    case GST_EVENT_EOS:
        drain(self);
        break;
    default:
        break;
    }
    return parentClass()->sink_event(base, event);
}

/// Adds the latency to that of the elements in front.
gboolean answerQuery(GstBaseTransform* base, GstPadDirection direction, GstQuery* query)
{
    if (!parentClass()->query(base, direction, query)) return FALSE;
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY || direction != GST_PAD_SRC) return TRUE;
    gboolean live = FALSE;
    GstClockTime least = 0;
    GstClockTime most = GST_CLOCK_TIME_NONE;
    gst_query_parse_latency(query, &live, &least, &most);
    const ObjectLock lock(base);
    const GstClockTime own = stateOf(base).latency;
    gst_query_set_latency(query, live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
    return TRUE;
}

gboolean stop(GstBaseTransform* base)
{
    setStream(reinterpret_cast<GstTarnUpmix*>(base), nullptr, 0);
    return TRUE;
}

// --- Properties ------------------------------------------------------------------------------------------------------

GType modeType()
{
    static const GEnumValue kValues[] = {
        {static_cast<int>(SteeringMode::Fast), "Strong steering is followed fast", "fast"},
        {static_cast<int>(SteeringMode::Calm), "Strong steering is followed at medium speed", "calm"},
        {0, nullptr, nullptr}};
    static const GType kType = g_enum_register_static("GstTarnUpmixMode", kValues);
    return kType;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    State& state = stateOf(object);
    const ObjectLock lock(object);
    switch (id) {
    case kBypass:
        state.settings.bypass = g_value_get_boolean(value);
        break;
    case kMode:
        state.settings.mode = static_cast<SteeringMode>(g_value_get_enum(value));
        break;
    case kMakeUpGain:
        state.settings.makeUpGainDb = g_value_get_double(value);
        break;
    case kPostMessages:
        state.settings.postMessages = g_value_get_boolean(value);
        break;
    case kInterval:
        state.settings.interval = g_value_get_uint64(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    applySettings(state);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    const State& state = stateOf(object);
    const ObjectLock lock(object);
    switch (id) {
    case kBypass:
        g_value_set_boolean(value, state.settings.bypass);
        break;
    case kMode:
        g_value_set_enum(value, static_cast<int>(state.settings.mode));
        break;
    case kMakeUpGain:
        g_value_set_double(value, state.settings.makeUpGainDb);
        break;
    case kPostMessages:
        g_value_set_boolean(value, state.settings.postMessages);
        break;
    case kInterval:
        g_value_set_uint64(value, state.settings.interval);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

void installProperties(GObjectClass* objectClass)
{
    const Settings defaults;
    constexpr auto kPlain =
        static_cast<GParamFlags>(int{G_PARAM_READWRITE} | int{G_PARAM_STATIC_STRINGS} | int{GST_PARAM_MUTABLE_PLAYING});
    constexpr auto kControllable = static_cast<GParamFlags>(int{kPlain} | int{GST_PARAM_CONTROLLABLE});
    const auto install = [&](Property id, GParamSpec* spec) { g_object_class_install_property(objectClass, id, spec); };
    install(kBypass, g_param_spec_boolean("bypass", "Bypass",
                                          "Play left and right as they came in, the other channels silent; "
                                          "crossfades within 1024 frames, the latency stays",
                                          defaults.bypass, kControllable));
    install(kMode, g_param_spec_enum("mode", "Mode", "How fast strong steering is followed", modeType(),
                                     static_cast<int>(defaults.mode), kControllable));
    install(kMakeUpGain, g_param_spec_double("make-up-gain", "Make-up gain",
                                             "Gain of the upmix in dB, reached within 1024 frames; 0 keeps it exact",
                                             -60.0, 18.0, defaults.makeUpGainDb, kControllable));
    install(kPostMessages, g_param_spec_boolean("post-messages", "Post messages",
                                                "Post an element message with the meters after each interval",
                                                defaults.postMessages, kPlain));
    install(kInterval, g_param_spec_uint64("interval", "Interval", "Time between messages, in nanoseconds", GST_MSECOND,
                                           G_MAXUINT64, defaults.interval, kPlain));
}

void finalize(GObject* object)
{
    std::destroy_at(&stateOf(object));
    G_OBJECT_CLASS(gst_tarn_upmix_parent_class)->finalize(object);
}

void addPad(GstElementClass* elementClass, const char* name, GstPadDirection direction, GstCaps* caps)
{
    gst_element_class_add_pad_template(elementClass, gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);
}

} // namespace

static void gst_tarn_upmix_class_init(GstTarnUpmixClass* ownClass)
{
    GST_DEBUG_CATEGORY_INIT(debugCategory, "tarnupmix", 0, "stereo to 3.0 and 5.1");
    auto* const objectClass = G_OBJECT_CLASS(ownClass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    installProperties(objectClass);

    auto* const elementClass = GST_ELEMENT_CLASS(ownClass);
    gst_element_class_set_static_metadata(
        elementClass, "Tarn upmix", "Filter/Converter/Audio",
        "Upmixes stereo to 3.0 or 5.1: what sits in the middle moves to the centre; other audio passes untouched",
        "The Tarn authors <maintainers@tarn.invalid>");
    addPad(elementClass, "sink", GST_PAD_SINK, tarn_gst::sinkCaps());
    addPad(elementClass, "src", GST_PAD_SRC, tarn_gst::sourceCaps());
    gst_type_mark_as_plugin_api(modeType(), static_cast<GstPluginAPIFlags>(0));

    GstBaseTransformClass& base = ownClass->base;
    base.transform_caps = transformCaps;
    base.fixate_caps = fixateCaps;
    base.set_caps = setCaps;
    base.propose_allocation = proposeAllocation;
    base.generate_output = generateOutput;
    base.sink_event = sinkEvent;
    base.query = answerQuery;
    base.stop = stop;
}

static void gst_tarn_upmix_init(GstTarnUpmix* self)
{
    new (&self->state) State;
    gst_base_transform_set_prefer_passthrough(&self->base, FALSE); // but for upmixing
}
