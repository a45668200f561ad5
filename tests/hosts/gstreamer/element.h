// Drives the GStreamer element pad by pad, and computes what it should return.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"
#include "stream/presets.h"
#include "stream/upmix_stream.h"

#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tests
{

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kLatency = zrk_tarn::UpmixStream::latencyFrames({.limiter = true});
/// zrk_tarn::kSampleRatesHz in the type that GStreamer uses.
inline const std::vector<int> kRatesHz(zrk_tarn::kSampleRatesHz.begin(), zrk_tarn::kSampleRatesHz.end());

inline constexpr std::size_t kEngineDelay = zrk_tarn_processor_t::kDelayFrames;

/// An integer format that the engine processes without conversion.
struct Format
{
    const char* name;
    std::uint32_t bits;
};
inline constexpr Format kS16{"S16LE", 16};
inline constexpr Format kS24{"S24LE", 24};
inline constexpr Format kS32{"S32LE", 32};

/// Stereo with a moving source and noise.
inline Bytes stereoOf(std::size_t frames, const Format& format, std::uint32_t seed = 1)
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

/// The expected upmix of the preset plain, from one call of zrk_tarn_processor_t: aligned with the stereo and of the
/// same length.
inline Bytes upmixOf(std::span<const std::uint8_t> stereo, const Format& format, int rateHz, std::size_t channels = 3)
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

/// The stereo with a third, silent slot.
inline Bytes widenedOf(const Bytes& stereo, const Format& format)
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

inline std::string capsOf(const Format& format, int rateHz)
{
    return std::string("audio/x-raw, layout=interleaved, format=") + format.name + ", rate=" + std::to_string(rateHz) +
           ", channels=2, channel-mask=(bitmask)0x3";
}

inline GstClockTime timeOf(std::size_t frame, int rateHz)
{
    return gst_util_uint64_scale_round(frame, GST_SECOND, static_cast<guint64>(rateHz));
}

/// A buffer of the element's output.
struct OutputBuffer
{
    Bytes bytes;
    GstClockTime pts;
    GstClockTime duration;
    guint64 offset;
    guint64 offsetEnd;
    bool discontinuous;
};

/// An element between a source pad and a sink pad of the test.
class Element
{
public:
    /// preset  set before the caps; null: the default of the element
    explicit Element(const std::string& caps = capsOf(kS16, 48000), const char* outputCaps = nullptr,
                     const char* preset = "plain")
        : pads(gst_harness_new("tarnupmix"))
    {
        if (preset != nullptr) set("preset", preset);
        bus = gst_bus_new();
        gst_element_set_bus(pads->element, bus);
        if (outputCaps != nullptr) gst_harness_set_sink_caps_str(pads, outputCaps);
        setCaps(caps);
    }
    ~Element()
    {
        gst_element_set_bus(pads->element, nullptr);
        gst_object_unref(bus);
        gst_harness_teardown(pads);
    }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    GstHarness* harness() const { return pads; }
    GstElement* element() const { return pads->element; }

    /// Sets a property to a value as gst-launch-1.0 reads it.
    void set(const char* property, const char* value)
    {
        gst_util_set_object_arg(G_OBJECT(pads->element), property, value);
    }

    void setCaps(const std::string& caps) { gst_harness_set_src_caps_str(pads, caps.c_str()); }

    /// Pushes a buffer.
    GstFlowReturn push(std::span<const std::uint8_t> bytes, GstClockTime pts, bool discontinuous = false,
                       guint64 offset = GST_BUFFER_OFFSET_NONE)
    {
        GstBuffer* const buffer = bytes.empty() ? gst_buffer_new() : gst_buffer_new_memdup(bytes.data(), bytes.size());
        GST_BUFFER_PTS(buffer) = pts;
        GST_BUFFER_OFFSET(buffer) = offset;
        if (discontinuous) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        return gst_harness_push(pads, buffer);
    }

    /// Pushes stereo in buffers of repeating sizes, with time stamps and offsets from firstFrame on.
    void pushAll(const Bytes& stereo, const Format& format, int rateHz, const std::vector<std::size_t>& sizes = {1024},
                 std::size_t firstFrame = 0)
    {
        const std::size_t frameBytes = format.bits / 4;
        const std::size_t frames = stereo.size() / frameBytes;
        for (std::size_t done = 0, i = 0; done < frames; ++i) {
            const std::size_t count = std::min(frames - done, sizes[i % sizes.size()]);
            const std::span part(stereo.data() + done * frameBytes, count * frameBytes);
            ASSERT_EQ(push(part, timeOf(firstFrame + done, rateHz), false, firstFrame + done), GST_FLOW_OK);
            done += count;
        }
    }

    void event(GstEvent* event) { EXPECT_TRUE(gst_harness_push_event(pads, event)); }
    void end() { event(gst_event_new_eos()); }

    /// Returns the output buffers since the last call.
    std::vector<OutputBuffer> takeBuffers()
    {
        std::vector<OutputBuffer> all;
        while (GstBuffer* const buffer = gst_harness_try_pull(pads)) {
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

    /// Returns the bytes of takeBuffers().
    Bytes output();

    /// The channel mask of the output caps, or 0.
    guint64 outputMask() const
    {
        guint64 mask = 0;
        GstCaps* const caps = gst_pad_get_current_caps(pads->sinkpad);
        gst_structure_get(gst_caps_get_structure(caps, 0), "channel-mask", GST_TYPE_BITMASK, &mask, nullptr);
        gst_caps_unref(caps);
        return mask;
    }

    /// Removes the next message of a type from the bus; null if there is none.
    GstMessage* message(GstMessageType type) { return gst_bus_pop_filtered(bus, type); }

    /// Removes all messages of a type from the bus and returns their number.
    int countMessages(GstMessageType type)
    {
        int count = 0;
        for (; GstMessage* const one = message(type); ++count) gst_message_unref(one);
        return count;
    }

private:
    GstHarness* pads;
    GstBus* bus;
};

/// Expects buffers without gaps whose times and offsets start at a frame.
inline void expectTimes(const std::vector<OutputBuffer>& buffers, std::size_t frame, std::size_t frameBytes, int rateHz)
{
    const std::size_t first = frame;
    const auto due = [&](std::size_t at) { return timeOf(first, rateHz) + timeOf(at - first, rateHz); };
    for (const OutputBuffer& buffer : buffers) {
        const std::size_t end = frame + buffer.bytes.size() / frameBytes;
        EXPECT_EQ(buffer.pts, due(frame));
        EXPECT_EQ(buffer.pts + buffer.duration, due(end));
        EXPECT_EQ(buffer.offset, frame);
        EXPECT_EQ(buffer.offsetEnd, end);
        EXPECT_EQ(buffer.discontinuous, frame == first);
        frame = end;
    }
}

/// The bytes of buffers.
inline Bytes bytesOf(const std::vector<OutputBuffer>& buffers)
{
    Bytes all;
    for (const OutputBuffer& buffer : buffers) all.insert(all.end(), buffer.bytes.begin(), buffer.bytes.end());
    return all;
}

inline Bytes Element::output()
{
    return bytesOf(takeBuffers());
}

inline GstSegment segmentAt(GstClockTime start)
{
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.position = segment.time = start;
    return segment;
}

} // namespace tests
