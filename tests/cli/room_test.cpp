// The options for the centre and the surround channels.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>

namespace tarn_cli
{

namespace
{

class Room : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, stereo);
    }

    /// The output for options, interleaved.
    Samples outputOf(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"upmix", "--force", "--quiet"});
        options.insert(options.end(), {"in.wav", "out.wav"});
        const Result result = tarn(options);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return readAudio(at("out.wav")).samples;
    }

    /// Expects the message for options.
    void expectRefusal(std::vector<std::string> options, const std::string& message) const
    {
        options.insert(options.begin(), "upmix");
        options.insert(options.end(), {"in.wav", "refused.wav"});
        const Result result = tarn(options);
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        EXPECT_FALSE(std::filesystem::exists(at("refused.wav")));
    }

    static double powerOf(const Samples& frames, std::size_t slot, std::size_t slots)
    {
        double power = 0.0;
        for (std::size_t i = slot; i < frames.size(); i += slots) power += std::pow(frames[i] * 0x1p-31, 2.0);
        return power;
    }

    const Samples stereo = stereoNoise(20000, 24);
};

} // namespace

TEST_F(Room, PresetsStandForOptions)
{
    const Samples film = outputOf({"--layout", "5.1"});
    EXPECT_EQ(outputOf({"--layout", "5.1", "--preset", "film"}), film);
    EXPECT_EQ(film, engineOutput(stereo, {.layout = "5.1", .bits = 24}));
    EXPECT_EQ(outputOf({"--preset", "plain", "--bass", "fronts", "--gain", "3"}), outputOf({"--no-limiter"}));
    EXPECT_EQ(outputOf({"--preset", "plain", "--bass", "fronts", "--gain", "3", "--limiter"}), outputOf({}));
    EXPECT_NE(outputOf({"--bass", "steered"}), outputOf({}));
    EXPECT_EQ(outputOf({"--layout", "5.1", "--preset", "voice"}),
              outputOf({"--layout", "5.1", "--centre", "6", "--surrounds", "-9"}));
    EXPECT_EQ(outputOf({"--layout", "5.1", "--preset", "music"}), outputOf({"--layout", "5.1", "--width", "0.6"}));
    EXPECT_NE(outputOf({"--layout", "5.1", "--preset", "voice"}), film);
    EXPECT_NE(outputOf({"--layout", "5.1", "--preset", "music"}), film);
}

TEST_F(Room, WithoutSurroundsTheSlotsBehindAreSilent)
{
    const Samples plain = outputOf({"--layout", "5.1", "--preset", "plain"});
    EXPECT_EQ(plain, engineOutput(stereo, {.layout = "5.1", .bits = 24, .plain = true}));
    EXPECT_EQ(outputOf({"--layout", "5.1", "--surrounds", "off", "--bass", "steered", "--gain", "0", "--no-limiter"}),
              plain);
}

TEST_F(Room, LfeIsSilentUnlessItHasAGain)
{
    const Samples film = outputOf({"--layout", "5.1"});
    EXPECT_EQ(powerOf(film, 3, 6), 0.0);
    EXPECT_EQ(outputOf({"--layout", "5.1", "--lfe", "off"}), film);
    const Samples withLfe = outputOf({"--layout", "5.1", "--lfe", "0"});
    EXPECT_GT(powerOf(withLfe, 3, 6), 0.0);
    EXPECT_EQ(withLfe, engineOutput(stereo, {.layout = "5.1", .bits = 24, .lfeDb = 0.0}));
    EXPECT_EQ(outputOf({"--layout", "7.1", "--lfe", "-6"}),
              engineOutput(stereo, {.layout = "7.1", .bits = 24, .lfeDb = -6.0}));
}

TEST_F(Room, SevenOneHasTwoPairsThatAre3DbSofter)
{
    const Samples five = outputOf({"--layout", "5.1"});
    const Samples seven = outputOf({"--layout", "7.1"});
    EXPECT_EQ(seven, engineOutput(stereo, {.layout = "7.1", .bits = 24}));
    for (std::size_t side = 0; side < 2; ++side) {
        const double behind = powerOf(five, 4 + side, 6);
        EXPECT_NEAR(powerOf(seven, 6 + side, 8) / behind, 0.5, 1e-5) << "sides have the chains of 5.1";
        EXPECT_NEAR(10.0 * std::log10(powerOf(seven, 4 + side, 8) / behind), -3.0, 0.5);
    }
    EXPECT_EQ(powerOf(seven, 3, 8), 0.0);
}

