#include "host/zrk_tarn_processor.h"
#include "stream/upmix_stream.h"

#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>
#include <gst/controller/gstdirectcontrolbinding.h>
#include <gst/controller/gstinterpolationcontrolsource.h>
#include <gtest/gtest.h>

#if defined __SSE__
#include <xmmintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <thread>
#include <vector>

// GStreamer's element, driven pad by pad: gstreamer_element_test PLUGIN_FILE [GOOGLETEST_OPTION...]

namespace
{

bool memoryIsOut = false;

} // namespace

/// Memory of engines, the only objects that need more than the usual alignment.
void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* const memory = memoryIsOut ? nullptr : std::aligned_alloc(static_cast<std::size_t>(alignment), size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

namespace
{

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kLatency = zrk_tarn::UpmixStream::latencyFrames();
constexpr std::size_t kEngineDelay = zrk_tarn_processor_t::kDelayFrames;
constexpr int kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};

/// An integer format that the engine reads and writes as it is.
struct Format
{
    const char* name;
    std::uint32_t bits;
};
constexpr Format kS16{"S16LE", 16};
constexpr Format kS24{"S24LE", 24};
constexpr Format kS32{"S32LE", 32};

// --- What goes in and has to come out --------------------------------------------------------------------------------

/// Stereo with a place that travels and some noise, of any width.
Bytes stereoOf(std::size_t frames, const Format& format, std::uint32_t seed = 1)
{
    Bytes bytes;
    for (std::size_t i = 0; i < frames; ++i) {
        const auto time = static_cast<double>(i + 1000 * seed);
        const double place = 0.5 + 0.5 * std::sin(time / 700);
        for (const double gain : {place, 1 - place}) {
            seed = seed * 1664525u + 1013904223u;
            const double noise = static_cast<double>(seed >> 8) * 0x1p-24 - 0.5;
            const double value = 0.5 * gain * std::sin(0.11 * time) + 0.2 * std::sin(0.031 * time) + 0.05 * noise;
            const auto sample =
                static_cast<std::int64_t>(std::lround(std::ldexp(value, static_cast<int>(format.bits) - 1)));
            for (std::uint32_t bit = 0; bit < format.bits; bit += 8)
                bytes.push_back(static_cast<std::uint8_t>(sample >> bit));
        }
    }
    return bytes;
}

/// What the host object makes of stereo in one call, aligned with it and as long.
Bytes upmixOf(std::span<const std::uint8_t> stereo, const Format& format, int rateHz, std::size_t channels = 3)
{
    const std::size_t bytes = format.bits / 8;
    const std::size_t frames = stereo.size() / (2 * bytes);
    Bytes buffer((frames + kEngineDelay) * channels * bytes);
    for (std::size_t i = 0; i < frames; ++i)
        std::copy_n(&stereo[i * 2 * bytes], 2 * bytes, &buffer[i * channels * bytes]);
    zrk_tarn_processor_t processor;
    audio_channel_assignment_t slots{{audio_channel_assignment_t::kLeft, audio_channel_assignment_t::kRight,
                                      audio_channel_assignment_t::kCentre, 0, 0, 0, 0, 0}};
    processor.process(buffer.data(), static_cast<std::uint32_t>(frames + kEngineDelay),
                      static_cast<std::uint32_t>(channels), static_cast<std::uint32_t>(rateHz), format.bits, &slots);
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(kEngineDelay * channels * bytes));
    return buffer;
}

/// Stereo with silence in a third slot.
Bytes widenedOf(const Bytes& stereo, const Format& format)
{
    const std::size_t pair = format.bits / 4;
    Bytes wide;
    for (std::size_t i = 0; i < stereo.size(); i += pair) {
        wide.insert(wide.end(), stereo.begin() + static_cast<std::ptrdiff_t>(i),
                    stereo.begin() + static_cast<std::ptrdiff_t>(i + pair));
        wide.insert(wide.end(), pair / 2, 0);
    }
    return wide;
}

std::string capsOf(const Format& format, int rateHz)
{
    return std::string("audio/x-raw, layout=interleaved, format=") + format.name + ", rate=" + std::to_string(rateHz) +
           ", channels=2, channel-mask=(bitmask)0x3";
}

GstClockTime timeOf(std::size_t frame, int rateHz)
{
    return gst_util_uint64_scale_round(frame, GST_SECOND, static_cast<guint64>(rateHz));
}

// --- The element in its harness --------------------------------------------------------------------------------------

/// A buffer that came out.
struct Piece
{
    Bytes bytes;
    GstClockTime pts;
    GstClockTime duration;
    guint64 offset;
    guint64 offsetEnd;
    bool discontinuous;
};

/// An element between two pads of the test's.
class Element
{
public:
    explicit Element(const std::string& caps = capsOf(kS16, 48000), const char* outputCaps = nullptr)
        : harness_(gst_harness_new("tarnupmix"))
    {
        bus_ = gst_bus_new();
        gst_element_set_bus(harness_->element, bus_);
        if (outputCaps != nullptr) gst_harness_set_sink_caps_str(harness_, outputCaps);
        setCaps(caps);
    }
    ~Element()
    {
        gst_element_set_bus(harness_->element, nullptr);
        gst_object_unref(bus_);
        gst_harness_teardown(harness_);
    }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    GstHarness* harness() const { return harness_; }
    GstElement* element() const { return harness_->element; }

    void setCaps(const std::string& caps) { gst_harness_set_src_caps_str(harness_, caps.c_str()); }

    /// Hands a buffer over.
    GstFlowReturn push(std::span<const std::uint8_t> bytes, GstClockTime pts, bool discontinuous = false,
                       guint64 offset = GST_BUFFER_OFFSET_NONE)
    {
        GstBuffer* const buffer = bytes.empty() ? gst_buffer_new() : gst_buffer_new_memdup(bytes.data(), bytes.size());
        GST_BUFFER_PTS(buffer) = pts;
        GST_BUFFER_OFFSET(buffer) = offset;
        if (discontinuous) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        return gst_harness_push(harness_, buffer);
    }

    /// Hands stereo over in buffers of sizes that repeat, with time stamps and offsets from a frame on.
    void pushAll(const Bytes& stereo, const Format& format, int rateHz, const std::vector<std::size_t>& sizes = {1024},
                 std::size_t firstFrame = 0)
    {
        const std::size_t frameBytes = format.bits / 4;
        const std::size_t frames = stereo.size() / frameBytes;
        for (std::size_t done = 0, i = 0; done < frames; ++i) {
            const std::size_t some = std::min(frames - done, sizes[i % sizes.size()]);
            const std::span piece(stereo.data() + done * frameBytes, some * frameBytes);
            ASSERT_EQ(push(piece, timeOf(firstFrame + done, rateHz), false, firstFrame + done), GST_FLOW_OK);
            done += some;
        }
    }

    void event(GstEvent* event) { EXPECT_TRUE(gst_harness_push_event(harness_, event)); }
    void end() { event(gst_event_new_eos()); }

