// Surround channels, centre, outputs for two loudspeakers, bass and limiter of a stream.
// SPDX-License-Identifier: MIT
#include "room/limiter.h"
#include "stream/upmix_stream.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <numbers>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::Limiter;
using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;
using enum OutputSlot::Source;

using Samples = std::vector<std::int32_t>; ///< of one channel, or interleaved

constexpr std::size_t kLatency = UpmixStream::latencyFrames();

/// A stream of 32-bit integers with these outputs.
StreamConfiguration with(std::initializer_list<OutputSlot> outputs, std::uint32_t rateHz = 48000)
{
    StreamConfiguration configuration{.sampleRateHz = rateHz, .format = SampleFormat::S32};
    configuration.outputSlots = static_cast<std::uint32_t>(outputs.size());
    configuration.outputs = {};
    std::copy(outputs.begin(), outputs.end(), configuration.outputs.begin());
    return configuration;
}

const StreamConfiguration kFronts = with({{Engine, 0}, {Engine, 1}, {Engine, 2}});
const StreamConfiguration kFive = with({{Engine, 0}, {Engine, 1}, {Engine, 2}, {Surround, 0}, {Surround, 1}});
const StreamConfiguration kTwo = with({{Dialogue, 0}, {Dialogue, 1}});

/// Stereo whose frames sourceAt returns, at half of full scale.
Samples stereoOf(std::size_t frames, const std::function<Frame(std::size_t, Random&)>& sourceAt)
{
    Random random(5);
    Samples stereo;
    for (std::size_t i = 0; i < frames; ++i) {
        const Frame frame = sourceAt(i, random);
        stereo.push_back(sampleOf(0.5 * frame.left, 32));
        stereo.push_back(sampleOf(0.5 * frame.right, 32));
    }
    return stereo;
}

Samples stereoOf(std::size_t frames, Signal signal)
{
    return stereoOf(frames, [signal](std::size_t i, Random& random) { return frameOf(signal, i, random); });
}

/// Noise at an angle of the constant-power pan law: 0 left, 45 centre, 90 right.
Samples pannedNoise(std::size_t frames, double degrees)
{
    const double angle = degrees * std::numbers::pi / 180.0;
    return stereoOf(frames, [angle](std::size_t /*i*/, Random& random) {
        const double sample = random.uniform();
        return Frame{sample * std::cos(angle), sample * std::sin(angle)};
    });
}

/// White noise filtered to about -3 dB an octave (Paul Kellet's economy filter).
class PinkNoise
{
public:
    double next(Random& random)
    {
        const double white = random.uniform();
        low = 0.99765 * low + 0.0990460 * white;
        middle = 0.96300 * middle + 0.2965164 * white;
        high = 0.57000 * high + 1.0526913 * white;
        return 0.1 * (low + middle + high + 0.1848 * white);
    }

private:
    double low = 0.0;
    double middle = 0.0;
    double high = 0.0;
};

/// Independent pink noise left and right.
Samples diffuseField(std::size_t frames)
{
    PinkNoise left;
    PinkNoise right;
    return stereoOf(frames, [&](std::size_t /*i*/, Random& random) {
        return Frame{left.next(random), right.next(random)};
    });
}

Samples processed(UpmixStream& stream, const StreamConfiguration& configuration, const Samples& stereo)
{
    Samples output(stereo.size() / 2 * configuration.outputSlots);
    stream.process(stereo.data(), output.data(), stereo.size() / 2);
    return output;
}

/// The output for stereo, with settings that are made before the first frame.
Samples outputOf(
    const StreamConfiguration& configuration, const Samples& stereo,
    const std::function<void(UpmixStream&)>& set = [](UpmixStream&) {})
{
    UpmixStream stream(configuration);
    set(stream);
    return processed(stream, configuration, stereo);
}

/// Mean powers of the slots of a frame from a frame on, in the scale of the samples.
std::vector<double> powersOf(const Samples& frames, std::size_t slots, std::size_t first)
{
    std::vector<double> powers(slots);
    for (std::size_t i = first * slots; i < frames.size(); ++i)
        powers[i % slots] += static_cast<double>(frames[i]) * frames[i];
    const std::size_t count = frames.size() / slots - first;
    for (double& power : powers) power /= static_cast<double>(count);
    return powers;
}

} // namespace

