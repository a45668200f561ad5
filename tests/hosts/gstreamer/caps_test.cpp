// The caps that the GStreamer element upmixes, passes through and refuses.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

namespace tests
{

namespace
{

TEST(Caps, OutputHasThreeChannelsUnlessDownstreamNeedsSixOrEight)
{
    Element element;
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);

    const Bytes stereo = stereoOf(3000, kS24);
    Element wide(capsOf(kS24, 48000), "audio/x-raw, channels=[ 4, 8 ]");
    wide.pushAll(stereo, kS24, 48000);
    wide.end();
    EXPECT_EQ(wide.outputMask(), 0x3f);
    EXPECT_TRUE(wide.output() == upmixOf(stereo, kS24, 48000, 6)); // LFE, and RL and RR of the preset plain are silent

    Element widest(capsOf(kS24, 48000), "audio/x-raw, channels=[ 7, 8 ]");
    widest.pushAll(stereo, kS24, 48000);
    widest.end();
    EXPECT_EQ(widest.outputMask(), 0xc3f);
    EXPECT_TRUE(widest.output() == upmixOf(stereo, kS24, 48000, 8));
}

TEST(Caps, ThreeChannelsArePreferredToEightSixAndTwo)
{
    Element element(capsOf(kS16, 48000),
                    "audio/x-raw, channels=2; audio/x-raw, channels={ 8, 6 }; audio/x-raw, channels=3");
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);
}

TEST(Caps, UpmixIsPreferredToTheStereoOfAConverter)
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

TEST(Caps, SourcesAreAskedForStereoFirst)
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

TEST(Caps, StereoWithoutAMaskIsUpmixed)
{
    Element element("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=2");
    element.pushAll(stereoOf(2000, kS16), kS16, 48000);
    EXPECT_EQ(element.outputMask(), 0x7);
}

TEST(Caps, ChangesWhileRunningFollowTheTail)
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
    element.end();
    EXPECT_TRUE(element.output() == expected);
}

TEST(Caps, TailsKeepTheirCaps)
{
    Element element(capsOf(kS16, 44100));
    element.pushAll(stereoOf(3000, kS16), kS16, 44100);
    // Bytes before and after the caps event.
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

TEST(Caps, DownstreamCanRenegotiate)
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

TEST(Caps, RenegotiationWithoutAChangeIsInaudible)
{
    const Bytes stereo = stereoOf(6000, kS16);
    const auto middle = stereo.begin() + 4 * 3000;
    Element element;
    element.pushAll(Bytes(stereo.begin(), middle), kS16, 48000);
    gst_harness_push_upstream_event(element.harness(), gst_event_new_reconfigure());
    element.pushAll(Bytes(middle, stereo.end()), kS16, 48000, {1024}, 3000);
    element.end();
    const std::vector<OutputBuffer> buffers = element.takeBuffers();
    expectTimes(buffers, 0, 6, 48000);
    EXPECT_TRUE(bytesOf(buffers) == upmixOf(stereo, kS16, 48000));
}

TEST(Caps, OtherAudioPassesWithoutACopy)
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
        EXPECT_EQ(same, buffer); // not a copy
        EXPECT_EQ(gst_buffer_memcmp(same, 0, bytes.data(), bytes.size()), 0);
        gst_buffer_unref(same);
        GstCaps* const expected = gst_caps_from_string(caps);
        GstCaps* const current = gst_pad_get_current_caps(element.harness()->sinkpad);
        EXPECT_TRUE(gst_caps_is_equal(expected, current));
        gst_caps_unref(expected);
        gst_caps_unref(current);
        EXPECT_EQ(gst_harness_query_latency(element.harness()), 0);
        element.end();
        EXPECT_TRUE(element.takeBuffers().empty());
    }
}

TEST(Caps, StereoStaysStereoIfDownstreamAcceptsOnlyStereo)
{
    const Bytes stereo = stereoOf(2000, kS16);
    // Also if only one side has a channel mask.
    for (const char* const mask : {"", ", channel-mask=(bitmask)0x3"}) {
        Element element("audio/x-raw, layout=interleaved, format=S16LE, rate=48000, channels=2",
                        (std::string("audio/x-raw, channels=2") + mask).c_str());
        element.pushAll(stereo, kS16, 48000);
        element.end();
        const std::vector<OutputBuffer> buffers = element.takeBuffers();
        expectTimes(buffers, 0, 4, 48000);
        EXPECT_TRUE(bytesOf(buffers) == stereo);
        EXPECT_EQ(gst_harness_query_latency(element.harness()),
                  gst_util_uint64_scale_ceil(kLatency, GST_SECOND, 48000));
    }
}

TEST(Caps, InputCanChangeBetweenStereoAndSurround)
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

TEST(Caps, StereoInOtherFormatsIsRefused)
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

TEST(Caps, AllocationQueriesReachDownstreamOnlyInPassThrough)
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

} // namespace

} // namespace tests