    /// All buffers that have come out since the last time.
    std::vector<Piece> pieces()
    {
        std::vector<Piece> all;
        while (GstBuffer* const buffer = gst_harness_try_pull(harness_)) {
            GstMapInfo map;
            gst_buffer_map(buffer, &map, GST_MAP_READ);
            all.push_back({Bytes(map.data, map.data + map.size), GST_BUFFER_PTS(buffer), GST_BUFFER_DURATION(buffer),
                           GST_BUFFER_OFFSET(buffer), GST_BUFFER_OFFSET_END(buffer),
                           GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT) != FALSE});
            gst_buffer_unmap(buffer, &map);
            gst_buffer_unref(buffer);
        }
        return all;
    }

    /// Their bytes.
    Bytes output();

    /// The mask of the output's caps; 0 for none.
    guint64 outputMask() const
    {
        guint64 mask = 0;
        GstCaps* const caps = gst_pad_get_current_caps(harness_->sinkpad);
        gst_structure_get(gst_caps_get_structure(caps, 0), "channel-mask", GST_TYPE_BITMASK, &mask, nullptr);
        gst_caps_unref(caps);
        return mask;
    }

    /// Takes the next message of a type off the bus; null if there is none.
    GstMessage* message(GstMessageType type) { return gst_bus_pop_filtered(bus_, type); }

    /// Takes the messages of a type that have come.
    int countMessages(GstMessageType type)
    {
        int count = 0;
        for (; GstMessage* const one = message(type); ++count) gst_message_unref(one);
        return count;
    }

private:
    GstHarness* harness_;
    GstBus* bus_;
};

/// Expects buffers without gaps, whose times and offsets are those of frames from one on.
void expectTimes(const std::vector<Piece>& pieces, std::size_t frame, std::size_t frameBytes, int rateHz)
{
    const std::size_t first = frame;
    const auto due = [&](std::size_t at) { return timeOf(first, rateHz) + timeOf(at - first, rateHz); };
    for (const Piece& piece : pieces) {
        const std::size_t end = frame + piece.bytes.size() / frameBytes;
        EXPECT_EQ(piece.pts, due(frame));
        EXPECT_EQ(piece.pts + piece.duration, due(end));
        EXPECT_EQ(piece.offset, frame);
        EXPECT_EQ(piece.offsetEnd, end);
        EXPECT_EQ(piece.discontinuous, frame == first);
        frame = end;
    }
}

/// The bytes of pieces.
Bytes bytesOf(const std::vector<Piece>& pieces)
{
    Bytes all;
    for (const Piece& piece : pieces) all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    return all;
}

Bytes Element::output()
{
    return bytesOf(pieces());
}

GstSegment segmentAt(GstClockTime start)
{
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.position = segment.time = start;
    return segment;
}

// --- The signal ------------------------------------------------------------------------------------------------------

TEST(Element, GivesTheHostObjectsBytesAtEveryRateAndWidth)
{
    for (const Format& format : {kS16, kS24, kS32})
        for (const int rateHz : kRatesHz) {
            SCOPED_TRACE(std::string(format.name) + " at " + std::to_string(rateHz));
            const Bytes stereo = stereoOf(3000, format);
            Element element(capsOf(format, rateHz));
            element.pushAll(stereo, format, rateHz);
            element.end();
            EXPECT_TRUE(element.output() == upmixOf(stereo, format, rateHz));
        }
}

TEST(Element, TakesBuffersOfAnySizeAndKeepsTimeAndLength)
{
    const Bytes stereo = stereoOf(9001, kS24);
    for (const std::vector<std::size_t>& sizes :
         {std::vector<std::size_t>{1, 37, 64, 100, 1023}, {37}, {1024}, {4801, 3}, {9001}}) {
        Element element(capsOf(kS24, 44100));
        element.pushAll(stereo, kS24, 44100, sizes, 500);
        element.end();
        const std::vector<Piece> pieces = element.pieces();
        expectTimes(pieces, 500, 9, 44100);
        Bytes output;
        for (const Piece& piece : pieces) {
            EXPECT_FALSE(piece.bytes.empty());
            output.insert(output.end(), piece.bytes.begin(), piece.bytes.end());
        }
        EXPECT_TRUE(output == upmixOf(stereo, kS24, 44100));
    }
}

TEST(Element, DrainsStreamsThatAreShorterThanTheLatency)
{
    for (const std::size_t frames : {std::size_t{1}, std::size_t{63}, kLatency - 1, kLatency, kLatency + 1}) {
        const Bytes stereo = stereoOf(frames, kS16);
        Element element;
        element.pushAll(stereo, kS16, 48000, {frames});
        EXPECT_EQ(element.pieces().size(), frames > kLatency ? 1 : 0);
        Element another;
        another.pushAll(stereo, kS16, 48000, {frames});
        another.end();
        EXPECT_TRUE(another.output() == upmixOf(stereo, kS16, 48000)) << frames;
    }
    Element empty;
    empty.end();
    EXPECT_TRUE(empty.pieces().empty());
}

TEST(Element, BuffersWithoutAWholeFrameAreNoSound)
{
    const Bytes stereo = stereoOf(4000, kS16);
    Element element;
    element.push({}, 0);
    for (std::size_t i = 0; i < 4000; i += 500) {
        element.push(std::span(stereo).subspan(4 * i, 4 * 500), timeOf(i, 48000));
        element.push({}, timeOf(i + 500, 48000), true);
        element.push(std::span(stereo).subspan(0, 3), timeOf(i + 500, 48000));
    }
    element.end();
    EXPECT_TRUE(element.output() == upmixOf(stereo, kS16, 48000));
}

TEST(Element, TwoDoNotDisturbEachOther)
{
    const Bytes first = stereoOf(5000, kS16, 1);
    const Bytes second = stereoOf(5000, kS32, 2);
    Element one;
    Element two(capsOf(kS32, 96000), "audio/x-raw, channels=6");
    for (std::size_t i = 0; i < 5000; i += 250) {
        one.push(std::span(first).subspan(4 * i, 4 * 250), timeOf(i, 48000));
        two.push(std::span(second).subspan(8 * i, 8 * 250), timeOf(i, 96000));
    }
    two.end();
    one.end();
    EXPECT_TRUE(one.output() == upmixOf(first, kS16, 48000));
    EXPECT_TRUE(two.output() == upmixOf(second, kS32, 96000, 6));
}

#if defined __SSE__
TEST(Element, GivesTheSameBytesOnAThreadThatFlushesToZeroAndRoundsUp)
{
    Bytes stereo = stereoOf(2000, kS32);
    stereo.resize(stereo.size() + 8 * 20000); // silence, in which filters ring down to subnormal numbers
    Element element(capsOf(kS32, 48000));
    std::thread([&] {
        constexpr unsigned kFlushZeroRoundUp = 0x8040 | 0x4000;
        _mm_setcsr(_mm_getcsr() | kFlushZeroRoundUp);
        volatile float tiny = 1e-38f;
        ASSERT_EQ(tiny * 0.01f, 0.0f); // it does flush
        element.pushAll(stereo, kS32, 48000);
        element.end();
        EXPECT_EQ(tiny * 0.01f, 0.0f);
        EXPECT_EQ(_mm_getcsr() & kFlushZeroRoundUp, kFlushZeroRoundUp);
    }).join();
    EXPECT_TRUE(element.output() == upmixOf(stereo, kS32, 48000));
}
#endif

TEST(Element, FloatsAreThoseOfTheStream)
{
    std::vector<float> stereo;
    for (std::size_t i = 0; i < 2 * 3000; ++i) stereo.push_back(0.4f * std::sin(0.01f * static_cast<float>(i)));
    zrk_tarn::UpmixStream stream({});
    std::vector<float> expected(3 * (3000 + kLatency));
    stream.process(stereo.data(), expected.data(), 3000);
    EXPECT_EQ(stream.drain(expected.data() + std::size_t{3} * 3000, kLatency), kLatency);

    Element element(capsOf({"F32LE", 32}, 48000));
    Bytes bytes(stereo.size() * sizeof(float));
    std::memcpy(bytes.data(), stereo.data(), bytes.size());
    element.pushAll(bytes, {"F32LE", 32}, 48000, {333});
    element.end();
    const Bytes output = element.output();
    ASSERT_EQ(output.size(), 3 * 3000 * sizeof(float));
    EXPECT_EQ(std::memcmp(output.data(), expected.data() + 3 * kLatency, output.size()), 0);
}

