// The element `tarnupmix`: caps, events, queries and buffers of a GstBaseTransform.
// SPDX-License-Identifier: MIT
#include "tarn_upmix.h"

#include "buffers.h"
#include "errors.h"
#include "properties.h"
#include "upmix_caps.h"

#include <new>
#include <utility>

struct GstTarnUpmixClass
{
    GstBaseTransformClass base;
};

G_DEFINE_TYPE(GstTarnUpmix, gst_tarn_upmix, GST_TYPE_BASE_TRANSFORM)

namespace
{

using namespace tarn_gst;
using zrk_tarn::UpmixStream;

GstBaseTransformClass* parentClass()
{
    return static_cast<GstBaseTransformClass*>(gst_tarn_upmix_parent_class);
}

/// Upmixes the queued buffer, or passes it through.
GstFlowReturn generateOutput(GstBaseTransform* base, GstBuffer** output)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    if (!self->state.stream) return parentClass()->generate_output(base, output);

    *output = nullptr;
    GstBuffer* const input = std::exchange(base->queued_buf, nullptr);
    if (input == nullptr) return GST_FLOW_OK;
    const GstFlowReturn flow = upmixBuffer(self, input, output);
    gst_buffer_unref(input);
    return flow;
}

GstCaps* transformCaps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps, GstCaps* filter)
{
    GstCaps* const transformed = transformedCaps(direction, caps);
    if (filter == nullptr) return transformed;
    GstCaps* const filtered = gst_caps_intersect_full(filter, transformed, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(transformed);
    return filtered;
}

GstCaps* fixateCaps(GstBaseTransform*, GstPadDirection direction, GstCaps*, GstCaps* possible)
{
    return fixatedCaps(direction, possible);
}

/// Replaces the stream, also by none, and tells the pipeline if that changes the latency.
void setStream(GstTarnUpmix* self, std::unique_ptr<UpmixStream> stream, guint64 rateHz, bool isForTwoLoudspeakers)
{
    State& state = stateOf(self);
    state.run = {};
    const GstClockTime latency = stream ? gst_util_uint64_scale_ceil(kLatency, GST_SECOND, rateHz) : 0;
    bool changed = false;
    {
        const ObjectLock lock(self);
        std::swap(state.stream, stream);
        state.isForTwoLoudspeakers = isForTwoLoudspeakers;
        changed = std::exchange(state.latency, latency) != latency;
        applySettings(state);
    }
    if (changed) gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
}

/// Creates the stream for new caps, or none for those that pass through. The tail of the previous stream goes out
/// first, because downstream still has the previous caps.
gboolean setCaps(GstBaseTransform* base, GstCaps* input, GstCaps* output)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    State& state = stateOf(self);
    drainRun(self);
    const bool passesThrough = !isUpmixable(input);
    gst_base_transform_set_passthrough(base, passesThrough);
    if (passesThrough) {
        setStream(self, nullptr, 0, false);
        return TRUE;
    }
    GstAudioInfo from{};
    GstAudioInfo to{};
    if (!gst_audio_info_from_caps(&from, input) || !gst_audio_info_from_caps(&to, output)) return FALSE;
    const zrk_tarn::StreamConfiguration configuration = configurationFor(from, to);
    std::unique_ptr<UpmixStream> stream;
    try {
        stream = std::make_unique<UpmixStream>(configuration);
    } catch (const std::bad_alloc&) { // exceptions must not reach GObject
        outOfMemory(self, "There is not enough memory for the upmix.");
        return FALSE;
    }
    state.rateHz = configuration.sampleRateHz;
    state.inputFrameBytes = static_cast<gsize>(GST_AUDIO_INFO_BPF(&from));
    state.outputChannels = configuration.outputSlots;
    state.outputFrameBytes = static_cast<gsize>(GST_AUDIO_INFO_BPF(&to));
    setStream(self, std::move(stream), state.rateHz, isForTwoLoudspeakers(configuration));
    return TRUE;
}

/// Forwards the allocation query only in pass-through. Downstream never gets buffers that are upmixed.
gboolean proposeAllocation(GstBaseTransform* base, GstQuery* decided, GstQuery* query)
{
    return stateOf(base).stream ? TRUE : parentClass()->propose_allocation(base, decided, query);
}

/// Pushes the tail before an event that ends the run.
gboolean sinkEvent(GstBaseTransform* base, GstEvent* event)
{
    auto* const self = reinterpret_cast<GstTarnUpmix*>(base);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_STOP:
        discardRun(self);
        break;
    case GST_EVENT_SEGMENT: {
        GstSegment segment;
        gst_event_copy_segment(event, &segment);
        segment.position = base->segment.position; // advances with the buffers
        if (!gst_segment_is_equal(&segment, &base->segment)) drainRun(self);
        break;
    }
    case GST_EVENT_STREAM_START:
    case GST_EVENT_GAP:
    case GST_EVENT_SEGMENT_DONE:
    case GST_EVENT_EOS:
        drainRun(self);
        break;
    default:
        break;
    }
    return parentClass()->sink_event(base, event);
}

/// Adds the element's latency to that of the elements upstream.
gboolean answerQuery(GstBaseTransform* base, GstPadDirection direction, GstQuery* query)
{
    if (!parentClass()->query(base, direction, query)) return FALSE;
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY || direction != GST_PAD_SRC) return TRUE;
    gboolean live = FALSE;
    GstClockTime minimum = 0;
    GstClockTime maximum = GST_CLOCK_TIME_NONE;
    gst_query_parse_latency(query, &live, &minimum, &maximum);
    const ObjectLock lock(base);
    const GstClockTime own = stateOf(base).latency;
    gst_query_set_latency(query, live, minimum + own, GST_CLOCK_TIME_IS_VALID(maximum) ? maximum + own : maximum);
    return TRUE;
}

gboolean stop(GstBaseTransform* base)
{
    setStream(reinterpret_cast<GstTarnUpmix*>(base), nullptr, 0, false);
    return TRUE;
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
    initDebugCategory();
    auto* const objectClass = G_OBJECT_CLASS(ownClass);
    objectClass->finalize = finalize;
    installProperties(objectClass);

    auto* const elementClass = GST_ELEMENT_CLASS(ownClass);
    gst_element_class_set_static_metadata(
        elementClass, "Tarn upmix", "Filter/Converter/Audio",
        "Upmixes stereo to 3.0, 5.1 or 7.1, or changes the level of voices in stereo; other audio passes unchanged",
        "The Tarn authors <maintainers@tarn.invalid>");
    addPad(elementClass, "sink", GST_PAD_SINK, sinkCaps());
    addPad(elementClass, "src", GST_PAD_SRC, sourceCaps());

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
    gst_base_transform_set_prefer_passthrough(&self->base, FALSE); // prefers upmixing
}