class SurroundSlots : public testing::TestWithParam<std::uint32_t>
{
protected:
    StreamConfiguration five() const
    {
        StreamConfiguration configuration = kFive;
        configuration.sampleRateHz = GetParam();
        return configuration;
    }

    static void setFullLevel(UpmixStream& stream) { stream.setSurroundGain(1.0f); }
};

TEST_P(SurroundSlots, LeaveTheFrontsAsTheyAre)
{
    const Samples stereo = stereoOf(20000, Signal::TravellingSource);
    StreamConfiguration threeSlots = kFronts;
    threeSlots.sampleRateHz = GetParam();
    const Samples three = outputOf(threeSlots, stereo);
    const Samples withSurrounds = outputOf(five(), stereo);
    for (std::size_t i = 0; i < three.size(); ++i) ASSERT_EQ(withSurrounds[i / 3 * 5 + i % 3], three[i]) << i;
}

TEST_P(SurroundSlots, AreExactlySilentForSourcesInTheCentreAndAtASide)
{
    for (const double degrees : {0.0, 45.0, 90.0}) {
        Samples stereo = pannedNoise(30000, degrees);
        if (degrees == 45.0)
            for (std::size_t i = 0; i < stereo.size(); i += 2) stereo[i] = stereo[i + 1];
        if (degrees == 90.0)
            for (std::size_t i = 0; i < stereo.size(); i += 2) stereo[i] = 0;
        const std::vector<double> powers = powersOf(outputOf(five(), stereo, setFullLevel), 5, 0);
        EXPECT_EQ(powers[3] + powers[4], 0.0) << degrees << " degrees";
    }
}

TEST_P(SurroundSlots, OfASinglePannedSourceAreBelowMinus100Db)
{
    for (int step = 0; step < 18; ++step) {
        const double degrees = 2.5 + 5.0 * step;
        const Samples stereo = pannedNoise(GetParam(), degrees);
        const std::size_t settled = GetParam() / 2;
        const std::vector<double> powers = powersOf(outputOf(five(), stereo, setFullLevel), 5, settled);
        const std::vector<double> input = powersOf(stereo, 2, settled);
        EXPECT_LT(powers[3] + powers[4], 1e-10 * (input[0] + input[1])) << degrees << " degrees";
    }
}

TEST_P(SurroundSlots, CarryTheDiffuseFieldAndWhatIsInOppositePhase)
{
    const std::size_t settled = GetParam() / 2;
    const Samples diffuse = diffuseField(4 * std::size_t{GetParam()});
    const Samples output = outputOf(five(), diffuse, setFullLevel);
    const std::vector<double> powers = powersOf(output, 5, settled);
    const double total = powers[0] + powers[1] + powers[2] + powers[3] + powers[4];
    const double behind = (powers[3] + powers[4]) / total;
    EXPECT_GT(behind, 0.40);
    EXPECT_LT(behind, 0.43);
    const std::vector<double> input = powersOf(diffuse, 2, settled);
    EXPECT_LT(std::fabs(10.0 * std::log10(total / (input[0] + input[1]))), 1.0);

    double product = 0.0;
    for (std::size_t i = 5 * settled; i < output.size(); i += 5)
        product += static_cast<double>(output[i + 3]) * output[i + 4];
    const std::size_t frames = output.size() / 5 - settled;
    EXPECT_LT(std::fabs(product / static_cast<double>(frames) / std::sqrt(powers[3] * powers[4])), 0.25);

    const Samples opposite = outputOf(five(), stereoOf(GetParam(), Signal::OppositeNoise), setFullLevel);
    const std::vector<double> outOfPhase = powersOf(opposite, 5, settled);
    EXPECT_GT((outOfPhase[3] + outOfPhase[4]) / (outOfPhase[0] + outOfPhase[1] + outOfPhase[2]), 0.6 / 0.4);
}

INSTANTIATE_TEST_SUITE_P(, SurroundSlots, testing::ValuesIn(zrk_tarn::kSampleRatesHz));