// --- Caps ------------------------------------------------------------------------------------------------------------

TEST(Caps, AreThreeChannelsUnlessDownstreamWantsSix)
{
    Element element;
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);

    const Bytes stereo = stereoOf(3000, kS24);
    Element wide(capsOf(kS24, 48000), "audio/x-raw, channels=[ 4, 8 ]");
    wide.pushAll(stereo, kS24, 48000);
    wide.end();
    EXPECT_EQ(wide.outputMask(), 0x3f);
    EXPECT_TRUE(wide.output() == upmixOf(stereo, kS24, 48000, 6)); // LFE, RL and RR are silent
}

TEST(Caps, UpmixComesBeforeStereoAndThreeChannelsBeforeSix)
{
    Element element(capsOf(kS16, 48000), "audio/x-raw, channels=2; audio/x-raw, channels=6; audio/x-raw, channels=3");
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);
}

TEST(Caps, UpmixComesBeforeTheStereoThatAConverterPrefers)
{
    GstHarness* const harness = gst_harness_new_parse("tarnupmix ! audioconvert");
    gst_harness_set_sink_caps_str(harness, "audio/x-raw, channels=2, format=S16LE");
    gst_harness_set_src_caps_str(harness, capsOf(kS16, 48000).c_str());
    GstElement* const element = gst_harness_find_element(harness, "tarnupmix");
    GstPad* const pad = gst_element_get_static_pad(element, "src");
    GstCaps* const caps = gst_pad_get_current_caps(pad);
    int channels = 0;
    EXPECT_TRUE(gst_structure_get_int(gst_caps_get_structure(caps, 0), "channels", &channels));
    EXPECT_EQ(channels, 3);
    gst_caps_unref(caps);
    gst_object_unref(pad);
    gst_object_unref(element);
    gst_harness_teardown(harness);
}

TEST(Caps, StereoIsWhatASourceIsAskedForFirst)
{
    GstHarness* const harness = gst_harness_new("tarnupmix");
    GstCaps* const any = gst_caps_from_string("audio/x-raw, format={ S16LE, F64LE }, rate=[ 1, 192000 ], "
                                              "channels=[ 1, 8 ], layout=interleaved");
    GstCaps* const wanted = gst_pad_peer_query_caps(harness->srcpad, any);
    int channels = 0;
    EXPECT_TRUE(gst_structure_get_int(gst_caps_get_structure(wanted, 0), "channels", &channels));
    EXPECT_EQ(channels, 2);
    gst_caps_unref(wanted);
    gst_caps_unref(any);
    gst_harness_teardown(harness);
}

TEST(Caps, StereoWithoutAMaskIsFrontLeftAndFrontRight)
{
    Element element("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=2");
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);
}

TEST(Caps, ChangeWhileRunningAfterTheOldStreamsTail)
{
    Element element(capsOf(kS16, 44100));
    Bytes expected;
    const auto add = [&](const Format& format, int rateHz, std::uint32_t seed) {
        const Bytes stereo = stereoOf(3333, format, seed);
        element.setCaps(capsOf(format, rateHz));
        element.pushAll(stereo, format, rateHz, {100, 37});
        const Bytes upmix = upmixOf(stereo, format, rateHz);
        expected.insert(expected.end(), upmix.begin(), upmix.end());
    };
    add(kS16, 44100, 1);
    add(kS16, 48000, 2);
    add(kS24, 96000, 3);
    add(kS32, 96000, 4);
    add(kS16, 44100, 5);
    // Each caps event comes when all frames of the stream before are out: they are counted at the caps.
    element.end();
    EXPECT_TRUE(element.output() == expected);
}

TEST(Caps, TailsAreUnderTheirOwnCaps)
{
    Element element(capsOf(kS16, 44100));
    element.pushAll(stereoOf(3000, kS16), kS16, 44100);
    // What the test's pad has seen, in the order in which it came: bytes per caps.
    struct Seen
    {
        int rateHz = 0;
        std::size_t bytes[2] = {};
    } seen;
    gst_pad_add_probe(
        element.harness()->sinkpad,
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_BUFFER),
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            auto& [rateHz, bytes] = *static_cast<Seen*>(data);
            if (GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
                (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) == 0) {
                GstCaps* caps = nullptr;
                if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return GST_PAD_PROBE_OK;
                gst_event_parse_caps(event, &caps);
                gst_structure_get_int(gst_caps_get_structure(caps, 0), "rate", &rateHz);
            } else {
                bytes[rateHz == 0 ? 0 : 1] += gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info));
            }
            return GST_PAD_PROBE_OK;
        },
        &seen, nullptr);
    element.setCaps(capsOf(kS16, 48000));
    EXPECT_EQ(seen.bytes[0], kLatency * 6);
    EXPECT_EQ(seen.rateHz, 48000);
    element.pushAll(stereoOf(3000, kS16), kS16, 48000);
    element.end();
    EXPECT_EQ(seen.bytes[0], kLatency * 6);
    EXPECT_EQ(seen.bytes[1], std::size_t{3000} * 6);
}

TEST(Caps, DownstreamMayChangeItsMind)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(3000, kS16, 2);
    Element element;
    element.pushAll(first, kS16, 48000);
    gst_harness_set_sink_caps_str(element.harness(), "audio/x-raw, channels=6");
    gst_harness_push_upstream_event(element.harness(), gst_event_new_reconfigure());
    element.pushAll(second, kS16, 48000, {1024}, 3000);
    element.end();
    Bytes expected = upmixOf(first, kS16, 48000);
    const Bytes rest = upmixOf(second, kS16, 48000, 6);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_TRUE(element.output() == expected);
    EXPECT_EQ(element.outputMask(), 0x3f);
}

TEST(Caps, AskingAgainWithoutAChangeIsNotHeard)
{
    const Bytes stereo = stereoOf(6000, kS16);
    const auto middle = stereo.begin() + 4 * 3000;
    Element element;
    element.pushAll(Bytes(stereo.begin(), middle), kS16, 48000);
    gst_harness_push_upstream_event(element.harness(), gst_event_new_reconfigure());
    element.pushAll(Bytes(middle, stereo.end()), kS16, 48000, {1024}, 3000);
    element.end();
    const std::vector<Piece> pieces = element.pieces();
    expectTimes(pieces, 0, 6, 48000);
    EXPECT_TRUE(bytesOf(pieces) == upmixOf(stereo, kS16, 48000));
}

