// Random sessions with the GStreamer element, as good and as bad pipelines call it: gstreamer_sessions FILE [SESSIONS
// [FIRST_SEED]].
//
// One thread streams: caps, buffers of any size and time, events, queries and state changes in any order. Another
// thread sets and reads properties, asks for the latency and seeks.
// SPDX-License-Identifier: MIT
#include "run_sessions.h"

#include "tests/support/random.h"

#include <unistd.h>

#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <thread>

namespace tests
{

namespace
{

using Caps = std::unique_ptr<GstCaps, void (*)(GstCaps*)>;

Caps capsFrom(const std::string& text)
{
    return {gst_caps_from_string(text.c_str()), [](GstCaps* caps) { gst_caps_unref(caps); }};
}

Caps currentCapsOf(GstPad* pad)
{
    return {gst_pad_get_current_caps(pad), [](GstCaps* caps) {
                if (caps != nullptr) gst_caps_unref(caps);
            }};
}

/// Bytes of a frame of a pad, or 1 if it has no caps with a frame; and the number of channels, or 0.
struct Frame
{
    gsize bytes = 1;
    int channels = 0;
    bool isFloat = false;
};

Frame frameOf(GstPad* pad)
{
    const Caps caps = currentCapsOf(pad);
    GstAudioInfo info{};
    if (caps == nullptr || !gst_audio_info_from_caps(&info, caps.get()) || GST_AUDIO_INFO_BPF(&info) <= 0) return {};
    return {static_cast<gsize>(GST_AUDIO_INFO_BPF(&info)), GST_AUDIO_INFO_CHANNELS(&info),
            GST_AUDIO_INFO_FORMAT(&info) == GST_AUDIO_FORMAT_F32LE};
}

/// Caps of stereo that is upmixed, of audio that passes through, or of what the element refuses.
std::string inputCaps(Random& random)
{
    constexpr const char* kFormats[] = {"S16LE", "S24LE", "S24_32LE", "S32LE", "F32LE"};
    constexpr const char* kRates[] = {"44100", "48000", "96000", "192000"};
    constexpr const char* kOthers[] = {
        "format=S16LE, rate=48000, channels=1, layout=interleaved",
        "format=S16LE, rate=48000, channels=3, channel-mask=(bitmask)0x7, layout=interleaved",
        "format=S32LE, rate=44100, channels=6, channel-mask=(bitmask)0x3f, layout=interleaved",
        "format=F32LE, rate=48000, channels=2, channel-mask=(bitmask)0x30, layout=interleaved",
        "format=S16LE, rate=22050, channels=2, layout=interleaved",
        "format=S16LE, rate=1, channels=64, channel-mask=(bitmask)0, layout=interleaved",
        "format=S16LE, rate=48000, channels=2, layout=non-interleaved",
        "format=F64LE, rate=48000, channels=2, layout=interleaved",
        "format=S16LE, rate=48000, channels=2",
        "format=S16LE, channels=2, layout=interleaved",
        "format=S16LE, rate=0, channels=2, layout=interleaved",
        "format=S16LE, rate=48000, channels=0, layout=interleaved",
        "rate=48000"};
    if (random.chance(4)) return std::string("audio/x-raw, ") + random.oneOf(kOthers);
    if (random.chance(50)) return "audio/x-opus, rate=48000, channels=2";
    return std::string("audio/x-raw, layout=interleaved, channels=2, format=") + random.oneOf(kFormats) +
           ", rate=" + random.oneOf(kRates) + (random.chance(2) ? ", channel-mask=(bitmask)0x3" : "");
}

/// Caps that the host accepts from the element.
const char* outputCaps(Random& random)
{
    constexpr const char* kCaps[] = {"ANY",
                                     "audio/x-raw",
                                     "audio/x-raw, channels=2",
                                     "audio/x-raw, channels=3",
                                     "audio/x-raw, channels=6",
                                     "audio/x-raw, channels=[ 7, 8 ]",
                                     "audio/x-raw, channels={ 2, 3, 6 }, rate=[ 1, 48000 ]",
                                     "audio/x-raw, channels=5",
                                     "EMPTY"};
    return random.oneOf(kCaps);
}

/// Up to a second.
GstClockTime shortTime(Random& random)
{
    return guint64{random.below(1000)} * GST_MSECOND;
}

guint64 absurdNumber(Random& random)
{
    const guint64 numbers[] = {0,
                               1,
                               G_MAXINT64,
                               G_MAXUINT64 - 1,
                               G_MAXUINT64,
                               shortTime(random),
                               (guint64{random.bits()} << 32) | random.bits()};
    return random.oneOf(numbers);
}

/// Sets and reads properties, asks for the latency and seeks, until it is destroyed.
class OtherThread
{
public:
    OtherThread(GstHarness* pads, std::uint64_t seed)
        : harness(pads), random(seed), thread([this] {
              while (!isDone) act();
          })
    {}