// A voice and a side source in the lowest band: the side draws the place of the voice away from the centre.
TEST(Surrounds, HaveLittleOfACentredVoiceBesideASource)
{
    constexpr double kVoice = 0.2;
    const auto phaseOf = [](double hz, std::size_t i) {
        return 2.0 * std::numbers::pi * hz * static_cast<double>(i) / 48000.0;
    };
    const Samples stereo = stereoOf(96000, [&](std::size_t i, Random& /*random*/) {
        const double voice = kVoice * std::sin(phaseOf(200.0, i));
        return Frame{voice + 0.7 * kVoice * std::sin(phaseOf(290.0, i)), voice};
    });
    const Samples output = outputOf(kFive, stereo, [](UpmixStream& stream) { stream.setSurroundGain(1.0f); });
    std::complex<double> found = 0.0;
    std::complex<double> whole = 0.0;
    for (std::size_t i = 48000; i < 96000; ++i) {
        const std::complex<double> turn = std::polar(1.0, -phaseOf(200.0, i));
        found += turn * static_cast<double>(output[5 * i + 3]);
        whole += turn * static_cast<double>(stereo[2 * i + 1]);
    }
    EXPECT_LT(20.0 * std::log10(std::abs(found / whole)), -21.0);
}

TEST(Surrounds, FadeToSilenceInBypass)
{
    const Samples stereo = stereoOf(10000, Signal::DiffuseNoise);
    UpmixStream stream(kFive);
    const std::vector<double> before = powersOf(processed(stream, kFive, stereo), 5, kLatency);
    EXPECT_GT(before[3], 0.0);
    stream.setBypass(true);
    const std::vector<double> after = powersOf(processed(stream, kFive, stereo), 5, 1024 + 64);
    EXPECT_EQ(after[3], 0.0);
    EXPECT_EQ(after[4], 0.0);
}

TEST(Surrounds, GainFadesAndIsClamped)
{
    const Samples stereo = stereoOf(10000, Signal::DiffuseNoise);
    const auto powerAt = [&](float gain) {
        return powersOf(outputOf(kFive, stereo, [gain](UpmixStream& s) { s.setSurroundGain(gain); }), 5, 2000)[3];
    };
    EXPECT_EQ(powerAt(0.0f), 0.0);
    EXPECT_EQ(powerAt(-1.0f), 0.0);
    EXPECT_EQ(powerAt(100.0f), powerAt(zrk_tarn::kMaxChannelGain));
    EXPECT_EQ(powerAt(std::numeric_limits<float>::quiet_NaN()), powerAt(zrk_tarn::kTypicalSurroundGain));

    UpmixStream stream(kFive);
    processed(stream, kFive, stereo);
    stream.setSurroundGain(0.0f);
    const Samples fading = processed(stream, kFive, stereo);
    const Samples early(fading.begin() + 5 * 64, fading.begin() + 5 * 500);
    EXPECT_GT(powersOf(early, 5, 0)[3], 0.0);
    EXPECT_EQ(powersOf(fading, 5, 1024 + 64)[3], 0.0);
}

TEST(CentreControls, FadeWithin1024FramesAndReturnToExactSamples)
{
    const Samples stereo = stereoOf(6000, Signal::TravellingSource);
    UpmixStream plain(kFronts);
    UpmixStream changed(kFronts);
    processed(plain, kFronts, stereo);
    processed(changed, kFronts, stereo);
    changed.setCentreGain(2.0f);
    changed.setCentreWidth(0.5f);
    EXPECT_NE(processed(changed, kFronts, stereo), processed(plain, kFronts, stereo));
    changed.setCentreGain(1.0f);
    changed.setCentreWidth(1.0f);
    Samples back = processed(changed, kFronts, stereo);
    Samples expected = processed(plain, kFronts, stereo);
    EXPECT_NE(back, expected);
    back.erase(back.begin(), back.begin() + std::ptrdiff_t{3} * (1024 + 64));
    expected.erase(expected.begin(), expected.begin() + std::ptrdiff_t{3} * (1024 + 64));
    EXPECT_EQ(back, expected);
}

// A step in a sample is a click. The second difference shows it: that of the tone is small.
TEST(CentreControls, ChangeWithoutAClick)
{
    const Samples tone = stereoOf(20000, [](std::size_t i, Random& /*random*/) {
        const double sample = 0.5 * std::cos(2.0 * std::numbers::pi * 100.0 * static_cast<double>(i) / 48000.0);
        return Frame{sample, sample};
    });
    UpmixStream stream(kFronts);
    processed(stream, kFronts, tone);
    stream.setCentreWidth(0.0f);
    stream.setCentreGain(2.0f);
    Samples output = processed(stream, kFronts, tone);
    stream.setCentreWidth(1.0f);
    const Samples back = processed(stream, kFronts, tone);
    output.insert(output.end(), back.begin(), back.end());
    double largest = 0.0;
    for (std::size_t i = 3 * 12000 + 6; i < 3 * 28000; ++i) {
        if (i / 3 >= 20000 - 2 && i / 3 < 20000 + 1100) continue; // the tone itself begins again
        const double difference = (static_cast<double>(output[i]) - 2.0 * output[i - 3] + output[i - 6]) * 0x1p-31;
        largest = std::max(largest, std::fabs(difference));
    }
    EXPECT_LT(largest, 0.002);
}

