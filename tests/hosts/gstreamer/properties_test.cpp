// The properties of the GStreamer element.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#include "stream/gain.h"

#include <gst/controller/gstdirectcontrolbinding.h>
#include <gst/controller/gstinterpolationcontrolsource.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace tests
{

namespace
{

TEST(Properties, HaveDefaultsRangesNicksAndBlurbs)
{
    Element element(capsOf(kS16, 48000), nullptr, nullptr);
    gboolean bypass = TRUE;
    gboolean posts = TRUE;
    gint mode = -1;
    gdouble gainDb = -1;
    guint64 interval = 0;
    g_object_get(element.element(), "bypass", &bypass, "mode", &mode, "post-messages", &posts, "interval", &interval,
                 nullptr);
    EXPECT_FALSE(bypass);
    EXPECT_FALSE(posts);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(interval, 100 * GST_MSECOND);

    GObjectClass* const object = G_OBJECT_GET_CLASS(element.element());
    struct Property
    {
        const char* name;
        bool isControllable;
    };
    for (const auto& [name, isControllable] :
         {Property{"bypass", true}, Property{"mode", true}, Property{"preset", false}, Property{"centre-gain", true},
          Property{"width", true}, Property{"surround-gain", true}, Property{"bass", true},
          Property{"make-up-gain", true}, Property{"limiter", true}, Property{"post-messages", false},
          Property{"interval", false}}) {
        SCOPED_TRACE(name);
        GParamSpec* const spec = g_object_class_find_property(object, name);
        ASSERT_NE(spec, nullptr);
        EXPECT_STRNE(g_param_spec_get_nick(spec), name);
        EXPECT_GT(std::strlen(g_param_spec_get_blurb(spec)), 10);
        EXPECT_NE(spec->flags & GST_PARAM_MUTABLE_PLAYING, 0);
        EXPECT_EQ((spec->flags & GST_PARAM_CONTROLLABLE) != 0, isControllable);
    }
    element.set("mode", "calm");
    element.set("make-up-gain", "6.5");
    g_object_get(element.element(), "mode", &mode, "make-up-gain", &gainDb, nullptr);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(gainDb, 6.5);
}

TEST(Properties, KeepTheirValueIfANumberIsOutOfRange)
{
    Element element(capsOf(kS16, 48000), nullptr, nullptr);
    element.set("centre-gain", "3");
    g_object_set(element.element(), "centre-gain", 13.0, nullptr); // GObject prints a warning
    gdouble gainDb = 0.0;
    g_object_get(element.element(), "centre-gain", &gainDb, nullptr);
    EXPECT_EQ(gainDb, 3.0);
}

TEST(Properties, BypassFromTheStartReturnsTheInputAndSilence)
{
    const Bytes stereo = stereoOf(3000, kS24);
    Element element(capsOf(kS24, 48000));
    g_object_set(element.element(), "bypass", TRUE, nullptr);
    element.pushAll(stereo, kS24, 48000);
    element.end();
    EXPECT_TRUE(element.output() == widenedOf(stereo, kS24));
}

TEST(Properties, ChangesApplyToTheRunningStreamAndToLaterOnes)
{
    const Bytes stereo = stereoOf(8000, kS16);
    zrk_tarn::UpmixStream stream({.format = zrk_tarn::SampleFormat::S16, .limiter = true});
    stream.setLimiting(false);
    Bytes expected(6 * (8000 + kLatency));
    Element element;
    const auto half = [&](std::size_t begin, std::size_t end) {
        stream.process(&stereo[4 * begin], &expected[6 * begin], end - begin);
        element.push(std::span(stereo).subspan(4 * begin, 4 * (end - begin)), timeOf(begin, 48000));
    };
    half(0, 2000);
    g_object_set(element.element(), "make-up-gain", -6.0, "mode", 1, nullptr);
    stream.setMakeUpGain(zrk_tarn::gainFactor(-6.0));
    stream.setMode(zrk_tarn::SteeringMode::Calm);
    half(2000, 5000);
    g_object_set(element.element(), "bypass", TRUE, nullptr);
    stream.setBypass(true);
    half(5000, 8000);
    stream.drain(&expected[std::size_t{6} * 8000], kLatency);
    element.end();
    expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(6 * kLatency));
    EXPECT_TRUE(element.output() == expected);

    Element another; // the property is set before the caps
    g_object_set(another.element(), "bypass", TRUE, nullptr);
    another.setCaps(capsOf(kS24, 96000));
    const Bytes next = stereoOf(2000, kS24);
    another.pushAll(next, kS24, 96000);
    another.end();
    EXPECT_TRUE(another.output() == widenedOf(next, kS24));
}

TEST(Properties, AnyThreadCanChangeThemWhileStreamsChange)
{
    Element element;
    std::atomic<bool> done = false;
    std::thread controls([&] {
        for (int i = 0; !done; ++i) {
            g_object_set(element.element(), "bypass", i % 2, "mode", i % 3 == 0 ? 1 : 0, "preset", i % 4,
                         "make-up-gain", -10.0 + i % 20, "bass", i % 2, "post-messages", i % 5 == 0, "interval",
                         (1 + i % 7) * GST_MSECOND, nullptr);
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

} // namespace

} // namespace tests