    ~OtherThread()
    {
        isDone = true;
        thread.join();
    }

    OtherThread(const OtherThread&) = delete;
    OtherThread& operator=(const OtherThread&) = delete;

private:
    void act()
    {
        GObject* const element = G_OBJECT(harness->element);
        constexpr double kDoubles[] = {-60.0,
                                       -12.0,
                                       0.0,
                                       0.5,
                                       1.0,
                                       6.0,
                                       12.0,
                                       std::numeric_limits<double>::quiet_NaN(),
                                       std::numeric_limits<double>::infinity(),
                                       -1e300};
        constexpr int kIntegers[] = {0, 1, 2, 3, 4, -1, 256};
        switch (random.below(8)) {
        case 0: {
            constexpr const char* kNames[] = {"centre-gain", "width", "surround-gain", "lfe-gain", "make-up-gain"};
            g_object_set(element, random.oneOf(kNames), random.oneOf(kDoubles), nullptr);
            break;
        }
        case 1: {
            constexpr const char* kNames[] = {"mode", "preset", "bass"};
            g_object_set(element, random.oneOf(kNames), random.oneOf(kIntegers), nullptr);
            break;
        }
        case 2: {
            constexpr const char* kNames[] = {"bypass", "limiter", "post-messages"};
            g_object_set(element, random.oneOf(kNames), random.oneOf(kIntegers), nullptr);
            break;
        }
        case 3:
            g_object_set(element, "interval", absurdNumber(random), nullptr);
            break;
        case 4:
            readAll(element);
            break;
        case 5: {
            GstQuery* const query = gst_query_new_latency();
            gst_element_query(harness->element, query);
            gst_query_unref(query);
            break;
        }
        case 6:
            gst_element_send_event(harness->element,
                                   gst_event_new_seek(1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_NONE, GST_SEEK_TYPE_SET,
                                                      random.below(1000), GST_SEEK_TYPE_NONE, -1));
            break;
        default:
            std::this_thread::yield();
        }
    }

    static void readAll(GObject* element)
    {
        guint count = 0;
        GParamSpec** const specs = g_object_class_list_properties(G_OBJECT_GET_CLASS(element), &count);
        for (guint i = 0; i < count; ++i) {
            GValue value = G_VALUE_INIT;
            g_value_init(&value, specs[i]->value_type);
            g_object_get_property(element, specs[i]->name, &value);
            g_value_unset(&value);
        }
        g_free(specs);
    }

    GstHarness* harness;
    Random random;
    std::atomic<bool> isDone = false;
    std::thread thread;
};

/// An element between two pads, and random calls.
class Session
{
public:
    explicit Session(std::uint64_t sessionSeed)
        : seed(sessionSeed), random(sessionSeed), pads(gst_harness_new("tarnupmix")), bus(gst_bus_new())
    {
        gst_element_set_bus(pads->element, bus);
        gst_pad_add_probe(
            pads->sinkpad, GST_PAD_PROBE_TYPE_BUFFER,
            [](GstPad*, GstPadProbeInfo* info, gpointer session) {
                static_cast<Session*>(session)->check(GST_PAD_PROBE_INFO_BUFFER(info));
                return GST_PAD_PROBE_OK;
            },
            this, nullptr);
    }

    ~Session()
    {
        gst_element_set_bus(pads->element, nullptr);
        gst_object_unref(bus);
        gst_harness_teardown(pads);
    }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void play()
    {
        const OtherThread other(pads, seed + 1);
        if (!random.chance(8)) gst_harness_set_sink_caps_str(pads, outputCaps(random));
        if (!random.chance(8)) pushCaps();
        if (!random.chance(8)) pushSegment();
        const std::uint32_t steps = 2 + random.below(25);
        for (std::uint32_t i = 0; i < steps; ++i) step();
    }

private:
    void step()
    {
        switch (random.below(24)) {
        case 0:
            pushCaps();
            break;
        case 1:
            gst_harness_set_sink_caps_str(pads, outputCaps(random));
            break;
        case 2:
            pushSegment();
            break;
        case 3:
            pushEvent();
            break;
        case 4:
            pushUpstreamEvent();
            break;
        case 5:
            query();
            break;
        case 6:
            if (random.chance(3)) changeState();
            break;
        case 7:
            flush();
            break;
        case 8:
            end();
            break;
        default:
            pushBuffer();
        }
        gst_bus_set_flushing(bus, TRUE);
        gst_bus_set_flushing(bus, FALSE);
        while (GstBuffer* const buffer = gst_harness_try_pull(pads)) gst_buffer_unref(buffer);
        while (GstEvent* const event = gst_harness_try_pull_event(pads)) gst_event_unref(event);
        while (GstEvent* const event = gst_harness_try_pull_upstream_event(pads)) gst_event_unref(event);
    }