TEST(CentreControls, AreClamped)
{
    const Samples stereo = stereoOf(4000, Signal::CentredNoise);
    const auto outputAt = [&](float gain, float width) {
        return outputOf(kFronts, stereo, [=](UpmixStream& stream) {
            stream.setCentreGain(gain);
            stream.setCentreWidth(width);
        });
    };
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(outputAt(kNaN, kNaN), outputAt(1.0f, 1.0f));
    EXPECT_EQ(outputAt(1.0f, 2.0f), outputAt(1.0f, 1.0f));
    EXPECT_EQ(outputAt(1.0f, -2.0f), outputAt(1.0f, 0.0f));
    EXPECT_EQ(outputAt(-1.0f, 1.0f), outputAt(0.0f, 1.0f));
    EXPECT_EQ(outputAt(5.0f, 1.0f), outputAt(zrk_tarn::kMaxChannelGain, 1.0f));
}

TEST(DialogueSlots, AreTheDelayedInputAtGainOneInEveryFormat)
{
    Random random(9);
    for (const SampleFormat format : {SampleFormat::S16, SampleFormat::S24, SampleFormat::S32, SampleFormat::F32}) {
        StreamConfiguration configuration = kTwo;
        configuration.format = format;
        const std::size_t bytes = format == SampleFormat::S16 ? 2 : format == SampleFormat::S24 ? 3 : 4;
        constexpr std::size_t kFrames = 4000;
        std::vector<std::uint8_t> input(kFrames * 2 * bytes);
        for (std::size_t i = 0; i < kFrames * 2; ++i) {
            const std::uint32_t bits = random.bits();
            const float value = static_cast<float>(bits >> 8) * 0x1p-24f - 0.5f; // a 32-bit integer holds it
            std::memcpy(&input[i * bytes], format == SampleFormat::F32 ? static_cast<const void*>(&value) : &bits,
                        bytes);
        }
        std::vector<std::uint8_t> output(input.size());
        UpmixStream(configuration).process(input.data(), output.data(), kFrames);
        EXPECT_TRUE(
            std::equal(output.begin() + static_cast<std::ptrdiff_t>(kLatency * 2 * bytes), output.end(), input.begin()))
            << static_cast<int>(format);
    }
}

TEST(DialogueSlots, ChangeACentredVoiceByTheGain)
{
    const Samples voice = stereoOf(96000, Signal::CentredNoise);
    const double plain = powersOf(outputOf(kTwo, voice), 2, 48000)[0];
    for (const float gain : {0.1f, 0.5f, 1.5f}) {
        const Samples output = outputOf(kTwo, voice, [&](UpmixStream& stream) { stream.setCentreGain(gain); });
        const double changeDb = 10.0 * std::log10(powersOf(output, 2, 48000)[0] / plain);
        EXPECT_NEAR(changeDb, 20.0 * std::log10(static_cast<double>(gain)), 0.1);
    }
}

TEST(DialogueSlots, AreTheInputInBypass)
{
    const Samples stereo = stereoOf(6000, Signal::TravellingSource);
    const Samples output = outputOf(kTwo, stereo, [](UpmixStream& stream) {
        stream.setCentreGain(2.0f);
        stream.setBypass(true);
    });
    EXPECT_TRUE(std::equal(output.begin() + 2 * kLatency, output.end(), stereo.begin()));
}

namespace
{

const StreamConfiguration kWithBass = [] {
    StreamConfiguration configuration = kFive;
    configuration.bass = zrk_tarn::BassMode::Fronts;
    return configuration;
}();

/// A tone left and right, with different levels.
Samples tone(double hz, double left, double right)
{
    return stereoOf(48000, [=](std::size_t i, Random& /*random*/) {
        const double sample = std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / 48000.0);
        return Frame{left * sample, right * sample};
    });
}