TEST(Caps, EverythingButStereoPassesUntouched)
{
    for (const char* const caps : {
             "audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=1",
             "audio/x-raw, layout=interleaved, format=F64LE, rate=48000, channels=1",
             "audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=3, channel-mask=(bitmask)0x7",
             "audio/x-raw, layout=interleaved, format=F32LE, rate=48000, channels=6, channel-mask=(bitmask)0x3f",
             "audio/x-raw, layout=interleaved, format=S24BE, rate=11025, channels=8, channel-mask=(bitmask)0xc3f",
             "audio/x-raw, layout=interleaved, format=S16LE, rate=22050, channels=2, channel-mask=(bitmask)0x3",
             "audio/x-raw, layout=interleaved, format=F32LE, rate=384000, channels=2, channel-mask=(bitmask)0x3",
             "audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=2, channel-mask=(bitmask)0xc00",
         }) {
        SCOPED_TRACE(caps);
        Element element(caps);
        const Bytes bytes = stereoOf(480, kS24);
        GstBuffer* const buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
        GST_BUFFER_PTS(buffer) = 0;
        ASSERT_EQ(gst_harness_push(element.harness(), buffer), GST_FLOW_OK);
        GstBuffer* const same = gst_harness_try_pull(element.harness());
        EXPECT_EQ(same, buffer); // not even a copy
        EXPECT_EQ(gst_buffer_memcmp(same, 0, bytes.data(), bytes.size()), 0);
        gst_buffer_unref(same);
        GstCaps* const expected = gst_caps_from_string(caps);
        GstCaps* const current = gst_pad_get_current_caps(element.harness()->sinkpad);
        EXPECT_TRUE(gst_caps_is_equal(expected, current));
        gst_caps_unref(expected);
        gst_caps_unref(current);
        EXPECT_EQ(gst_harness_query_latency(element.harness()), 0);
        element.end();
        EXPECT_TRUE(element.pieces().empty());
    }
}

TEST(Caps, StereoPassesWhereDownstreamTakesNothingElse)
{
    const Bytes stereo = stereoOf(2000, kS16);
    Element element(capsOf(kS16, 48000), "audio/x-raw, channels=2");
    element.pushAll(stereo, kS16, 48000);
    EXPECT_TRUE(element.output() == stereo);

    // Also where only one side says that it is front left and front right.
    Element masked("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=2",
                   "audio/x-raw, channels=2, channel-mask=(bitmask)0x3");
    masked.pushAll(stereo, kS16, 48000);
    EXPECT_TRUE(masked.output() == stereo);
    EXPECT_EQ(gst_harness_query_latency(masked.harness()), 0);
}

TEST(Caps, FilmsMayChangeBetweenStereoAndSurround)
{
    const Bytes stereo = stereoOf(2500, kS16);
    const Bytes surround = stereoOf(3 * 700, kS16, 2);
    Element element;
    element.pushAll(stereo, kS16, 48000);
    element.setCaps("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=6, "
                    "channel-mask=(bitmask)0x3f");
    element.push(surround, timeOf(2500, 48000));
    element.setCaps(capsOf(kS16, 48000));
    element.pushAll(stereo, kS16, 48000, {1024}, 3200);
    element.end();
    Bytes expected = upmixOf(stereo, kS16, 48000);
    const Bytes last = expected;
    expected.insert(expected.end(), surround.begin(), surround.end());
    expected.insert(expected.end(), last.begin(), last.end());
    EXPECT_TRUE(element.output() == expected);
}

TEST(Caps, StereoThatAConverterHasToChangeIsNotTaken)
{
    GstHarness* const harness = gst_harness_new("tarnupmix");
    for (const char* const format : {"F64LE", "S16BE", "U8"})
        for (const int rateHz : {48000, 22050}) {
            GstCaps* const caps = gst_caps_from_string(capsOf({format, 0}, rateHz).c_str());
            EXPECT_FALSE(gst_pad_query_accept_caps(GST_PAD_PEER(harness->srcpad), caps)) << format;
            gst_caps_unref(caps);
        }
    gst_harness_teardown(harness);
}

TEST(Caps, DownstreamHasASayOnlyInBuffersThatPass)
{
    for (const bool passes : {false, true}) {
        const std::string caps = "audio/x-raw, layout=interleaved, format=S16LE, rate=44100, channels=1";
        Element element(passes ? caps : capsOf(kS16, 44100));
        gst_harness_set_propose_allocator(element.harness(), gst_allocator_find(nullptr), nullptr);
        GstCaps* const current = gst_pad_get_current_caps(element.harness()->srcpad);
        GstQuery* const query = gst_query_new_allocation(current, TRUE);
        EXPECT_TRUE(gst_pad_peer_query(element.harness()->srcpad, query));
        EXPECT_EQ(gst_query_get_n_allocation_params(query), passes ? 1 : 0);
        gst_query_unref(query);
        gst_caps_unref(current);
    }
}

// --- Time ------------------------------------------------------------------------------------------------------------

TEST(Time, LatencyIsThatOfUpstreamAnd1024Frames)
{
    for (const int rateHz : kRatesHz) {
        Element element(capsOf(kS16, rateHz));
        gst_harness_set_upstream_latency(element.harness(), 5 * GST_MSECOND);
        const GstClockTime own = gst_util_uint64_scale_ceil(kLatency, GST_SECOND, static_cast<guint64>(rateHz));
        EXPECT_EQ(gst_harness_query_latency(element.harness()), 5 * GST_MSECOND + own);
        EXPECT_EQ(gst_util_uint64_scale(own, static_cast<guint64>(rateHz), GST_SECOND), kLatency);
    }
}

TEST(Time, LatencyIsAddedToTheLeastAndTheMostOfUpstream)
{
    static constexpr GstClockTime kLeast = 5 * GST_MSECOND;
    static GstClockTime most;
    for (const GstClockTime upstream : {GstClockTime{40 * GST_MSECOND}, GST_CLOCK_TIME_NONE}) {
        most = upstream;
        Element element;
        gst_pad_set_query_function(element.harness()->srcpad, [](GstPad* pad, GstObject* parent, GstQuery* query) {
            if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) return gst_pad_query_default(pad, parent, query);
            gst_query_set_latency(query, TRUE, kLeast, most);
            return gboolean{TRUE};
        });
        GstQuery* const query = gst_query_new_latency();
        ASSERT_TRUE(gst_pad_peer_query(element.harness()->sinkpad, query));
        gboolean live = FALSE;
        GstClockTime answeredLeast = 0;
        GstClockTime answeredMost = 0;
        gst_query_parse_latency(query, &live, &answeredLeast, &answeredMost);
        gst_query_unref(query);
        const GstClockTime own = gst_util_uint64_scale_ceil(kLatency, GST_SECOND, 48000);
        EXPECT_TRUE(live);
        EXPECT_EQ(answeredLeast, kLeast + own);
        EXPECT_EQ(answeredMost, upstream == GST_CLOCK_TIME_NONE ? upstream : upstream + own);
    }
}

TEST(Time, PipelineHearsOfAnotherLatency)
{
    Element element(capsOf(kS16, 44100));
    const auto changes = [&] { return element.countMessages(GST_MESSAGE_LATENCY); };
    EXPECT_EQ(changes(), 1);
    element.setCaps(capsOf(kS24, 44100));
    EXPECT_EQ(changes(), 0); // the same
    element.setCaps(capsOf(kS24, 48000));
    EXPECT_EQ(changes(), 1);
    element.setCaps("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=1");
    EXPECT_EQ(changes(), 1); // none while all passes through
}

TEST(Time, FlushForgetsWhatWasOnItsWay)
{
    const Bytes stereo = stereoOf(3000, kS16, 2);
    Element element;
    element.pushAll(stereoOf(3500, kS16, 1), kS16, 48000);
    element.pieces();
    element.event(gst_event_new_flush_start());
    element.event(gst_event_new_flush_stop(TRUE));
    const GstSegment segment = segmentAt(10 * GST_SECOND);
    element.event(gst_event_new_segment(&segment));
    element.pushAll(stereo, kS16, 48000, {1024}, 480000);
    element.end();
    const std::vector<Piece> pieces = element.pieces();
    expectTimes(pieces, 480000, 6, 48000);
    Bytes output;
    for (const Piece& piece : pieces) output.insert(output.end(), piece.bytes.begin(), piece.bytes.end());
    EXPECT_TRUE(output == upmixOf(stereo, kS16, 48000));
}