    void pushCaps() { gst_harness_push_event(pads, gst_event_new_caps(capsFrom(inputCaps(random)).get())); }

    void pushSegment()
    {
        constexpr GstFormat kFormats[] = {GST_FORMAT_TIME, GST_FORMAT_TIME, GST_FORMAT_BYTES, GST_FORMAT_DEFAULT};
        constexpr double kRates[] = {1.0, 1.0, 1.0, -1.0, 0.5, 2.0, 1e-300, 1e300};
        GstSegment segment;
        gst_segment_init(&segment, random.oneOf(kFormats));
        if (random.chance(2)) {
            segment.rate = random.oneOf(kRates);
            segment.start = absurdNumber(random);
            segment.time = absurdNumber(random);
            segment.base = absurdNumber(random);
            segment.stop = absurdNumber(random);
        }
        gst_harness_push_event(pads, gst_event_new_segment(&segment));
    }

    void pushEvent()
    {
        switch (random.below(6)) {
        case 0:
            gst_harness_push_event(pads, gst_event_new_stream_start(std::to_string(random.bits()).c_str()));
            break;
        case 1:
            gst_harness_push_event(pads, gst_event_new_gap(shortTime(random), absurdNumber(random)));
            break;
        case 2:
            gst_harness_push_event(pads, gst_event_new_segment_done(GST_FORMAT_TIME, 0));
            break;
        case 3:
            gst_harness_push_event(pads, gst_event_new_tag(gst_tag_list_new_empty()));
            break;
        default:
            gst_harness_push_event(pads, gst_event_new_custom(random.chance(2) ? GST_EVENT_CUSTOM_DOWNSTREAM
                                                                               : GST_EVENT_CUSTOM_DOWNSTREAM_OOB,
                                                              gst_structure_new_empty("tests")));
        }
    }

    void pushUpstreamEvent()
    {
        switch (random.below(4)) {
        case 0:
            gst_harness_push_upstream_event(pads, gst_event_new_reconfigure());
            break;
        case 1:
            gst_harness_push_upstream_event(pads, gst_event_new_latency(shortTime(random)));
            break;
        case 2:
            gst_harness_push_upstream_event(pads, gst_event_new_qos(GST_QOS_TYPE_UNDERFLOW, random.uniform(),
                                                                    random.below(1000), random.below(1000)));
            break;
        default:
            gst_harness_push_upstream_event(pads, gst_event_new_seek(random.chance(2) ? 1.0 : -1.0, GST_FORMAT_TIME,
                                                                     GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET,
                                                                     random.below(1000), GST_SEEK_TYPE_NONE, -1));
        }
    }

    void query()
    {
        const Caps caps = capsFrom(inputCaps(random));
        GstPad* const pad = random.chance(2) ? pads->srcpad : pads->sinkpad;
        GstQuery* asked = nullptr;
        switch (random.below(7)) {
        case 0:
            asked = gst_query_new_latency();
            break;
        case 1:
            asked = gst_query_new_position(GST_FORMAT_TIME);
            break;
        case 2:
            asked = gst_query_new_duration(GST_FORMAT_DEFAULT);
            break;
        case 3:
            asked = gst_query_new_caps(random.chance(2) ? caps.get() : nullptr);
            break;
        case 4:
            asked = gst_query_new_accept_caps(caps.get());
            break;
        case 5:
            asked = gst_query_new_allocation(random.chance(2) ? caps.get() : nullptr, TRUE);
            break;
        default:
            asked = gst_query_new_drain();
        }
        gst_pad_peer_query(pad, asked);
        gst_query_unref(asked);
    }

    void changeState()
    {
        constexpr GstState kStates[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED};
        isExact = false;
        gst_element_set_state(pads->element, random.oneOf(kStates));
        if (random.chance(4)) pushBuffer();
        gst_element_set_state(pads->element, GST_STATE_PLAYING);
    }

    void flush()
    {
        isExact = false;
        gst_harness_push_event(pads, gst_event_new_flush_start());
        if (random.chance(4)) pushBuffer();
        gst_harness_push_event(pads, gst_event_new_flush_stop(random.chance(2)));
        if (!random.chance(4)) pushSegment();
    }

    /// Ends the stream. Without an error or a flush, the output has the length of the input.
    void end()
    {
        gst_harness_push_event(pads, gst_event_new_eos());
        require(!isExact || outputFrames == inputFrames, "the output has another length than the input");
        flush();
        inputFrames = outputFrames = 0;
        isExact = true;
    }

