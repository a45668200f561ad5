// Latency, time stamps, gaps and tails of the GStreamer element.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#include <algorithm>
#include <cstdlib>

namespace tests
{

namespace
{

TEST(Time, LatencyIsUpstreamsPlus1088Frames)
{
    static_assert(kLatency == 1088);
    for (const int rateHz : kRatesHz) {
        Element element(capsOf(kS16, rateHz));
        gst_harness_set_upstream_latency(element.harness(), 5 * GST_MSECOND);
        const GstClockTime own = gst_util_uint64_scale_ceil(kLatency, GST_SECOND, static_cast<guint64>(rateHz));
        EXPECT_EQ(gst_harness_query_latency(element.harness()), 5 * GST_MSECOND + own);
        EXPECT_EQ(gst_util_uint64_scale(own, static_cast<guint64>(rateHz), GST_SECOND), kLatency);
    }
}

TEST(Time, LatencyIsAddedToUpstreamsMinimumAndMaximum)
{
    static constexpr GstClockTime kMinimum = 5 * GST_MSECOND;
    static GstClockTime maximum;
    for (const GstClockTime upstream : {GstClockTime{40 * GST_MSECOND}, GST_CLOCK_TIME_NONE}) {
        maximum = upstream;
        Element element;
        gst_pad_set_query_function(element.harness()->srcpad, [](GstPad* pad, GstObject* parent, GstQuery* query) {
            if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) return gst_pad_query_default(pad, parent, query);
            gst_query_set_latency(query, TRUE, kMinimum, maximum);
            return gboolean{TRUE};
        });
        GstQuery* const query = gst_query_new_latency();
        ASSERT_TRUE(gst_pad_peer_query(element.harness()->sinkpad, query));
        gboolean live = FALSE;
        GstClockTime answeredMinimum = 0;
        GstClockTime answeredMaximum = 0;
        gst_query_parse_latency(query, &live, &answeredMinimum, &answeredMaximum);
        gst_query_unref(query);
        const GstClockTime own = gst_util_uint64_scale_ceil(kLatency, GST_SECOND, 48000);
        EXPECT_TRUE(live);
        EXPECT_EQ(answeredMinimum, kMinimum + own);
        EXPECT_EQ(answeredMaximum, upstream == GST_CLOCK_TIME_NONE ? upstream : upstream + own);
    }
}

TEST(Time, LatencyChangesArePosted)
{
    Element element(capsOf(kS16, 44100));
    const auto changes = [&] { return element.countMessages(GST_MESSAGE_LATENCY); };
    EXPECT_EQ(changes(), 1);
    element.setCaps(capsOf(kS24, 44100));
    EXPECT_EQ(changes(), 0); // the same
    element.setCaps(capsOf(kS24, 48000));
    EXPECT_EQ(changes(), 1);
    element.setCaps("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=1");
    EXPECT_EQ(changes(), 1); // none in pass-through
}

TEST(Time, FlushDiscardsTheTail)
{
    const Bytes stereo = stereoOf(3000, kS16, 2);
    Element element;
    element.pushAll(stereoOf(3500, kS16, 1), kS16, 48000);
    element.takeBuffers();
    element.event(gst_event_new_flush_start());
    element.event(gst_event_new_flush_stop(TRUE));
    const GstSegment segment = segmentAt(10 * GST_SECOND);
    element.event(gst_event_new_segment(&segment));
    element.pushAll(stereo, kS16, 48000, {1024}, 480000);
    element.end();
    const std::vector<OutputBuffer> buffers = element.takeBuffers();
    expectTimes(buffers, 480000, 6, 48000);
    EXPECT_TRUE(bytesOf(buffers) == upmixOf(stereo, kS16, 48000));
}

/// Expects the output of two independent runs, each aligned with its input.
void expectTwoRuns(Element& element, std::size_t secondFrame, const Bytes& first, const Bytes& second)
{
    const std::vector<OutputBuffer> buffers = element.takeBuffers();
    std::vector<OutputBuffer> runs[2];
    Bytes output[2];
    for (const OutputBuffer& buffer : buffers) {
        const int run = output[0].size() == first.size() / 2 * 3 ? 1 : 0;
        runs[run].push_back(buffer);
        output[run].insert(output[run].end(), buffer.bytes.begin(), buffer.bytes.end());
    }
    expectTimes(runs[0], 0, 6, 48000);
    expectTimes(runs[1], secondFrame, 6, 48000);
    EXPECT_TRUE(output[0] == upmixOf(first, kS16, 48000));
    EXPECT_TRUE(output[1] == upmixOf(second, kS16, 48000));
}

TEST(Time, GapsEndARunAndStartAnother)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(3000, kS16, 2);
    struct Gap
    {
        std::size_t frame;
        bool announced;
    };
    for (const auto& [frame, announced] :
         {Gap{3002, true}, Gap{2998, true}, Gap{100000, true}, Gap{100000, false}, Gap{0, false}, Gap{4501, false}}) {
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

TEST(Time, OffsetsShowGapsWithoutTimeStamps)
{
    const Bytes stereo = stereoOf(3000, kS16);
    const Bytes upmix = upmixOf(stereo, kS16, 48000);
    for (const std::size_t second : {std::size_t{3000}, std::size_t{9000}}) {
        Element element;
        element.push(stereo, GST_CLOCK_TIME_NONE, true, 0);
        element.push(stereo, GST_CLOCK_TIME_NONE, true, second);
        element.end();
        const std::vector<OutputBuffer> buffers = element.takeBuffers();
        for (const OutputBuffer& buffer : buffers) EXPECT_EQ(buffer.pts, GST_CLOCK_TIME_NONE);
        EXPECT_EQ(buffers.back().offsetEnd, second + 3000);
        Bytes twice = stereo;
        twice.insert(twice.end(), stereo.begin(), stereo.end());
        Bytes apart = upmix;
        apart.insert(apart.end(), upmix.begin(), upmix.end());
        EXPECT_TRUE(bytesOf(buffers) == (second == 3000 ? upmixOf(twice, kS16, 48000) : apart));
    }
}

TEST(Time, TimesAndOffsetsThatWouldOverflowAreNone)
{
    const Bytes stereo = stereoOf(3000, kS16);
    for (const guint64 huge : {guint64{1} << 62, guint64{G_MAXINT64}, G_MAXUINT64 - 1000}) {
        Element element;
        element.push(stereo, huge, true, huge);
        element.end();
        const std::vector<OutputBuffer> buffers = element.takeBuffers();
        for (const OutputBuffer& buffer : buffers) {
            EXPECT_EQ(buffer.pts, GST_CLOCK_TIME_NONE);
            EXPECT_EQ(buffer.offset, GST_BUFFER_OFFSET_NONE);
        }
        EXPECT_TRUE(bytesOf(buffers) == upmixOf(stereo, kS16, 48000));
    }
}

TEST(Time, RoundedTimeStampsAreNoGaps)
{
    const Bytes stereo = stereoOf(20000, kS16);
    Element element(capsOf(kS16, 44100));
    for (std::size_t i = 0; i < 20000; i += 100)
        element.push(std::span(stereo).subspan(4 * i, 400), timeOf(i, 44100) / GST_MSECOND * GST_MSECOND, false, i);
    element.end();
    const std::vector<OutputBuffer> buffers = element.takeBuffers();
    expectTimes(buffers, 0, 6, 44100); // exact again
    EXPECT_TRUE(bytesOf(buffers) == upmixOf(stereo, kS16, 44100));
}

TEST(Time, MoreThanA32ndOfASecondIsAGap)
{
    const Bytes first = stereoOf(3000, kS16, 1);
    const Bytes second = stereoOf(1024, kS16, 2);
    Bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    for (const int rateHz : {44100, 48000, 192000})
        for (const bool late : {false, true}) {
            const auto limit = static_cast<std::size_t>(rateHz) / 32;
            for (const std::size_t by : {limit, limit + 1}) {
                SCOPED_TRACE(std::to_string(rateHz) + (late ? " late by " : " early by ") + std::to_string(by));
                const std::size_t start = 10000;
                const std::size_t end = start + 3000;
                Element element(capsOf(kS16, rateHz));
                element.pushAll(first, kS16, rateHz, {1024}, start);
                element.push(second, timeOf(late ? end + by : end - by, rateHz));
                element.end();
                const std::vector<OutputBuffer> buffers = element.takeBuffers();
                const auto runs = std::ranges::count_if(buffers, &OutputBuffer::discontinuous);
                EXPECT_EQ(runs, by == limit ? 1 : 2);
                Bytes expected = upmixOf(by == limit ? both : first, kS16, rateHz);
                if (by > limit) {
                    const Bytes apart = upmixOf(second, kS16, rateHz);
                    expected.insert(expected.end(), apart.begin(), apart.end());
                }
                EXPECT_TRUE(bytesOf(buffers) == expected);
            }
        }
}

/// Expects buffers without gaps.
void expectNoGaps(const std::vector<OutputBuffer>& buffers)
{
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        EXPECT_EQ(buffers[i].discontinuous, i == 0);
        EXPECT_EQ(buffers[i].pts, i == 0 ? buffers[i].pts : buffers[i - 1].pts + buffers[i - 1].duration);
    }
}

/// The times of the output's buffers if equal input buffers arrive at dueAt(frame): the begin of the first one and the
/// end of each. Lateness beyond 2 ms moves the times with a time constant of one second, after the latency has passed.
template <typename DueAt>
std::vector<GstClockTime> followedTimes(DueAt dueAt, std::size_t buffers, std::size_t frames, int rateHz)
{
    std::vector<GstClockTime> times{dueAt(0)};
    GstClockTimeDiff drift = 0;
    const auto timeAt = [&](std::size_t frame) {
        return dueAt(0) + timeOf(frame, rateHz) + static_cast<GstClockTime>(drift);
    };
    for (std::size_t done = 0; done < buffers * frames; done += frames) {
        const GstClockTimeDiff lateness = GST_CLOCK_DIFF(timeAt(done), dueAt(done));
        const GstClockTimeDiff ignored = std::clamp<GstClockTimeDiff>(lateness, -2 * GST_MSECOND, 2 * GST_MSECOND);
        if (done >= kLatency) drift += (lateness - ignored) * static_cast<GstClockTimeDiff>(frames) / rateHz;
        if (done + frames > kLatency) times.push_back(timeAt(done + frames - kLatency));
    }
    times.push_back(timeAt(buffers * frames)); // the tail
    return times;
}

/// Expects buffers that begin and end at these times.
void expectBorders(const std::vector<OutputBuffer>& buffers, const std::vector<GstClockTime>& times)
{
    ASSERT_EQ(buffers.size() + 1, times.size());
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        ASSERT_EQ(buffers[i].pts, times[i]) << i;
        ASSERT_EQ(buffers[i].pts + buffers[i].duration, times[i + 1]) << i;
    }
}