TEST_F(Room, TwoLoudspeakersGetTheInputUnlessTheCentreChanges)
{
    EXPECT_EQ(outputOf({"--layout", "2.0"}), stereo);
    EXPECT_NE(tarn({"upmix", "--layout", "2.0", "in.wav", "copy.wav"})
                  .errors.find("the stereo is not changed, because the gain of the centre is 0 dB"),
              std::string::npos);
    writeAudio(at("two.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, stereo);
    const std::string notes = tarn({"upmix", "--layout", "2.0", "--output-dir", "out", "in.wav", "two.wav"}).errors;
    const std::string note = "tarn: --layout 2.0: the stereo is not changed, because the gain of the centre is 0 dB";
    EXPECT_EQ(notes.find(note), 0u) << notes;
    EXPECT_EQ(notes.find(note, 1), std::string::npos) << notes;
    const Samples upmixed = outputOf({"--preset", "plain"});
    const Samples louder = outputOf({"--layout", "2.0", "--centre", "-60"});
    const double change = static_cast<double>(static_cast<float>(std::pow(10.0, -3.0))) - 1.0;
    for (std::size_t i = 0; i < stereo.size(); ++i) {
        const double centre = std::ldexp(upmixed[i / 2 * 3 + 2], -8);
        ASSERT_EQ(louder[i] / 256, std::lround(std::ldexp(stereo[i], -8) + change * centre)) << i;
    }
}

TEST_F(Room, ReportsHaveTheSettingsThatHaveAnEffect)
{
    const auto reportOf = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"upmix", "--force", "--quiet", "--json"});
        options.insert(options.end(), {"in.wav", "out.wav"});
        return nlohmann::json::parse(tarn(options).output);
    };
    const auto five = reportOf({"--layout", "5.1", "--preset", "voice", "--width", "0.5"});
    EXPECT_EQ(five["centre_db"], 6.0);
    EXPECT_EQ(five["width"], 0.5);
    EXPECT_EQ(five["surrounds_db"], -9.0);
    EXPECT_TRUE(five["lfe_db"].is_null());
    EXPECT_EQ(reportOf({"--layout", "5.1", "--lfe", "-3"})["lfe_db"], -3.0);
    EXPECT_EQ(five["bass"], "fronts");
    EXPECT_EQ(reportOf({"--bass", "steered"})["bass"], "steered");
    EXPECT_TRUE(reportOf({"--layout", "5.1", "--surrounds", "off"})["surrounds_db"].is_null());
    const auto two = reportOf({"--layout", "2.0", "--centre", "3"});
    EXPECT_EQ(two["centre_db"], 3.0);
    EXPECT_FALSE(two.contains("width"));
    EXPECT_FALSE(two.contains("surrounds_db"));
    EXPECT_FALSE(reportOf({"--bypass"}).contains("centre_db"));
}

TEST_F(Room, RefusesWhatHasNoEffect)
{
    writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n");
    expectRefusal({"--surrounds", "-6"}, "--surrounds: --layout 3.0 has no surround channels; use --layout 5.1");
    expectRefusal({"--lfe", "0"}, "--lfe: --layout 3.0 has no LFE channel; use --layout 5.1");
    expectRefusal({"--layout", "2.0", "--width", "0.5"}, "--width: has no effect on --layout 2.0");
    expectRefusal({"--layout", "7.1-remap", "--remap", "matrix.txt", "--centre", "3"},
                  "--centre: has no effect on --layout 7.1-remap");
    expectRefusal({"--layout", "2.0", "--bass", "steered"}, "--bass: has no effect on --layout 2.0");
    expectRefusal({"--bass", "loud"}, "'loud' is not steered or fronts");
    expectRefusal({"--bypass", "--centre", "3"}, "--centre: --bypass leaves the samples as they are");
    for (const char* const option : {"--limiter", "--no-limiter"}) {
        expectRefusal({"--bypass", option}, std::string(option) + ": --bypass leaves the samples as they are");
        expectRefusal({"--layout", "7.1-remap", "--remap", "matrix.txt", option},
                      std::string(option) + ": has no effect on --layout 7.1-remap, whose matrix sets the levels");
    }
    expectRefusal({"--bypass", "--preset", "voice"}, "--preset: --bypass leaves the samples as they are");
    expectRefusal({"--layout", "7.1-remap", "--remap", "matrix.txt", "--preset", "voice"},
                  "--preset: has no effect on --layout 7.1-remap");
    expectRefusal({"--limiter", "--no-limiter"}, "--limiter: contradicts --no-limiter; leave one of them out");
    expectRefusal({"--centre", "13"}, "--centre: 13 is out of range; use -60 to 12, for example --centre 6; see");
    expectRefusal({"--centre", "loud"}, "'loud' is not a number from -60 to 12; write for example --centre 6; see");
    expectRefusal({"--centre", "nan"}, "--centre: 'nan' is not a number from -60 to 12");
    expectRefusal({"--width", "1.5"}, "--width: 1.5 is out of range; use 0 to 1");
    expectRefusal({"--layout", "5.1", "--surrounds", "20"}, "--surrounds: 20 is out of range; use -60 to 12");
    expectRefusal({"--layout", "5.1", "--surrounds", "loud"}, "'loud' is not off or a number from -60 to 12");
    EXPECT_EQ(outputOf({"--layout", "5.1", "--surrounds", "1e-400"}),
              outputOf({"--layout", "5.1", "--surrounds", "0"}));
    expectRefusal({"--preset", "party"}, "'party' is not film, music, voice or plain");
}

} // namespace tarn_cli