/// Power of the sum of the first slots of five, relative to that of left plus right, in dB.
double sumDb(const Samples& output, const Samples& stereo, std::size_t slots)
{
    double after = 0.0;
    double before = 0.0;
    for (std::size_t i = 24000; i < 48000; ++i) {
        double sum = 0.0;
        for (std::size_t slot = 0; slot < slots; ++slot) sum += output[5 * i + slot];
        after += sum * sum;
        before += std::pow(static_cast<double>(stereo[2 * i]) + stereo[2 * i + 1], 2.0);
    }
    return 10.0 * std::log10(after / before);
}

} // namespace

TEST(BassInTheFronts, HasTheLevelOfTheStereoMinus3DbWhereverTheSourceIs)
{
    for (const auto& [left, right] : {std::pair{1.0, 1.0}, {1.0, 0.0}, {0.3, 1.0}}) {
        const Samples stereo = tone(40.0, left, right);
        const Samples output = outputOf(kWithBass, stereo);
        EXPECT_NEAR(sumDb(output, stereo, 5), -3.01, 0.1) << left << ", " << right;
        const std::vector<double> powers = powersOf(output, 5, 24000);
        EXPECT_LT(powers[2] + powers[3] + powers[4], 1e-3 * (powers[0] + powers[1]));
    }
}

TEST(BassInTheFronts, LeavesHighFrequenciesToTheEngine)
{
    const Samples stereo = tone(2000.0, 1.0, 1.0);
    const std::vector<double> with = powersOf(outputOf(kWithBass, stereo), 5, 24000);
    const std::vector<double> without = powersOf(outputOf(kFive, stereo), 5, 24000);
    EXPECT_NEAR(10.0 * std::log10(with[2] / without[2]), 0.0, 0.01);
    EXPECT_LT(with[0] + with[1], 1e-4 * with[2]);
}

// Linkwitz-Riley filters of 4th order are at -6.02 dB at their frequency.
TEST(BassInTheFronts, LeavesTheSurroundChannelsFrom160HzOn)
{
    for (const auto& [hz, expectedDb] : {std::pair{80.0, -24.6}, {160.0, -6.02}, {320.0, -0.53}}) {
        const Samples stereo = tone(hz, 1.0, -1.0);
        const std::vector<double> with = powersOf(outputOf(kWithBass, stereo), 5, 24000);
        const std::vector<double> without = powersOf(outputOf(kFive, stereo), 5, 24000);
        for (const std::size_t slot : {std::size_t{3}, std::size_t{4}})
            EXPECT_NEAR(10.0 * std::log10(with[slot] / without[slot]), expectedDb, 0.1) << hz;
    }
}

TEST(Lfe, IsAsLoudAsTheBassOfTheFrontsInAReceiver)
{
    const StreamConfiguration configuration = with({{Engine, 0}, {Engine, 1}, {Lfe, 0}});
    const Samples stereo = tone(40.0, 1.0, 1.0);
    const auto set = [](UpmixStream& stream) { stream.setBass(zrk_tarn::BassMode::Fronts); };
    const Samples output = outputOf(configuration, stereo, set);
    double fronts = 0.0;
    double lfe = 0.0;
    for (std::size_t i = 24000; i < 48000; ++i) {
        fronts += std::pow(static_cast<double>(output[3 * i]) + output[3 * i + 1], 2.0);
        lfe += std::pow(static_cast<double>(output[3 * i + 2]), 2.0);
    }
    EXPECT_NEAR(10.0 * std::log10(lfe / fronts) + 10.0, 0.0, 0.1);
}

TEST(Lfe, IsSilentInBypass)
{
    const StreamConfiguration configuration = with({{Engine, 0}, {Engine, 1}, {Lfe, 0}});
    const Samples output = outputOf(configuration, tone(40.0, 1.0, 1.0), [](UpmixStream& s) { s.setBypass(true); });
    EXPECT_EQ(powersOf(output, 3, 0)[2], 0.0);
}

TEST(BassInTheFronts, CanBeSetBeforeTheFirstFrame)
{
    const Samples stereo = stereoOf(10000, Signal::DiffuseNoise);
    const auto set = [](UpmixStream& stream) { stream.setBass(zrk_tarn::BassMode::Fronts); };
    EXPECT_EQ(outputOf(kFive, stereo, set), outputOf(kWithBass, stereo));
    const auto unset = [](UpmixStream& stream) { stream.setBass(zrk_tarn::BassMode::Steered); };
    EXPECT_EQ(outputOf(kWithBass, stereo, unset), outputOf(kFive, stereo));
}