TEST(Time, ClockDriftIsFollowedWithoutAGap)
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
        const std::vector<OutputBuffer> buffers = element.takeBuffers();
        expectNoGaps(buffers);
        EXPECT_TRUE(bytesOf(buffers) == upmix);
        expectBorders(buffers, followedTimes(dueAt, kFrames / 500, 500, kRateHz));
        // 2 ms are ignored, and a drift of 1 ms a second is followed 1 s late.
        for (const OutputBuffer& buffer : buffers)
            ASSERT_LE(std::abs(GST_CLOCK_DIFF(dueAt(buffer.offset), buffer.pts)), 3 * GST_MSECOND) << buffer.offset;
        const std::size_t frame = kFrames + std::size_t{2} * kRateHz; // the next run starts at its own time
        element.pushAll(stereoOf(3000, kS16), kS16, kRateHz, {1024}, frame);
        element.end();
        expectTimes(element.takeBuffers(), frame, 6, kRateHz);
    }
}

TEST(Time, SingleEarlyOrLateBuffersHaveLittleEffect)
{
    const Bytes stereo = stereoOf(480, kS16);
    const auto dueAt = [](std::size_t frame) {
        const std::size_t i = frame / 480;
        const GstClockTime due = GST_SECOND + i * 10 * GST_MSECOND;
        if (i % 50 == 25) return due + 20 * GST_MSECOND;
        return i % 50 == 40 ? due - 20 * GST_MSECOND : due;
    };
    Element element;
    for (std::size_t i = 0; i < 600; ++i) element.push(stereo, dueAt(i * 480), false, i * 480);
    element.end();
    const std::vector<OutputBuffer> buffers = element.takeBuffers();
    expectNoGaps(buffers);
    expectBorders(buffers, followedTimes(dueAt, 600, 480, 48000));
    for (const OutputBuffer& buffer : buffers) {
        const GstClockTimeDiff distance = GST_CLOCK_DIFF(GST_SECOND + timeOf(buffer.offset, 48000), buffer.pts);
        EXPECT_LE(std::abs(distance), 200 * GST_USECOND) << buffer.offset;
    }
}

