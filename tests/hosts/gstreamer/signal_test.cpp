// The samples that the GStreamer element returns.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#if defined __SSE__
#include <xmmintrin.h>
#endif

#include <cstring>
#include <thread>

namespace tests
{

namespace
{

TEST(Signal, ReturnsTheProcessorsBytesAtEveryRateAndWidth)
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

TEST(Signal, BuffersOfAnySizeKeepTimeAndLength)
{
    const Bytes stereo = stereoOf(9001, kS24);
    for (const std::vector<std::size_t>& sizes :
         {std::vector<std::size_t>{1, 37, 64, 100, 1023}, {37}, {1024}, {4801, 3}, {9001}}) {
        Element element(capsOf(kS24, 44100));
        element.pushAll(stereo, kS24, 44100, sizes, 500);
        element.end();
        const std::vector<OutputBuffer> buffers = element.takeBuffers();
        expectTimes(buffers, 500, 9, 44100);
        for (const OutputBuffer& buffer : buffers) EXPECT_FALSE(buffer.bytes.empty());
        EXPECT_TRUE(bytesOf(buffers) == upmixOf(stereo, kS24, 44100));
    }
}

TEST(Signal, StreamsShorterThanTheLatencyAreDrained)
{
    for (const std::size_t frames : {std::size_t{1}, std::size_t{63}, kLatency - 1, kLatency, kLatency + 1}) {
        const Bytes stereo = stereoOf(frames, kS16);
        Element element;
        element.pushAll(stereo, kS16, 48000, {frames});
        EXPECT_EQ(element.takeBuffers().size(), frames > kLatency ? 1 : 0);
        Element another;
        another.pushAll(stereo, kS16, 48000, {frames});
        another.end();
        EXPECT_TRUE(another.output() == upmixOf(stereo, kS16, 48000)) << frames;
    }
    Element empty;
    empty.end();
    EXPECT_TRUE(empty.takeBuffers().empty());
}

TEST(Signal, BuffersWithoutAWholeFrameAreIgnored)
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

TEST(Signal, TwoElementsAreIndependent)
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
TEST(Signal, FlushToZeroAndRoundingUpDoNotChangeBytes)
{
    Bytes stereo = stereoOf(2000, kS32);
    stereo.resize(stereo.size() + 8 * 20000); // silence, in which filters decay to subnormal numbers
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

TEST(Signal, FloatsEqualThoseOfUpmixStream)
{
    std::vector<float> stereo;
    for (std::size_t i = 0; i < 2 * 3000; ++i) stereo.push_back(0.4f * std::sin(0.01f * static_cast<float>(i)));
    zrk_tarn::UpmixStream stream({.limiter = true});
    stream.setLimiting(false);
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

} // namespace

} // namespace tests
