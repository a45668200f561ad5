// One gain for all files of a run.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;

/// A file of floats with the peak 1.5, and a softer one.
class Album : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        for (const std::int32_t sample : stereoNoise(72000, 16)) loud.push_back(static_cast<float>(sample) * 0x1p-33f);
        loud[72000] = 1.5f;
        for (const float sample : loud) soft.push_back(0.5f * sample);
        // Equal sides, which move to the centre, so that it needs another gain than the first file.
        for (std::size_t i = 1; i < soft.size(); i += 2) soft[i] = soft[i - 1];
        writeFloats(at("loud.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, loud);
        writeFloats(at("soft.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, soft);
    }

    /// The report of a run over both files.
    Json reportOf(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"upmix", "--force", "--json", "--quiet", "--output-dir", "out"});
        options.insert(options.end(), {"loud.wav", "soft.wav"});
        const Result result = tarn(options);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return Json::parse(result.output)["files"];
    }

    static Samples scaled(const std::vector<float>& samples, double gain)
    {
        Samples result;
        for (const float sample : samples)
            result.push_back(static_cast<std::int32_t>(
                std::lround(std::min(static_cast<double>(sample) * gain * 0x1p31, 0x1p31 - 1.0))));
        return result;
    }

    std::vector<float> loud;
    std::vector<float> soft;
};

} // namespace

TEST_F(Album, ScalesAllFilesDownByTheHighestPeak)
{
    const Json alone = reportOf({"--preset", "plain"});
    EXPECT_NEAR(alone[0]["input_gain_db"], -3.5218, 1e-4);
    EXPECT_EQ(alone[1]["input_gain_db"], 0.0);
    const Json together = reportOf({"--preset", "plain", "--album"});
    EXPECT_EQ(together[0]["input_gain_db"], alone[0]["input_gain_db"]);
    EXPECT_EQ(together[1]["input_gain_db"], alone[0]["input_gain_db"]);
    EXPECT_TRUE(readAudio(at("out/loud.wav-3.0.wav")).samples ==
                engineOutput(scaled(loud, 1.0 / 1.5), {.bits = 24, .plain = true}));
    EXPECT_TRUE(readAudio(at("out/soft.wav-3.0.wav")).samples ==
                engineOutput(scaled(soft, 1.0 / 1.5), {.bits = 24, .plain = true}));
    EXPECT_NE(tarn({"upmix", "--force", "--preset", "plain", "--album", "--output-dir", "out", "loud.wav", "soft.wav"})
                  .errors.find("tarn: --album: the highest peak is 3.52 dB above full scale"),
              std::string::npos);
}

TEST_F(Album, MatchesTheLoudnessOfAllFilesWithOneGain)
{
    const Json alone = reportOf({"--no-limiter", "--loudness-match"});
    double input = 0.0;
    double upmixed = 0.0;
    for (const Json& file : alone) {
        input += std::pow(10.0, file["loudness_lufs"]["input"].get<double>() / 10.0);
        upmixed += std::pow(10.0, file["loudness_lufs"]["output_without_gain"].get<double>() / 10.0);
    }
    EXPECT_GT(std::abs(alone[0]["gain_db"].get<double>() - alone[1]["gain_db"].get<double>()), 0.1)
        << "precondition of this test";
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--loudness-match"}, {"--loudness-match", "--no-limiter", "-j2"}}) {
        std::vector<std::string> arguments{"--album"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Json together = reportOf(arguments);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_NEAR(together[i]["gain_db"], 10.0 * std::log10(input / upmixed), 1e-9);
            const Json& loudness = together[i]["loudness_lufs"];
            EXPECT_EQ(loudness["input"], alone[i]["loudness_lufs"]["input"]);
            EXPECT_EQ(loudness["output_without_gain"], alone[i]["loudness_lufs"]["output_without_gain"]);
        }
        const Json& softer = together[1];
        if (softer["limiter"].is_null()) {
            EXPECT_NEAR(softer["loudness_lufs"]["output"].get<double>(),
                        softer["loudness_lufs"]["output_without_gain"].get<double>() + softer["gain_db"].get<double>(),
                        0.02);
        }
        EXPECT_EQ(readAudio(at("out/soft.wav-3.0.wav")).samples.size(), soft.size() / 2 * 3);
    }
}

TEST_F(Album, LeavesFilesThatFailToTheUpmix)
{
    writeBytes(at("text.wav"), "no audio");
    const Result result =
        tarn({"upmix", "--json", "--album", "--loudness-match", "--output-dir", "out", "loud.wav", "text.wav"});
    EXPECT_EQ(result.exitCode, 65);
    const std::string message = "text.wav: is not an audio file";
    EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
    EXPECT_EQ(result.errors.find(message), result.errors.rfind(message)) << result.errors;
    EXPECT_GT(Json::parse(result.output)["files"][0]["gain_db"], 0.0);
}

TEST_F(Album, SaysWhenItHasNoEffect)
{
    EXPECT_EQ(tarn({"upmix", "--album", "--output-dir", "out", "loud.wav"})
                  .errors.find("tarn: --album: has no effect here: with the limiter and without --loudness-match, all "
                               "files get the same gain anyway\n"),
              0u);
    const Result result = tarn({"upmix", "--album", "loud.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("--album"), std::string::npos);
    EXPECT_NE(result.errors.find("--output-dir"), std::string::npos);
}

} // namespace tarn_cli