TEST(Time, FirstOutputBufferKeepsItsDuration)
{
    const Bytes stereo = stereoOf(kLatency, kS16);
    Element element;
    element.push(std::span(stereo).subspan(0, 4), GST_SECOND, false, 48000);
    element.push(stereo, GST_SECOND - 20 * GST_MSECOND, false, 48001); // one frame of it is returned
    element.end();
    expectTimes(element.takeBuffers(), 48000, 6, 48000);
}

/// Expects that an event follows the tail of the run before it, or that it does not end the run.
void expectTailBefore(GstEvent* event, bool drained = true)
{
    Element element;
    element.pushAll(stereoOf(3000, kS16), kS16, 48000);
    struct Seen
    {
        GstHarness* harness;
        GstEventType type;
        guint buffers; ///< before the event
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
    EXPECT_EQ(seen.buffers, drained ? 3 : 2)
        << gst_event_type_get_name(seen.type); // the first input buffer is all latency
}

TEST(Time, TailsPrecedeTheEventsThatEndARun)
{
    const GstSegment other = segmentAt(GST_SECOND);
    const GstSegment same = segmentAt(0);
    expectTailBefore(gst_event_new_gap(timeOf(3000, 48000), GST_SECOND));
    expectTailBefore(gst_event_new_segment(&other));
    expectTailBefore(gst_event_new_segment(&same), false); // no change
    expectTailBefore(gst_event_new_segment_done(GST_FORMAT_TIME, GST_SECOND));
    expectTailBefore(gst_event_new_stream_start("next"));
    expectTailBefore(gst_event_new_eos());
}

TEST(Time, GapEventsEndARun)
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

TEST(Time, StateReadyResetsTheElement)
{
    const Bytes stereo = stereoOf(3000, kS16);
    Element element;
    element.pushAll(stereoOf(2000, kS16, 3), kS16, 48000);
    ASSERT_EQ(gst_element_set_state(element.element(), GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
    ASSERT_EQ(gst_element_set_state(element.element(), GST_STATE_PLAYING), GST_STATE_CHANGE_SUCCESS);
    element.takeBuffers();
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

} // namespace

} // namespace tests