    void pushBuffer()
    {
        const Frame frame = frameOf(pads->srcpad);
        constexpr gsize kFrames[] = {0, 1, 63, 64, 1000, 4096};
        const gsize frames = random.chance(2) ? random.oneOf(kFrames) : random.below(1500);
        const gsize bytes = frames * frame.bytes + (random.chance(4) ? random.below(12) : 0);
        GstBuffer* const buffer = gst_buffer_new();
        // Memory of exactly this size, in one piece or two.
        const gsize first = random.chance(4) ? random.below(static_cast<std::uint32_t>(bytes) + 1) : bytes;
        if (first > 0) gst_buffer_append_memory(buffer, memoryOf(first));
        if (first < bytes) gst_buffer_append_memory(buffer, memoryOf(bytes - first));
        GST_BUFFER_PTS(buffer) = random.chance(4) ? absurdNumber(random) : nextTime;
        if (random.chance(4)) GST_BUFFER_DURATION(buffer) = absurdNumber(random);
        if (random.chance(4)) GST_BUFFER_OFFSET(buffer) = absurdNumber(random);
        if (random.chance(8)) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        if (random.chance(8)) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_GAP);
        nextTime += gst_util_uint64_scale_round(frames, GST_SECOND, 48000) + random.below(4) * GST_MSECOND;
        // Hosts should not send buffers after caps that the element has refused.
        if (gst_harness_push(pads, buffer) == GST_FLOW_OK && elementsFrame().bytes == frame.bytes) {
            inputFrames += bytes / frame.bytes;
        } else {
            isExact = false;
        }
    }

    GstMemory* memoryOf(gsize bytes)
    {
        auto* const data = static_cast<guint8*>(g_malloc(bytes));
        const std::uint32_t kind = random.below(3);
        for (gsize i = 0; i < bytes; ++i) data[i] = kind == 0 ? 0 : static_cast<guint8>(random.bits() >> 24);
        // Floats of a usual size.
        for (gsize i = 3; kind == 1 && i < bytes; i += 4) data[i] = 0x3e;
        return gst_memory_new_wrapped(GstMemoryFlags{}, data, bytes, 0, bytes, data, g_free);
    }

    /// A frame of the input as the element has accepted it.
    Frame elementsFrame() const
    {
        GstPad* const sink = gst_element_get_static_pad(pads->element, "sink");
        const Frame frame = frameOf(sink);
        gst_object_unref(sink);
        return frame;
    }

    /// Checks a buffer of the output.
    void check(GstBuffer* buffer)
    {
        const Frame frame = frameOf(pads->sinkpad);
        outputFrames += gst_buffer_get_size(buffer) / frame.bytes;
        if (frame.channels == 0) isExact = false; // the host ignored that there are no common caps
        if (elementsFrame().channels != 2 || frame.channels < 3) return;
        GstMapInfo map;
        require(gst_buffer_map(buffer, &map, GST_MAP_READ), "the output is unreadable");
        require(map.size > 0 && map.size % frame.bytes == 0, "the output has part of a frame");
        for (gsize i = 0; frame.isFloat && i < map.size; i += sizeof(float)) {
            float sample = 0.0f;
            std::memcpy(&sample, map.data + i, sizeof sample);
            require(std::abs(sample) <= 1.0f, "a sample is not within full scale");
        }
        gst_buffer_unmap(buffer, &map);
    }

    std::uint64_t seed;
    Random random;
    GstHarness* pads;
    GstBus* bus;
    GstClockTime nextTime = 0;
    gsize inputFrames = 0;
    gsize outputFrames = 0;
    bool isExact = true; ///< whether all frames since the start or the last end have to be in the output
};

/// Warnings are about values that properties refuse; they are expected. A critical message is a misuse of the library.
void stopAtCriticals(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer)
{
    if ((level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR)) != 0)
        failSession((std::string(domain == nullptr ? "" : domain) + ": " + message).c_str());
}

} // namespace

} // namespace tests

int main(int count, char** arguments)
{
    // GLib's own allocator hides leaks. GLib reads the variable before main.
    if (g_getenv("G_SLICE") == nullptr) {
        g_setenv("G_SLICE", "always-malloc", TRUE);
        execv("/proc/self/exe", arguments);
    }
    // Without a registry, and with this plug-in only.
    g_setenv("GST_REGISTRY_DISABLE", "yes", TRUE);
    g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", TRUE);
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    GstPlugin* const plugin = count > 1 ? gst_plugin_load_file(arguments[1], &error) : nullptr;
    if (plugin == nullptr) {
        std::fprintf(stderr, "usage: gstreamer_sessions FILE [SESSIONS [FIRST_SEED]]; %s\n",
                     error == nullptr ? "" : error->message);
        return 64;
    }
    gst_object_unref(plugin);
    g_log_set_default_handler(tests::stopAtCriticals, nullptr);
    tests::runSessions(count, arguments, [](std::uint64_t seed) { tests::Session(seed).play(); });
    gst_deinit();
    return 0;
}