/// Two runs with something between them: both as of their own, aligned, and the second marked.
void expectTwoRuns(Element& element, std::size_t secondFrame, const Bytes& first, const Bytes& second)
{
    const std::vector<Piece> pieces = element.pieces();
    std::vector<Piece> runs[2];
    Bytes output[2];
    for (const Piece& piece : pieces) {
        const int run = output[0].size() == first.size() / 2 * 3 ? 1 : 0;
        runs[run].push_back(piece);
        output[run].insert(output[run].end(), piece.bytes.begin(), piece.bytes.end());
    }
    expectTimes(runs[0], 0, 6, 48000);
    expectTimes(runs[1], secondFrame, 6, 48000);
    EXPECT_TRUE(output[0] == upmixOf(first, kS16, 48000));
    EXPECT_TRUE(output[1] == upmixOf(second, kS16, 48000));
}

TEST(Time, JumpsEndARunAndBeginAnother)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(3000, kS16, 2);
    struct Jump
    {
        std::size_t frame;
        bool announced;
    };
    for (const auto& [frame, announced] : {Jump{3002, true}, Jump{2998, true}, Jump{100000, true}, Jump{100000, false},
                                           Jump{0, false}, Jump{4501, false}}) {
        SCOPED_TRACE(frame);
        Element element;
        element.pushAll(first, kS16, 48000);
        element.push(std::span(second).subspan(0, 400), timeOf(frame, 48000), announced, frame);
        Bytes rest(second.begin() + 400, second.end());
        element.pushAll(rest, kS16, 48000, {1024}, frame + 100);
        element.end();
        expectTwoRuns(element, frame, first, second);
    }
}

TEST(Time, OffsetsTellOfJumpsWhereThereAreNoTimeStamps)
{
    const Bytes stereo = stereoOf(3000, kS16);
    const Bytes upmix = upmixOf(stereo, kS16, 48000);
    for (const std::size_t second : {std::size_t{3000}, std::size_t{9000}}) {
        Element element;
        element.push(stereo, GST_CLOCK_TIME_NONE, true, 0);
        element.push(stereo, GST_CLOCK_TIME_NONE, true, second);
        element.end();
        const std::vector<Piece> pieces = element.pieces();
        Bytes output;
        for (const Piece& piece : pieces) {
            EXPECT_EQ(piece.pts, GST_CLOCK_TIME_NONE);
            output.insert(output.end(), piece.bytes.begin(), piece.bytes.end());
        }
        EXPECT_EQ(pieces.back().offsetEnd, second + 3000);
        Bytes twice = stereo;
        twice.insert(twice.end(), stereo.begin(), stereo.end());
        Bytes apart = upmix;
        apart.insert(apart.end(), upmix.begin(), upmix.end());
        EXPECT_TRUE(output == (second == 3000 ? upmixOf(twice, kS16, 48000) : apart));
    }
}

TEST(Time, RoundedTimeStampsAreNoJumps)
{
    const Bytes stereo = stereoOf(20000, kS16);
    Element element(capsOf(kS16, 44100));
    for (std::size_t i = 0; i < 20000; i += 100)
        element.push(std::span(stereo).subspan(4 * i, 400), timeOf(i, 44100) / GST_MSECOND * GST_MSECOND, false, i);
    element.end();
    const std::vector<Piece> pieces = element.pieces();
    expectTimes(pieces, 0, 6, 44100); // smooth again
    Bytes output;
    for (const Piece& piece : pieces) output.insert(output.end(), piece.bytes.begin(), piece.bytes.end());
    EXPECT_TRUE(output == upmixOf(stereo, kS16, 44100));
}

TEST(Time, MoreThanA32ndOfASecondIsAJump)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(1024, kS16, 2);
    Bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    for (const int rateHz : {44100, 48000, 192000})
        for (const bool late : {false, true}) {
            const auto most = static_cast<std::size_t>(rateHz) / 32;
            for (const std::size_t by : {most, most + 1}) {
                SCOPED_TRACE(std::to_string(rateHz) + (late ? " late by " : " early by ") + std::to_string(by));
                const std::size_t start = 10000;
                const std::size_t end = start + 3000;
                Element element(capsOf(kS16, rateHz));
                element.pushAll(first, kS16, rateHz, {1024}, start);
                element.push(second, timeOf(late ? end + by : end - by, rateHz));
                element.end();
                const std::vector<Piece> pieces = element.pieces();
                const auto runs = std::ranges::count_if(pieces, &Piece::discontinuous);
                EXPECT_EQ(runs, by == most ? 1 : 2);
                Bytes expected = upmixOf(by == most ? both : first, kS16, rateHz);
                if (by > most) {
                    const Bytes apart = upmixOf(second, kS16, rateHz);
                    expected.insert(expected.end(), apart.begin(), apart.end());
                }
                EXPECT_TRUE(bytesOf(pieces) == expected);
            }
        }
}

/// Buffers without a gap between them.
void expectNoGaps(const std::vector<Piece>& pieces)
{
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        EXPECT_EQ(pieces[i].discontinuous, i == 0);
        EXPECT_EQ(pieces[i].pts, i == 0 ? pieces[i].pts : pieces[i - 1].pts + pieces[i - 1].duration);
    }
}

TEST(Time, ASlowOrFastClockIsFollowedWithoutAJump)
{
    constexpr int kRateHz = 32000;
    constexpr std::size_t kFrames = std::size_t{130} * kRateHz;
    const Bytes stereo = stereoOf(kFrames, kS16);
    const Bytes upmix = upmixOf(stereo, kS16, kRateHz);
    for (const double clock : {1.001, 0.999}) {
        SCOPED_TRACE(clock);
        const auto dueAt = [&](std::size_t frame) {
            return 5 * GST_SECOND + static_cast<GstClockTime>(clock * static_cast<double>(timeOf(frame, kRateHz)));
        };
        Element element(capsOf(kS16, kRateHz));
        for (std::size_t i = 0; i < kFrames; i += 500)
            element.push(std::span(stereo).subspan(4 * i, 4 * 500), dueAt(i), false, i);
        element.event(gst_event_new_gap(dueAt(kFrames), GST_SECOND));
        const std::vector<Piece> pieces = element.pieces();
        expectNoGaps(pieces);
        EXPECT_TRUE(bytesOf(pieces) == upmix);
        for (const Piece& piece : pieces) {
            const GstClockTimeDiff distance = GST_CLOCK_DIFF(dueAt(piece.offset), piece.pts);
            ASSERT_LE(std::abs(distance), 3100 * GST_USECOND) << piece.offset;
            const double stretched = static_cast<double>(piece.duration) / static_cast<double>(timeOf(500, kRateHz));
            ASSERT_NEAR(piece.bytes.size() == 6 * 500 ? stretched : 1.0, 1.0, 0.0011) << piece.offset;
        }
        const std::size_t frame = kFrames + std::size_t{2} * kRateHz; // another run begins at its own time
        element.pushAll(stereoOf(3000, kS16), kS16, kRateHz, {1024}, frame);
        element.end();
        expectTimes(element.pieces(), frame, 6, kRateHz);
    }
}

TEST(Time, SingleBuffersThatAreEarlyOrLateMoveLittle)
{
    const Bytes stereo = stereoOf(480, kS16);
    Element element;
    for (std::size_t i = 0; i < 600; ++i) {
        const GstClockTime due = GST_SECOND + i * 10 * GST_MSECOND;
        element.push(stereo,
                     i % 50 == 25   ? due + 20 * GST_MSECOND
                     : i % 50 == 40 ? due - 20 * GST_MSECOND
                                    : due,
                     false, i * 480);
    }
    element.end();
    const std::vector<Piece> pieces = element.pieces();
    expectNoGaps(pieces);
    for (const Piece& piece : pieces) {
        const GstClockTimeDiff distance = GST_CLOCK_DIFF(GST_SECOND + timeOf(piece.offset, 48000), piece.pts);
        EXPECT_LE(std::abs(distance), 200 * GST_USECOND) << piece.offset;
    }
}