TEST(BassInTheFronts, FadesWithin1024FramesAndReturnsToExactSamples)
{
    const Samples stereo = tone(60.0, 1.0, 1.0);
    const Samples steered = outputOf(kFive, stereo);
    constexpr std::size_t kOn = 9600;
    constexpr std::size_t kOff = 28800;
    UpmixStream stream(kFive);
    Samples output(steered.size());
    const auto process = [&](std::size_t from, std::size_t to) {
        stream.process(stereo.data() + 2 * from, output.data() + 5 * from, to - from);
    };
    process(0, kOn);
    stream.setBass(zrk_tarn::BassMode::Fronts);
    process(kOn, kOff);
    stream.setBass(zrk_tarn::BassMode::Steered);
    process(kOff, stereo.size() / 2);

    const auto at = [](std::size_t frame) { return static_cast<std::ptrdiff_t>(5 * frame); };
    constexpr std::size_t kFade = 1024 + 64; // and the rest of a block
    EXPECT_TRUE(std::equal(output.begin(), output.begin() + at(kOn), steered.begin()));
    EXPECT_FALSE(std::equal(output.begin() + at(kOn), output.begin() + at(kOff), steered.begin() + at(kOn)));
    EXPECT_TRUE(std::equal(output.begin() + at(kOff + kFade), output.end(), steered.begin() + at(kOff + kFade)));

    // A click would have a second difference far above that of the tone, (2 pi 60 / 48000)^2 of its amplitude.
    const std::int64_t amplitude = std::int64_t{1} << 30;
    for (std::size_t i = kOn; i + 2 < stereo.size() / 2; ++i) {
        for (std::size_t slot = 0; slot < 3; ++slot) {
            const std::int64_t bend = std::int64_t{output[5 * i + slot]} -
                                      2 * std::int64_t{output[5 * (i + 1) + slot]} + output[5 * (i + 2) + slot];
            ASSERT_LT(std::abs(bend), amplitude / 1000) << i << ", " << slot;
        }
    }
}

namespace
{

StreamConfiguration limitedTo(StreamConfiguration configuration)
{
    configuration.limiter = true;
    return configuration;
}

const StreamConfiguration kLimited = limitedTo(kFive);
constexpr std::ptrdiff_t kLimiterFrames = 64;

} // namespace

TEST(StreamLimiter, DelaysBy64FramesAndIsExactBelowItsCeiling)
{
    EXPECT_EQ(UpmixStream::latencyFrames(kFive), kLatency);
    EXPECT_EQ(UpmixStream::latencyFrames(kLimited), kLatency + 64);
    StreamConfiguration configuration = kFive;
    configuration.outputs[4] = {Input, 1};
    const Samples stereo = stereoOf(10000, Signal::TravellingSource);
    const Samples plain = outputOf(configuration, stereo);
    UpmixStream stream(limitedTo(configuration));
    const Samples limited = processed(stream, configuration, stereo);
    EXPECT_TRUE(std::equal(limited.begin() + 5 * kLimiterFrames, limited.end(), plain.begin()));
    EXPECT_EQ(stream.meters().smallestLimiterGain, 1.0f);
    EXPECT_EQ(stream.meters().limitedBlocks, 0u);

    Samples tail(5 * 2000);
    EXPECT_EQ(stream.drain(tail.data(), 2000), kLatency + 64);
}

TEST(StreamLimiter, LimitsInsteadOfClipping)
{
    const Samples stereo = stereoOf(80000, [](std::size_t i, Random& /*random*/) {
        const double level = i < 24000 ? 1.9 : 0.1;
        const double sample = level * std::sin(0.02 * static_cast<double>(i));
        return Frame{sample, sample};
    });
    for (const SampleFormat format : {SampleFormat::S32, SampleFormat::F32}) {
        StreamConfiguration configuration = kLimited;
        configuration.format = format;
        UpmixStream stream(configuration);
        stream.setMakeUpGain(4.0f);
        std::vector<float> floats(stereo.size());
        for (std::size_t i = 0; i < stereo.size(); ++i) floats[i] = static_cast<float>(stereo[i] * 0x1p-31);
        const void* const input = format == SampleFormat::F32 ? static_cast<const void*>(floats.data()) : stereo.data();
        Samples output(stereo.size() / 2 * 5);
        stream.process(input, output.data(), stereo.size() / 2);
        const StreamMeters meters = stream.meters();
        EXPECT_EQ(meters.saturated, 0u);
        EXPECT_LT(meters.smallestLimiterGain, 0.3f);
        EXPECT_GT(meters.limitedBlocks, 300u);
        EXPECT_EQ(meters.limiterGain, 1.0f) << "the gain returns after the loud part";
        if (format == SampleFormat::F32) continue;
        std::int32_t largest = 0;
        for (const std::int32_t sample : output) largest = std::max(largest, std::abs(sample));
        EXPECT_LE(largest, Limiter::kCeiling * 0x1p31 * (1.0 + 0x1p-23));
        EXPECT_GT(largest, 0.9 * Limiter::kCeiling * 0x1p31);
    }
}

