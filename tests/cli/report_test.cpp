// Report, gain, loudness match and bypass of `tarn upmix`.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

Samples scaled(Samples samples, double gain)
{
    for (std::int32_t& sample : samples)
        sample = static_cast<std::int32_t>(std::lround(sample * gain / 65536.0)) * 65536;
    return samples;
}

/// Samples with headroom.
Samples lowered(Samples samples)
{
    for (std::int32_t& sample : samples) sample >>= kHeadroomBits;
    return samples;
}

/// Applies a gain to left-justified 16-bit samples and counts the clipped ones.
std::size_t amplify(Samples& samples, float gain)
{
    std::size_t clipped = 0;
    for (std::int32_t& sample : samples) {
        const std::int32_t value = sample / 65536;
        const auto exact = static_cast<std::int64_t>(std::llround(static_cast<double>(gain) * value));
        const auto limited = std::clamp<std::int64_t>(exact, -32768, 32767);
        if (exact != limited) ++clipped;
        sample = static_cast<std::int32_t>(limited * 65536);
    }
    return clipped;
}

} // namespace

class Report : public CommandTest
{
protected:
    Json reportOf(const std::vector<std::string>& options) const
    {
        std::vector<std::string> arguments{"upmix", "--json", "--force", "in.wav", "out.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return Json::parse(result.output);
    }

    /// Writes and returns 1.5 s of stereo at a level.
    Samples writeInput(double gain) const
    {
        const Samples stereo = scaled(stereoNoise(72000, 16), gain);
        writeAudio(at("in.wav"), kWave16, 48000, 2, stereo);
        return stereo;
    }
};

TEST_F(Report, FiguresMatchTheWrittenFile)
{
    writeInput(1.0);
    const Json report = reportOf({"--layout", "5.1"});
    const Samples output = readAudio(at("out.wav")).samples;
    EXPECT_EQ(report["input"], "in.wav");
    EXPECT_EQ(report["output"], "out.wav");
    EXPECT_EQ(report["layout"], "5.1");
    EXPECT_EQ(report["sample_rate"], 48000);
    EXPECT_EQ(report["bits"], 16);
    EXPECT_EQ(report["frames"], 72000);
    EXPECT_EQ(report["seconds"], 1.5);
    EXPECT_EQ(report["delay_frames"], 0);
    EXPECT_EQ(report["clipped_samples"], 0);
    EXPECT_GT(report["speed"], 0.0);
    EXPECT_EQ(reportOf({"--layout", "5.1", "--no-align"})["delay_frames"], 960);

    double total = 0.0;
    for (const std::int32_t sample : output) total += std::pow(sample * 0x1p-31, 2.0);
    const std::vector<std::string> names{"FL", "FR", "FC", "LFE", "BL", "BR"};
    ASSERT_EQ(report["channels"].size(), names.size());
    for (std::size_t slot = 0; slot < names.size(); ++slot) {
        double peak = 0.0;
        double energy = 0.0;
        std::size_t fullScale = 0;
        for (std::size_t i = slot; i < output.size(); i += names.size()) {
            const double value = output[i] * 0x1p-31;
            peak = std::max(peak, std::abs(value));
            energy += value * value;
            if (output[i] == INT32_MIN || output[i] == 0x7fff0000) ++fullScale;
        }
        const Json& channel = report["channels"][slot];
        EXPECT_EQ(channel["name"], names[slot]);
        EXPECT_EQ(channel["full_scale_samples"], fullScale);
        if (energy == 0.0) {
            EXPECT_GE(slot, 3u);
            EXPECT_TRUE(channel["peak_dbfs"].is_null());
            EXPECT_TRUE(channel["rms_dbfs"].is_null());
            EXPECT_EQ(channel["energy_share"], 0.0);
        } else {
            EXPECT_EQ(channel["peak_dbfs"], 20.0 * std::log10(peak));
            EXPECT_EQ(channel["rms_dbfs"], 20.0 * std::log10(std::sqrt(energy / 72000.0)));
            EXPECT_EQ(channel["energy_share"], energy / total);
        }
    }
}

TEST_F(Report, GoesToStandardErrorWhenAudioIsOnStandardOutput)
{
    const Samples stereo = writeInput(0.5);
    const Result result = tarn({"upmix", "--json", "--quiet", "in.wav", "-"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(result.output == pcmOf(engineOutput(stereo, {}), 16));
    EXPECT_EQ(Json::parse(result.errors)["output"], "-");
}

TEST_F(Report, ClippedSamplesAreReportedWithQuiet)
{
    writeInput(1.0);
    const auto clipped = reportOf({"--no-limiter", "--gain", "12"})["clipped_samples"].get<std::uint64_t>();
    ASSERT_GT(clipped, 1u) << "precondition of this test";
    EXPECT_EQ(tarn({"upmix", "--force", "--quiet", "--no-limiter", "--gain", "12", "in.wav", "out.wav"}).errors,
              "tarn: out.wav: " + std::to_string(clipped) +
                  " samples were beyond full scale at a gain of +12.00 dB and are clipped; leave out --no-limiter, or "
                  "give a smaller --gain\n");
    EXPECT_NE(tarn({"upmix", "--force", "--preset", "plain", "--gain", "12", "in.wav", "out.wav"})
                  .errors.find(" and are clipped; add --limiter, or give a smaller --gain\n"),
              std::string::npos);
    EXPECT_EQ(tarn({"upmix", "--force", "--quiet", "in.wav", "out.wav"}).errors, "");
}

TEST_F(Report, ClippingByLoudnessMatchNamesItsGain)
{
    writeInput(1.0);
    const Result result = tarn({"upmix", "--quiet", "--json", "--no-limiter", "--loudness-match", "in.wav", "out.wav"});
    const Json report = Json::parse(result.output);
    const auto clipped = report["clipped_samples"].get<std::uint64_t>();
    ASSERT_GT(clipped, 0u) << "precondition of this test";
    char gain[20];
    std::snprintf(gain, sizeof gain, "%+.2f dB", report["gain_db"].get<double>());
    EXPECT_EQ(result.errors, "tarn: out.wav: " + std::to_string(clipped) +
                                 " samples were beyond full scale at a gain of " + gain +
                                 " and are clipped; leave out --no-limiter, or give --gain with less than " + gain +
                                 " instead of --loudness-match\n");
}

TEST_F(Report, HasTheWorkOfTheLimiter)
{
    writeInput(1.0);
    const Json limiter = reportOf({"--gain", "12"})["limiter"];
    EXPECT_GT(limiter["seconds"], 1.0);
    EXPECT_LE(limiter["seconds"], 1.6);
    EXPECT_GT(limiter["largest_reduction_db"], 6.0);
    EXPECT_LT(limiter["largest_reduction_db"], 18.0);
    const Json report = reportOf({"--gain", "-12"});
    EXPECT_EQ(report["limiter"]["seconds"], 0.0);
    EXPECT_EQ(report["limiter"]["largest_reduction_db"], 0.0);
    EXPECT_TRUE(reportOf({"--no-limiter"})["limiter"].is_null());
}

TEST_F(Report, SummaryHasTheWorkOfTheLimiter)
{
    writeInput(1.0);
    const Result result = tarn({"upmix", "--json", "--gain", "12", "in.wav", "out.wav"});
    const Json limiter = Json::parse(result.output)["limiter"];
    char expected[80];
    std::snprintf(expected, sizeof expected, "0:01.500, limited by up to %.1f dB for %.1f s, ",
                  limiter["largest_reduction_db"].get<double>(), limiter["seconds"].get<double>());
    EXPECT_NE(result.errors.find(expected), std::string::npos) << result.errors << expected;
    for (const std::vector<std::string>& without :
         std::vector<std::vector<std::string>>{{"--gain", "-12"}, {"--gain", "12", "--no-limiter"}, {"--bypass"}}) {
        std::vector<std::string> arguments{"upmix", "--force", "in.wav", "out.wav"};
        arguments.insert(arguments.end(), without.begin(), without.end());
        const std::string notes = tarn(arguments).errors;
        EXPECT_NE(notes.find("0:01.500, "), std::string::npos) << notes;
        EXPECT_EQ(notes.find("limited"), std::string::npos) << notes;
    }
}

TEST_F(Report, DoesNotChangeTheOutput)
{
    writeInput(1.0);
    reportOf({});
    const std::string with = bytesOf(at("out.wav"));
    ASSERT_EQ(tarn({"upmix", "in.wav", "plain.wav"}).exitCode, 0);
    EXPECT_TRUE(bytesOf(at("plain.wav")) == with);
}

TEST_F(Report, GainAppliesFromTheFirstSampleAndCountsClipping)
{
    const Samples stereo = writeInput(0.5);
    for (const double gainDb : {-6.0, 0.0, 3.5, 12.0}) {
        Samples expected = engineOutput(stereo, {.plain = true});
        const std::size_t clipped = amplify(expected, static_cast<float>(std::pow(10.0, gainDb / 20.0)));
        const Json report = reportOf({"--preset", "plain", "--gain", std::to_string(gainDb)});
        EXPECT_TRUE(readAudio(at("out.wav")).samples == expected) << gainDb;
        EXPECT_EQ(report["clipped_samples"], clipped) << gainDb;
        EXPECT_EQ(report["gain_db"], gainDb);
        EXPECT_EQ(clipped > 0, gainDb == 12.0) << "precondition of this test";
    }
    EXPECT_NE(
        tarn({"upmix", "--force", "--no-limiter", "--gain", "12", "in.wav", "out.wav"}).errors.find("are clipped"),
        std::string::npos);
}

TEST_F(Report, LoudnessMatchReachesTheLoudnessOfTheInput)
{
    const Samples stereo = writeInput(0.1);
    const Json report = reportOf({"--preset", "plain", "--loudness-match"});
    const Json& loudness = report["loudness_lufs"];
    EXPECT_NEAR(loudness["output"], loudness["input"].get<double>(), 0.05);
    EXPECT_EQ(report["gain_db"], loudness["input"].get<double>() - loudness["output_without_gain"].get<double>());
    EXPECT_GT(std::abs(report["gain_db"].get<double>()), 0.3) << "precondition of this test";
    const auto gain = static_cast<double>(static_cast<float>(std::pow(10.0, report["gain_db"].get<double>() / 20.0)));
    Samples expected = engineOutput(lowered(stereo), {.bits = 32, .plain = true});
    for (std::int32_t& sample : expected)
        sample = static_cast<std::int32_t>(std::lround(gain * sample / 4096.0)) * 65536;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
}

TEST_F(Report, LoudnessMatchCountsSamplesOfTheOutput)
{
    const Samples stereo = writeInput(0.3);
    const Json report = reportOf({"--layout", "5.1", "--loudness-match"});
    const Samples output = readAudio(at("out.wav")).samples;
    EXPECT_TRUE(output == engineOutput(lowered(stereo),
                                       {.layout = "5.1", .headroom = true, .gainDb = report["gain_db"].get<double>()}));
    EXPECT_EQ(report["frames"], 72000);
    EXPECT_NEAR(report["loudness_lufs"]["output"], report["loudness_lufs"]["input"].get<double>(), 0.1);
    EXPECT_EQ(files(), (std::vector<std::string>{"in.wav", "out.wav"}));
}

TEST_F(Report, LoudnessMatchGoesThroughTheLimiter)
{
    Samples stereo = scaled(stereoNoise(72000, 16), 0.3);
    for (std::size_t i = 0; i < stereo.size(); ++i)
        if (i / 2 % 24000 < 40) stereo[i] = i / 2 % 40 < 20 ? 0x7fff0000 : -0x7fff0000;
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereo);
    const Json report = reportOf({"--loudness-match"});
    const Json& loudness = report["loudness_lufs"];
    EXPECT_GT(report["gain_db"], loudness["input"].get<double>() - loudness["output_without_gain"].get<double>() + 0.1)
        << "the gain makes up for the limiter";
    EXPECT_NEAR(loudness["output"], loudness["input"].get<double>(), 0.7);
    EXPECT_EQ(report["clipped_samples"], 0);
    EXPECT_GT(report["limiter"]["largest_reduction_db"], 3.0);
    EXPECT_LT(report["channels"][2]["peak_dbfs"], -0.9);
}

TEST_F(Report, LoudnessMatchSaysWhatTheLimiterHoldsBack)
{
    // The same square wave at full scale on both sides moves to one loudspeaker.
    Samples stereo;
    for (std::size_t i = 0; i < 72000; ++i) stereo.insert(stereo.end(), 2, i % 100 < 50 ? 0x7fff0000 : -0x7fff0000);
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereo);
    const Result result = tarn({"upmix", "--json", "--loudness-match", "--bass", "steered", "in.wav", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Json loudness = Json::parse(result.output)["loudness_lufs"];
    EXPECT_GT(loudness["shortfall"], 1.0);
    EXPECT_EQ(loudness["shortfall"], loudness["input"].get<double>() - loudness["output"].get<double>());
    EXPECT_NE(result.errors.find(" LU softer than the input, because the limiter holds its peaks back"),
              std::string::npos)
        << result.errors;
}

TEST_F(Report, LoudnessMatchDoesNotClipWhileItMeasures)
{
    writeInput(0.1);
    const Json soft = reportOf({"--loudness-match"})["loudness_lufs"];
    writeInput(1.0);
    const Json loud = reportOf({"--loudness-match"})["loudness_lufs"];
    for (const char* const name : {"input", "output_without_gain"})
        EXPECT_NEAR(loud[name].get<double>() - soft[name].get<double>(), 20.0, 0.01) << name;
}

TEST_F(Report, LoudnessMatchLeavesSilenceUnchanged)
{
    writeAudio(at("in.wav"), kWave16, 48000, 2, Samples(96000));
    const Json report = reportOf({"--loudness-match"});
    EXPECT_EQ(report["gain_db"], 0.0);
    EXPECT_TRUE(report["loudness_lufs"]["input"].is_null());
}

TEST_F(Report, LoudnessMatchLeavesAnUpmixBelowTheGateUnchanged)
{
    bool isFound = false;
    for (int level = 12; level > 3 && !isFound; --level) {
        Samples stereo;
        for (int i = 0; i < 72000; ++i) stereo.insert(stereo.end(), 2, (i % 48 < 24 ? level : -level) * 65536);
        writeAudio(at("in.wav"), kWave16, 48000, 2, stereo);
        const Json report = reportOf({"--loudness-match"});
        const Json& loudness = report["loudness_lufs"];
        isFound = loudness["input"].is_number() && loudness["output_without_gain"].is_null();
        if (isFound) {
            EXPECT_EQ(report["gain_db"], 0.0);
        }
    }
    EXPECT_TRUE(isFound) << "precondition of this test";
}

TEST_F(Report, LoudnessMatchReportsTheLoudnessOfTheRealFile)
{
    std::vector<float> floats;
    for (const std::int32_t sample : stereoNoise(72000, 16)) floats.push_back(static_cast<float>(sample) * 0x1p-31f);
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, floats);
    const double atFullScale = reportOf({"--loudness-match"})["loudness_lufs"]["input"];
    for (float& sample : floats) sample *= 2.0f;
    writeFloats(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, floats);
    const Json report = reportOf({"--loudness-match"});
    EXPECT_NEAR(report["loudness_lufs"]["input"].get<double>(), atFullScale + 20.0 * std::log10(2.0), 1e-6);
    EXPECT_EQ(report["input_gain_db"], 0.0);
}

TEST_F(Report, LoudnessMatchReadsAStreamOnce)
{
    const Samples stereo = writeInput(0.3);
    const Json file = reportOf({"--loudness-match"});
    const Samples expected = readAudio(at("out.wav")).samples;
    const Result result = tarnWithInput(
        pcmOf(stereo, 16), {"upmix", "--json", "--force", "--loudness-match", "--raw", "48000:16", "-", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
    EXPECT_EQ(Json::parse(result.output)["loudness_lufs"], file["loudness_lufs"]);
}

TEST_F(Report, LoudnessHasTheWeightsOfSurrounds)
{
    // At one frequency, the weight of the filter is the same in all channels. Opposite phase goes behind.
    Samples stereo;
    for (int i = 0; i < 144000; ++i) {
        const auto sample = static_cast<std::int32_t>(std::lround(3000.0 * std::sin(i * 0.13))) * 65536;
        stereo.insert(stereo.end(), {sample, -sample / 65536 / 2 * 65536});
    }
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereo);
    double stereoPower = 0.0;
    for (const std::int32_t sample : stereo) stereoPower += std::pow(sample * 0x1p-31, 2.0) / 144000.0;
    for (const std::string layout : {"5.1", "7.1"}) {
        const Json report = reportOf({"--layout", layout, "--loudness-match", "--surrounds", "6"});
        double power = 0.0;
        double behind = 0.0;
        for (const Json& channel : report["channels"]) {
            if (channel["rms_dbfs"].is_null()) continue;
            const double own = std::pow(10.0, channel["rms_dbfs"].get<double>() / 10.0);
            const char first = channel["name"].get<std::string>()[0];
            const bool isWeighted = first == (layout == "5.1" ? 'B' : 'S');
            power += own * (isWeighted ? 1.41 : 1.0);
            if (isWeighted) behind += own;
        }
        EXPECT_GT(behind, 0.2 * power) << "precondition of this test";
        const Json& loudness = report["loudness_lufs"];
        EXPECT_NEAR(loudness["output"].get<double>() - loudness["input"].get<double>(),
                    10.0 * std::log10(power / stereoPower), 0.1)
            << layout;
    }
}

TEST_F(Report, LoudnessMatchOnAFullDiskLeavesNothing)
{
    writeInput(0.3);
    const Result result = tarnOnFullDisk({"upmix", "--loudness-match", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 74);
    EXPECT_NE(result.errors.find(".: cannot store the upmix there to measure its loudness: "), std::string::npos)
        << result.errors;
    EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
}

TEST_F(Report, BypassIsStereoWithTheDelayOfTheUpmix)
{
    const Samples stereo = writeInput(1.0);
    for (const bool align : {true, false}) {
        const Json report = align ? reportOf({"--bypass"}) : reportOf({"--bypass", "--no-align"});
        EXPECT_EQ(report["bypass"], true);
        const Samples output = readAudio(at("out.wav")).samples;
        ASSERT_EQ(output.size(), 3 * 72000u);
        const std::size_t delay = align ? 0 : 960;
        for (std::size_t i = 0; i < 72000; ++i) {
            ASSERT_EQ(output[3 * i], i < delay ? 0 : stereo[2 * (i - delay)]) << i;
            ASSERT_EQ(output[3 * i + 1], i < delay ? 0 : stereo[2 * (i - delay) + 1]) << i;
            ASSERT_EQ(output[3 * i + 2], 0) << i;
        }
    }
}

TEST_F(Report, ConflictingOptionsAreRefused)
{
    writeInput(0.5);
    const auto expectRefusal = [this](const std::vector<std::string>& options, const std::string& message) {
        std::vector<std::string> arguments{"upmix"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, 64) << result.errors;
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav"}));
    };
    expectRefusal({"--bypass", "--gain", "3", "in.wav", "out.wav"}, "--bypass: leaves the samples as they are");
    expectRefusal({"--bypass", "--loudness-match", "in.wav", "out.wav"}, "--bypass");
    expectRefusal({"--gain", "3", "--loudness-match", "in.wav", "out.wav"}, "chooses the gain itself");
    expectRefusal({"--gain", "18.1", "in.wav", "out.wav"}, "--gain");
    expectRefusal({"--gain", "nan", "in.wav", "out.wav"}, "--gain");
    expectRefusal({"--layout", "2.0", "--loudness-match", "in.wav", "out.wav"},
                  "--loudness-match: has no effect on --layout 2.0 with a centre of 0 dB");
}

TEST_F(Report, Layout71WithoutSurroundsHasTheUpmixInItsFirstThreeSlots)
{
    const Samples stereo = writeInput(1.0);
    reportOf({"--layout", "7.1", "--preset", "plain"});
    EXPECT_TRUE(readAudio(at("out.wav")).samples == engineOutput(stereo, {.layout = "7.1", .plain = true}));
}

} // namespace tarn_cli