TEST(Time, WhatComesOutFirstIsNeverShortened)
{
    const Bytes stereo = stereoOf(kLatency, kS16);
    Element element;
    element.push(std::span(stereo).subspan(0, 4), GST_SECOND, false, 48000);
    element.push(stereo, GST_SECOND - 20 * GST_MSECOND, false, 48001); // of which one frame comes out
    element.end();
    expectTimes(element.pieces(), 48000, 6, 48000);
}

/// Expects that an event comes out behind the tail of what came before it, or that there is no tail.
void expectTailBefore(GstEvent* event, bool drained = true)
{
    Element element;
    element.pushAll(stereoOf(3000, kS16), kS16, 48000);
    struct Seen
    {
        GstHarness* harness;
        GstEventType type;
        guint buffers; ///< that came before the event
    } seen{element.harness(), GST_EVENT_TYPE(event), 0};
    gst_pad_add_probe(
        element.harness()->sinkpad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            auto& [harness, type, buffers] = *static_cast<Seen*>(data);
            if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == type) buffers = gst_harness_buffers_in_queue(harness);
            return GST_PAD_PROBE_OK;
        },
        &seen, nullptr);
    element.event(event);
    EXPECT_EQ(seen.buffers, drained ? 3 : 2) << gst_event_type_get_name(seen.type); // the first is all latency
}

TEST(Time, TailsComeBeforeWhatEndsThem)
{
    const GstSegment other = segmentAt(GST_SECOND);
    const GstSegment same = segmentAt(0);
    expectTailBefore(gst_event_new_gap(timeOf(3000, 48000), GST_SECOND));
    expectTailBefore(gst_event_new_segment(&other));
    expectTailBefore(gst_event_new_segment(&same), false); // nothing new
    expectTailBefore(gst_event_new_segment_done(GST_FORMAT_TIME, GST_SECOND));
    expectTailBefore(gst_event_new_stream_start("next"));
    expectTailBefore(gst_event_new_eos());
}

TEST(Time, GapEventsAreGaps)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(3000, kS16, 2);
    Element element;
    element.pushAll(first, kS16, 48000);
    element.event(gst_event_new_gap(timeOf(3000, 48000), GST_SECOND));
    element.pushAll(second, kS16, 48000, {1024}, 51000);
    element.end();
    expectTwoRuns(element, 51000, first, second);
}

TEST(Time, ReadyAndBackIsANewBeginning)
{
    const Bytes stereo = stereoOf(3000, kS16);
    Element element;
    element.pushAll(stereoOf(2000, kS16, 3), kS16, 48000);
    ASSERT_EQ(gst_element_set_state(element.element(), GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
    ASSERT_EQ(gst_element_set_state(element.element(), GST_STATE_PLAYING), GST_STATE_CHANGE_SUCCESS);
    element.pieces();
    element.event(gst_event_new_stream_start("again"));
    GstCaps* const caps = gst_caps_from_string(capsOf(kS16, 48000).c_str());
    element.event(gst_event_new_caps(caps));
    gst_caps_unref(caps);
    const GstSegment segment = segmentAt(0);
    element.event(gst_event_new_segment(&segment));
    element.pushAll(stereo, kS16, 48000);
    element.end();
    EXPECT_TRUE(element.output() == upmixOf(stereo, kS16, 48000));
}

// --- Properties ------------------------------------------------------------------------------------------------------

TEST(Properties, HaveDefaultsRangesNicksAndBlurbs)
{
    Element element;
    gboolean bypass = TRUE;
    gboolean posts = TRUE;
    gint mode = -1;
    gdouble gainDb = -1;
    guint64 interval = 0;
    g_object_get(element.element(), "bypass", &bypass, "mode", &mode, "make-up-gain", &gainDb, "post-messages", &posts,
                 "interval", &interval, nullptr);
    EXPECT_FALSE(bypass);
    EXPECT_FALSE(posts);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(gainDb, 0.0);
    EXPECT_EQ(interval, 100 * GST_MSECOND);

    GObjectClass* const object = G_OBJECT_GET_CLASS(element.element());
    for (const char* const name : {"bypass", "mode", "make-up-gain", "post-messages", "interval"}) {
        GParamSpec* const spec = g_object_class_find_property(object, name);
        EXPECT_STRNE(g_param_spec_get_nick(spec), name);
        EXPECT_GT(std::strlen(g_param_spec_get_blurb(spec)), 10);
        EXPECT_NE(spec->flags & GST_PARAM_MUTABLE_PLAYING, 0);
    }
    gst_util_set_object_arg(G_OBJECT(element.element()), "mode", "calm");
    gst_util_set_object_arg(G_OBJECT(element.element()), "make-up-gain", "6.5");
    g_object_get(element.element(), "mode", &mode, "make-up-gain", &gainDb, nullptr);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(gainDb, 6.5);
}

TEST(Properties, BypassFromTheBeginningGivesTheInputAndSilence)
{
    const Bytes stereo = stereoOf(3000, kS24);
    Element element(capsOf(kS24, 48000));
    g_object_set(element.element(), "bypass", TRUE, nullptr);
    element.pushAll(stereo, kS24, 48000);
    element.end();
    EXPECT_TRUE(element.output() == widenedOf(stereo, kS24));
}

TEST(Properties, ChangesReachTheRunningStreamAndOutliveIt)
{
    const Bytes stereo = stereoOf(8000, kS16);
    zrk_tarn::StreamConfiguration configuration;
    configuration.format = zrk_tarn::SampleFormat::S16;
    zrk_tarn::UpmixStream stream(configuration);
    Bytes expected(6 * (8000 + kLatency));
    Element element;
    const auto half = [&](std::size_t begin, std::size_t end) {
        stream.process(&stereo[4 * begin], &expected[6 * begin], end - begin);
        element.push(std::span(stereo).subspan(4 * begin, 4 * (end - begin)), timeOf(begin, 48000));
    };
    half(0, 2000);
    g_object_set(element.element(), "make-up-gain", -6.0, "mode", 1, nullptr);
    stream.setMakeUpGain(static_cast<float>(std::pow(10.0, -0.3)));
    stream.setMode(zrk_tarn::SteeringMode::Calm);
    half(2000, 5000);
    g_object_set(element.element(), "bypass", TRUE, nullptr);
    stream.setBypass(true);
    half(5000, 8000);
    stream.drain(&expected[std::size_t{6} * 8000], kLatency);
    element.end();
    expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(6 * kLatency));
    EXPECT_TRUE(element.output() == expected);

    Element another; // made before the caps are known
    g_object_set(another.element(), "bypass", TRUE, nullptr);
    another.setCaps(capsOf(kS24, 96000));
    const Bytes next = stereoOf(2000, kS24);
    another.pushAll(next, kS24, 96000);
    another.end();
    EXPECT_TRUE(another.output() == widenedOf(next, kS24));
}

TEST(Properties, CanBeChangedByAnyThreadWhileStreamsComeAndGo)
{
    Element element;
    std::atomic<bool> done = false;
    std::thread controls([&] {
        for (int i = 0; !done; ++i) {
            g_object_set(element.element(), "bypass", i % 2, "mode", i % 3 == 0 ? 1 : 0, "make-up-gain", -10.0 + i % 20,
                         "post-messages", i % 5 == 0, "interval", (1 + i % 7) * GST_MSECOND, nullptr);
            gdouble gainDb = 0;
            g_object_get(element.element(), "make-up-gain", &gainDb, nullptr);
            EXPECT_EQ(gainDb, -10.0 + i % 20);
            gst_harness_query_latency(element.harness());
        }
    });
    std::size_t bytes = 0;
    std::size_t expected = 0;
    for (std::uint32_t i = 0; i < 10; ++i) {
        const int rateHz = kRatesHz[i % std::size(kRatesHz)];
        element.setCaps(capsOf(kS16, rateHz));
        element.pushAll(stereoOf(2000, kS16), kS16, rateHz, {480});
        expected += 2000 * 6;
        bytes += element.output().size();
    }
    element.end();
    bytes += element.output().size();
    done = true;
    controls.join();
    EXPECT_EQ(bytes, expected);
}

TEST(Properties, FollowControlSources)
{
    Element element;
    GstControlSource* const source = gst_interpolation_control_source_new();
    g_object_set(source, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), 0, -10.0);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), GST_SECOND, 10.0);
    gst_object_add_control_binding(
        GST_OBJECT(element.element()),
        gst_direct_control_binding_new_absolute(GST_OBJECT(element.element()), "make-up-gain", source));
    gst_object_unref(source);
    for (const std::size_t frame : {std::size_t{0}, std::size_t{12000}, std::size_t{24000}, std::size_t{36000}}) {
        element.push(stereoOf(480, kS16), timeOf(frame, 48000));
        gdouble gainDb = 0;
        g_object_get(element.element(), "make-up-gain", &gainDb, nullptr);
        EXPECT_EQ(gainDb, -10.0 + 20.0 * static_cast<double>(frame) / 48000);
    }
}