TEST(StreamLimiter, SwitchedOffClipsAsAStreamWithoutIt)
{
    const Samples stereo = stereoOf(10000, Signal::DiffuseNoise);
    const auto louder = [](UpmixStream& stream) { stream.setMakeUpGain(8.0f); };
    const auto louderAndOff = [&](UpmixStream& stream) {
        louder(stream);
        stream.setLimiting(false);
    };
    const Samples clipped = outputOf(kFive, stereo, louder);
    const Samples off = outputOf(kLimited, stereo, louderAndOff);
    ASSERT_EQ(*std::max_element(clipped.begin(), clipped.end()), std::numeric_limits<std::int32_t>::max());
    EXPECT_TRUE(std::equal(off.begin() + 5 * kLimiterFrames, off.end(), clipped.begin()));
}

TEST(StreamLimiter, SwitchedOffReturnsToGainOneWithItsTimeConstant)
{
    const Samples stereo = stereoOf(48000, Signal::DiffuseNoise);
    UpmixStream stream(kLimited);
    stream.setMakeUpGain(4.0f);
    processed(stream, kLimited, stereo);
    ASSERT_LT(stream.meters().limiterGain, 0.9f);
    stream.setLimiting(false);
    processed(stream, kLimited, stereoOf(2400, Signal::DiffuseNoise));
    EXPECT_LT(stream.meters().limiterGain, 1.0f) << "after 50 ms";
    processed(stream, kLimited, stereo);
    EXPECT_EQ(stream.meters().limiterGain, 1.0f) << "after 1 s";
}

// The filterbank overshoots where full scale begins; without the limiter, that is clipped.
TEST(StreamLimiter, RestoresWhatTheEngineClips)
{
    const Samples stereo = stereoOf(48000, [](std::size_t i, Random& /*random*/) {
        return Frame{i / 37 % 2 == 0 ? 1.999 : -1.999, i / 53 % 2 == 0 ? 1.999 : -1.999};
    });
    const Samples clipped = outputOf(kFive, stereo);
    EXPECT_GT(std::count(clipped.begin(), clipped.end(), INT32_MAX), 10);
    UpmixStream stream(kLimited);
    const Samples limited = processed(stream, kLimited, stereo);
    EXPECT_EQ(stream.meters().saturated, 0u);
    EXPECT_EQ(std::count(limited.begin(), limited.end(), INT32_MAX), 0);
}

TEST(StreamLimiter, LeavesBypassAsItIs)
{
    const Samples stereo = stereoOf(6000, [](std::size_t /*i*/, Random& random) {
        return Frame{1.999 * random.uniform(), 1.999 * random.uniform()};
    });
    const Samples output = outputOf(limitedTo(kTwo), stereo, [](UpmixStream& stream) { stream.setBypass(true); });
    EXPECT_TRUE(std::equal(output.begin() + 2 * (kLatency + 64), output.end(), stereo.begin()));
}

TEST(StreamLimiter, LeavesDialogueSlotsAsTheyAreAtGainOne)
{
    const Samples stereo = stereoOf(6000, [](std::size_t /*i*/, Random& random) {
        return Frame{1.999 * random.uniform(), 1.999 * random.uniform()};
    });
    for (const float width : {1.0f, 0.5f}) { // which has no effect
        const Samples output =
            outputOf(limitedTo(kTwo), stereo, [width](UpmixStream& stream) { stream.setCentreWidth(width); });
        EXPECT_TRUE(std::equal(output.begin() + 2 * (kLatency + 64), output.end(), stereo.begin())) << width;
    }
    UpmixStream louder(limitedTo(kTwo));
    louder.setCentreGain(2.0f);
    processed(louder, kTwo, stereo);
    EXPECT_LT(louder.meters().smallestLimiterGain, 1.0f);
}

} // namespace tests
