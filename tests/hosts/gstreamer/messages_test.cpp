// The meter messages of the GStreamer element.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#include "stream/gain.h"

#include <cstring>

namespace tests
{

namespace
{

guint listSize(const GstStructure* structure, const char* name)
{
    const GValue* const list = gst_structure_get_value(structure, name);
    return list != nullptr && GST_VALUE_HOLDS_ARRAY(list) ? gst_value_array_get_size(list) : 0;
}

double listItem(const GstStructure* structure, const char* name, guint i)
{
    return g_value_get_double(gst_value_array_get_value(gst_structure_get_value(structure, name), i));
}

/// A level as the messages give it.
double decibels(float level)
{
    return level > 0.0f ? 20.0 * std::log10(static_cast<double>(level)) : -350.0;
}

TEST(Messages, ArePostedAtTheIntervalIfEnabled)
{
    constexpr std::size_t kFrames = 24000;
    constexpr std::size_t kMetered = 9 * 2400 + kLatency; // of the ninth message
    Bytes stereo;                                         // the same tone on both sides, which moves to the centre
    for (std::size_t i = 0; i < kFrames; ++i)
        for (int side = 0; side < 2; ++side) {
            const auto sample =
                static_cast<std::int16_t>(std::lround(16384.0 * std::sin(0.1 * static_cast<double>(i))));
            stereo.push_back(static_cast<std::uint8_t>(sample));
            stereo.push_back(static_cast<std::uint8_t>(sample >> 8));
        }
    zrk_tarn::UpmixStream stream({.format = zrk_tarn::SampleFormat::S16, .limiter = true});
    Bytes unused(6 * kMetered);
    stream.process(stereo.data(), unused.data(), kMetered);
    const zrk_tarn::StreamMeters meters = stream.meters();
    ASSERT_LT(meters.rms[0], 0.01f) << "the tone is in the centre";
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
            for (const char* const name : {"left-right", "front-back", "speed", "group-level", "group-place",
                                           "group-centre", "group-upper-hz", "group-surround"})
                EXPECT_EQ(listSize(structure, name), 16) << name;
            if (count == 8) {
                for (guint channel = 0; channel < 3; ++channel) {
                    EXPECT_EQ(listItem(structure, "peak", channel), decibels(meters.peak[channel]));
                    EXPECT_EQ(listItem(structure, "rms", channel), decibels(meters.rms[channel]));
                }
                guint64 blocks = 0;
                EXPECT_TRUE(gst_structure_get_uint64(structure, "blocks", &blocks));
                EXPECT_EQ(blocks, kMetered / 64);
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

/// A number of a message.
guint64 numberOf(const GstStructure* structure, const char* name)
{
    guint64 number = 0;
    EXPECT_TRUE(gst_structure_get_uint64(structure, name, &number)) << name;
    return number;
}

double decibelsOf(const GstStructure* structure, const char* name)
{
    double level = 0.0;
    EXPECT_TRUE(gst_structure_get_double(structure, name, &level)) << name;
    return level;
}

/// Expects lists of a message to have the meters of the band groups.
void expectGroups(const GstStructure* structure, const zrk_tarn::StreamMeters& meters)
{
    for (guint group = 0; group < 16; ++group) {
        SCOPED_TRACE(group);
        EXPECT_EQ(listItem(structure, "left-right", group), static_cast<double>(meters.leftRight[group]));
        EXPECT_EQ(listItem(structure, "front-back", group), static_cast<double>(meters.frontBack[group]));
        EXPECT_EQ(listItem(structure, "group-level", group), decibels(meters.groupLevel[group]));
        EXPECT_EQ(listItem(structure, "group-place", group), static_cast<double>(meters.groupPlace[group]));
        EXPECT_EQ(listItem(structure, "group-centre", group), static_cast<double>(meters.groupCentre[group]));
        EXPECT_EQ(listItem(structure, "group-upper-hz", group), static_cast<double>(meters.groupUpperHz[group]));
        EXPECT_EQ(listItem(structure, "group-surround", group), decibels(meters.groupSurround[group]));
        const GValue* const speeds = gst_structure_get_value(structure, "speed");
        EXPECT_EQ(g_value_get_int(gst_value_array_get_value(speeds, group)), static_cast<int>(meters.speed[group]));
    }
}

/// Expects messages with the meters of a stream. Returns the last ones.
zrk_tarn::StreamMeters expectMetersOfAStream(bool limiter)
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
                 "limiter", gboolean{limiter}, nullptr);
    GstSegment segment = segmentAt(GST_SECOND);
    segment.base = 7 * GST_SECOND;
    segment.time = 20 * GST_SECOND;
    element.event(gst_event_new_segment(&segment));
    element.pushAll(bytes, kF32, 48000, {1000}, kFirst);
    element.end();

    zrk_tarn::UpmixStream stream({.limiter = true});
    stream.setMakeUpGain(zrk_tarn::gainFactor(kGainDb));
    stream.setLimiting(limiter);
    std::vector<float> unused(3 * (kInterval + kLatency));
    zrk_tarn::StreamMeters meters{};
    std::size_t processed = 0;
    bool steered = false;
    bool fast = false;
    for (std::size_t begin = 0; begin < kFrames; begin += kInterval) {
        SCOPED_TRACE(begin);
        const std::size_t until = begin + kInterval + kLatency;
        const std::size_t count = std::min(until, kFrames) - processed;
        stream.process(&stereo[2 * processed], unused.data(), count);
        processed += count;
        if (until > processed) stream.drain(unused.data(), until - processed);
        meters = stream.meters();

        GstMessage* const message = element.message(GST_MESSAGE_ELEMENT);
        if (message == nullptr) {
            ADD_FAILURE() << "no message";
            return meters;
        }
        const GstStructure* const structure = gst_message_get_structure(message);
        const GstClockTime time = timeOf(kFirst + begin, 48000);
        EXPECT_EQ(numberOf(structure, "timestamp"), time);
        EXPECT_EQ(numberOf(structure, "running-time"), time + 6 * GST_SECOND);
        EXPECT_EQ(numberOf(structure, "stream-time"), time + 19 * GST_SECOND);
        EXPECT_EQ(numberOf(structure, "blocks"), meters.blocks);
        EXPECT_EQ(numberOf(structure, "saturated"), meters.saturated);
        EXPECT_EQ(numberOf(structure, "invalid"), meters.invalid);
        EXPECT_EQ(numberOf(structure, "limited-blocks"), meters.limitedBlocks);
        EXPECT_EQ(decibelsOf(structure, "limiter-gain"), decibels(meters.limiterGain));
        EXPECT_EQ(decibelsOf(structure, "smallest-limiter-gain"), decibels(meters.smallestLimiterGain));
        for (guint channel = 0; channel < 3; ++channel) {
            EXPECT_EQ(listItem(structure, "peak", channel), decibels(meters.peak[channel]));
            EXPECT_EQ(listItem(structure, "rms", channel), decibels(meters.rms[channel]));
        }
        expectGroups(structure, meters);
        for (guint group = 0; group < 16; ++group) {
            steered = steered || std::abs(meters.leftRight[group] - meters.frontBack[group]) > 0.5f;
            fast = fast || meters.speed[group] == zrk_tarn::SteeringSpeed::Fast;
        }
        gst_message_unref(message);
    }
    EXPECT_EQ(element.message(GST_MESSAGE_ELEMENT), nullptr);
    EXPECT_TRUE(steered);
    EXPECT_TRUE(fast);
    EXPECT_EQ(meters.invalid, 1);
    return meters;
}

TEST(Messages, EqualTheStreamsMeters)
{
    const zrk_tarn::StreamMeters meters = expectMetersOfAStream(false);
    EXPECT_GT(meters.saturated, 0);
    EXPECT_EQ(meters.limitedBlocks, 0);
}

TEST(Messages, ShowTheGainOfTheLimiter)
{
    const zrk_tarn::StreamMeters meters = expectMetersOfAStream(true);
    EXPECT_GT(meters.limitedBlocks, 0);
    EXPECT_LT(meters.smallestLimiterGain, 0.5f);
}

TEST(Messages, ShowTheSurroundsOfTheBandGroups)
{
    constexpr std::size_t kFrames = 24000;
    const Bytes stereo = stereoOf(kFrames, kS16);
    Element element(capsOf(kS16, 48000), "audio/x-raw, channels=6", nullptr);
    g_object_set(element.element(), "post-messages", TRUE, "interval", 500 * GST_MSECOND, nullptr);
    element.pushAll(stereo, kS16, 48000);
    element.end();

    using enum zrk_tarn::OutputSlot::Source;
    zrk_tarn::UpmixStream stream(
        {.format = zrk_tarn::SampleFormat::S16,
         .outputSlots = 6,
         .outputs = {{{Engine, 0}, {Engine, 1}, {Engine, 2}, {Lfe, 0}, {Surround, 0}, {Surround, 1}}},
         .limiter = true});
    Bytes unused(12 * kFrames);
    stream.process(stereo.data(), unused.data(), kFrames);
    stream.drain(unused.data(), kLatency);
    const zrk_tarn::StreamMeters meters = stream.meters();
    GstMessage* const message = element.message(GST_MESSAGE_ELEMENT);
    ASSERT_NE(message, nullptr);
    expectGroups(gst_message_get_structure(message), meters);
    gst_message_unref(message);
    EXPECT_GT(std::ranges::max(meters.groupSurround), 0.001f);
}

TEST(Messages, CanBeEnabledAndRetimedWhileRunning)
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
    EXPECT_EQ(count(), 0); // the first interval starts now
    play(5280);
    EXPECT_EQ(count(), 2);
    g_object_set(element.element(), "interval", 10 * GST_MSECOND, nullptr);
    play(9600);
    EXPECT_EQ(count(), 20);
    g_object_set(element.element(), "post-messages", FALSE, nullptr);
    play(9600);
    EXPECT_EQ(count(), 0);
}

TEST(Messages, HaveTimesFromZeroOn)
{
    // Input that repeats its first time stamp drifts back, further than the tail of the first buffer is long.
    Element element;
    g_object_set(element.element(), "post-messages", TRUE, "interval", GST_MSECOND, nullptr);
    element.push(stereoOf(1500, kS16), 0);
    element.push(stereoOf(48000, kS16), 0);
    element.end();
    int count = 0;
    for (; GstMessage* const message = element.message(GST_MESSAGE_ELEMENT); ++count) {
        guint64 time = 0;
        EXPECT_TRUE(gst_structure_get_uint64(gst_message_get_structure(message), "timestamp", &time));
        EXPECT_LE(time, 2 * GST_SECOND);
        gst_message_unref(message);
    }
    EXPECT_GT(count, 900);
}

} // namespace

} // namespace tests