// --- Messages --------------------------------------------------------------------------------------------------------

guint listSize(const GstStructure* structure, const char* name)
{
    const GValue* const list = gst_structure_get_value(structure, name);
    return list != nullptr && GST_VALUE_HOLDS_ARRAY(list) ? gst_value_array_get_size(list) : 0;
}

double listItem(const GstStructure* structure, const char* name, guint i)
{
    return g_value_get_double(gst_value_array_get_value(gst_structure_get_value(structure, name), i));
}

TEST(Messages, ComeAtTheIntervalWhereTheyAreWanted)
{
    constexpr std::size_t kFrames = 24000;
    Bytes stereo; // the same tone on both sides: it belongs to the centre
    for (std::size_t i = 0; i < kFrames; ++i)
        for (int side = 0; side < 2; ++side) {
            const auto sample =
                static_cast<std::int16_t>(std::lround(16384.0 * std::sin(0.1 * static_cast<double>(i))));
            stereo.push_back(static_cast<std::uint8_t>(sample));
            stereo.push_back(static_cast<std::uint8_t>(sample >> 8));
        }
    for (const std::size_t size : {std::size_t{100}, std::size_t{1024}, kFrames}) {
        Element element;
        g_object_set(element.element(), "post-messages", TRUE, "interval", 50 * GST_MSECOND, nullptr);
        element.pushAll(stereo, kS16, 48000, {size});
        element.end();
        std::size_t count = 0;
        while (GstMessage* const message = element.message(GST_MESSAGE_ELEMENT)) {
            const GstStructure* const structure = gst_message_get_structure(message);
            EXPECT_STREQ(gst_structure_get_name(structure), "tarnupmix");
            for (const char* const name : {"timestamp", "stream-time", "running-time"}) {
                guint64 time = 0;
                EXPECT_TRUE(gst_structure_get_uint64(structure, name, &time));
                EXPECT_EQ(time, count * 50 * GST_MSECOND) << name;
            }
            guint64 duration = 0;
            GstClockTime end = 0;
            EXPECT_TRUE(gst_structure_get_uint64(structure, "duration", &duration));
            EXPECT_TRUE(gst_structure_get_clock_time(structure, "endtime", &end));
            EXPECT_EQ(duration, 50 * GST_MSECOND);
            EXPECT_EQ(end, (count + 1) * 50 * GST_MSECOND);
            EXPECT_EQ(listSize(structure, "peak"), 3);
            EXPECT_EQ(listSize(structure, "rms"), 3);
            for (const char* const name : {"left-right", "front-back", "speed"})
                EXPECT_EQ(listSize(structure, name), 16) << name;
            if (count == 8) {
                EXPECT_NEAR(listItem(structure, "peak", 2), -6.0, 0.5); // half of full scale, in the centre
                EXPECT_LT(listItem(structure, "rms", 0), -40.0);
                EXPECT_NEAR(listItem(structure, "rms", 2), -9.0, 1.5);
                guint64 blocks = 0;
                EXPECT_TRUE(gst_structure_get_uint64(structure, "blocks", &blocks));
                EXPECT_EQ(blocks, (9 * 2400 + kLatency) / 64);
            }
            gst_message_unref(message);
            ++count;
        }
        EXPECT_EQ(count, kFrames / 2400);
    }
    Element silent;
    silent.pushAll(stereo, kS16, 48000);
    EXPECT_EQ(silent.message(GST_MESSAGE_ELEMENT), nullptr);
}

/// The message's number of that name.
guint64 numberOf(const GstStructure* structure, const char* name)
{
    guint64 number = 0;
    EXPECT_TRUE(gst_structure_get_uint64(structure, name, &number)) << name;
    return number;
}

TEST(Messages, SayWhatTheStreamsMetersSay)
{
    constexpr std::size_t kFrames = 48000;
    constexpr std::size_t kInterval = 2400;
    constexpr std::size_t kFirst = 13 * 4800; // 1.3 s
    constexpr double kGainDb = 18.0;
    std::vector<float> stereo;
    const Bytes integers = stereoOf(kFrames, kS16);
    for (std::size_t i = 0; i < integers.size(); i += 2)
        stereo.push_back(static_cast<float>(static_cast<std::int16_t>(integers[i] | integers[i + 1] << 8)) / 32768.0f);
    stereo[20000] = std::nanf("");
    Bytes bytes(stereo.size() * sizeof(float));
    std::memcpy(bytes.data(), stereo.data(), bytes.size());

    constexpr Format kF32{"F32LE", 32};
    Element element(capsOf(kF32, 48000));
    g_object_set(element.element(), "post-messages", TRUE, "interval", 50 * GST_MSECOND, "make-up-gain", kGainDb,
                 nullptr);
    GstSegment segment = segmentAt(GST_SECOND);
    segment.base = 7 * GST_SECOND;
    segment.time = 20 * GST_SECOND;
    element.event(gst_event_new_segment(&segment));
    element.pushAll(bytes, kF32, 48000, {1000}, kFirst);
    element.end();

    zrk_tarn::UpmixStream stream({});
    stream.setMakeUpGain(static_cast<float>(std::pow(10.0, kGainDb / 20.0)));
    std::vector<float> unused(3 * (kInterval + kLatency));
    zrk_tarn::StreamMeters meters{};
    std::size_t taken = 0;
    bool steered = false;
    bool fast = false;
    for (std::size_t begin = 0; begin < kFrames; begin += kInterval) {
        SCOPED_TRACE(begin);
        const std::size_t until = begin + kInterval + kLatency;
        const std::size_t some = std::min(until, kFrames) - taken;
        stream.process(&stereo[2 * taken], unused.data(), some);
        taken += some;
        if (until > taken) stream.drain(unused.data(), until - taken);
        meters = stream.meters();

        GstMessage* const message = element.message(GST_MESSAGE_ELEMENT);
        ASSERT_NE(message, nullptr);
        const GstStructure* const structure = gst_message_get_structure(message);
        const GstClockTime time = timeOf(kFirst + begin, 48000);
        EXPECT_EQ(numberOf(structure, "timestamp"), time);
        EXPECT_EQ(numberOf(structure, "running-time"), time + 6 * GST_SECOND);
        EXPECT_EQ(numberOf(structure, "stream-time"), time + 19 * GST_SECOND);
        EXPECT_EQ(numberOf(structure, "blocks"), meters.blocks);
        EXPECT_EQ(numberOf(structure, "saturated"), meters.saturated);
        EXPECT_EQ(numberOf(structure, "invalid"), meters.invalid);
        const auto decibels = [](float level) {
            return level > 0.0f ? 20.0 * std::log10(static_cast<double>(level)) : -350.0;
        };
        for (guint channel = 0; channel < 3; ++channel) {
            EXPECT_EQ(listItem(structure, "peak", channel), decibels(meters.peak[channel]));
            EXPECT_EQ(listItem(structure, "rms", channel), decibels(meters.rms[channel]));
        }
        for (guint group = 0; group < 16; ++group) {
            SCOPED_TRACE(group);
            EXPECT_EQ(listItem(structure, "left-right", group), static_cast<double>(meters.leftRight[group]));
            EXPECT_EQ(listItem(structure, "front-back", group), static_cast<double>(meters.frontBack[group]));
            const GValue* const speeds = gst_structure_get_value(structure, "speed");
            EXPECT_EQ(g_value_get_int(gst_value_array_get_value(speeds, group)), static_cast<int>(meters.speed[group]));
            steered = steered || std::abs(meters.leftRight[group] - meters.frontBack[group]) > 0.5f;
            fast = fast || meters.speed[group] == zrk_tarn::SteeringSpeed::Fast;
        }
        gst_message_unref(message);
    }
    EXPECT_EQ(element.message(GST_MESSAGE_ELEMENT), nullptr);
    EXPECT_TRUE(steered);
    EXPECT_TRUE(fast);
    EXPECT_GT(meters.saturated, 0);
    EXPECT_EQ(meters.invalid, 1);
}

TEST(Messages, CanBeTurnedOnAndRetimedWhileRunning)
{
    Element element;
    const auto count = [&] { return element.countMessages(GST_MESSAGE_ELEMENT); };
    std::size_t frame = 0;
    const auto play = [&](std::size_t frames) {
        element.pushAll(stereoOf(frames, kS16), kS16, 48000, {480}, frame);
        frame += frames;
    };
    play(9600);
    EXPECT_EQ(count(), 0);
    g_object_set(element.element(), "post-messages", TRUE, nullptr);
    play(4320);
    EXPECT_EQ(count(), 0); // the first interval begins now
    play(5280);
    EXPECT_EQ(count(), 2);
    g_object_set(element.element(), "interval", 10 * GST_MSECOND, nullptr);
    play(9600);
    EXPECT_EQ(count(), 20);
    g_object_set(element.element(), "post-messages", FALSE, nullptr);
    play(9600);
    EXPECT_EQ(count(), 0);
}

// --- Failures --------------------------------------------------------------------------------------------------------

/// Memory that cannot be had, or not be mapped.
struct BadAllocator
{
    GstAllocator base;
    bool gives; ///< memory that cannot be mapped
};

GstMemory* badMemory(GstAllocator* allocator, gsize size, GstAllocationParams*)
{
    if (!reinterpret_cast<BadAllocator*>(allocator)->gives) return nullptr;
    auto* const memory = g_new0(GstMemory, 1);
    gst_memory_init(memory, GST_MEMORY_FLAG_NO_SHARE, allocator, nullptr, size, 0, 0, size);
    return memory;
}

/// An allocator of memory that cannot be mapped, or of none.
GstAllocator* badAllocator(bool gives)
{
    static const GType kType = g_type_register_static_simple(
        GST_TYPE_ALLOCATOR, "BadAllocator", sizeof(GstAllocatorClass),
        [](gpointer ownClass, gpointer) {
            static_cast<GstAllocatorClass*>(ownClass)->alloc = badMemory;
            static_cast<GstAllocatorClass*>(ownClass)->free = [](GstAllocator*, GstMemory* memory) { g_free(memory); };
        },
        sizeof(BadAllocator),
        [](GTypeInstance* instance, gpointer) {
            auto* const allocator = reinterpret_cast<GstAllocator*>(instance);
            allocator->mem_type = "bad";
            allocator->mem_map = [](GstMemory*, gsize, GstMapFlags) { return gpointer{nullptr}; };
        },
        GTypeFlags{});
    auto* const allocator = static_cast<BadAllocator*>(g_object_new(kType, nullptr));
    gst_object_ref_sink(allocator);
    allocator->gives = gives;
    return &allocator->base;
}

/// Expects that the pipeline was told of an error, and of no other kind.
void expectError(Element& element, GstResourceError code)
{
    int count = 0;
    for (; GstMessage* const message = element.message(GST_MESSAGE_ERROR); ++count) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        EXPECT_TRUE(g_error_matches(error, GST_RESOURCE_ERROR, code)) << error->message;
        g_error_free(error);
        gst_message_unref(message);
    }
    EXPECT_GT(count, 0);
}

TEST(Failures, NoMemoryForTheUpmixIsAnError)
{
    const Bytes first = stereoOf(3000, kS16);
    const Bytes second = stereoOf(3000, kS32);
    Element element;
    element.pushAll(first, kS16, 48000);
    memoryIsOut = true;
    element.setCaps(capsOf(kS32, 96000));
    expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
    EXPECT_EQ(element.push(second, 0), GST_FLOW_NOT_NEGOTIATED);
    expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
    memoryIsOut = false;
    EXPECT_TRUE(element.output() == upmixOf(first, kS16, 48000)); // with its tail

    element.pushAll(second, kS32, 96000);
    element.end();
    EXPECT_TRUE(element.output() == upmixOf(second, kS32, 96000));
}

TEST(Failures, NoBufferForTheOutputIsAnError)
{
    for (const bool gives : {false, true}) {
        SCOPED_TRACE(gives);
        Element element;
        GstAllocator* const good = gst_allocator_find(nullptr);
        gst_allocator_set_default(badAllocator(gives));
        EXPECT_EQ(element.push(stereoOf(kLatency, kS16), 0), GST_FLOW_ERROR); // also where nothing would come out
        expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
        element.end(); // the tail
        expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
        gst_allocator_set_default(good);
        EXPECT_TRUE(element.pieces().empty());
    }
}

TEST(Failures, InputThatCannotBeReadIsAnError)
{
    Element element;
    GstAllocator* const allocator = badAllocator(true);
    GstBuffer* const buffer = gst_buffer_new_allocate(allocator, 4096, nullptr);
    GST_BUFFER_PTS(buffer) = 0;
    EXPECT_EQ(gst_harness_push(element.harness(), buffer), GST_FLOW_ERROR);
    gst_object_unref(allocator);
    expectError(element, GST_RESOURCE_ERROR_READ);
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    GstPlugin* const plugin = argc == 2 ? gst_plugin_load_file(argv[1], &error) : nullptr;
    if (plugin == nullptr) {
        std::fprintf(stderr, "usage: %s PLUGIN_FILE; %s\n", argv[0], error == nullptr ? "" : error->message);
        return 64;
    }
    gst_object_unref(plugin);
    const int result = RUN_ALL_TESTS();
    gst_deinit();
    return result;
}
