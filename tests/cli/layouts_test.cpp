// Layouts: the slots and channel masks that output files declare, and their samples.
// SPDX-License-Identifier: MIT
#include "cli/layout.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>
#include <string_view>

namespace tarn_cli
{

/// What a layout must be.
struct NamedLayout
{
    std::string_view option;
    std::string_view slots;
    std::uint32_t mask;    ///< in WAV
    std::string_view name; ///< in ffprobe
};

/// One line for each layout, in the order of tarn::layoutNames().
constexpr std::array kLayouts{
    NamedLayout{"2.0", "FL FR", 0x3, "stereo"},
    NamedLayout{"3.0", "FL FR FC", 0x7, "3.0"},
    NamedLayout{"5.1", "FL FR FC LFE BL BR", 0x3f, "5.1"},
    NamedLayout{"7.1", "FL FR FC LFE BL BR SL SR", 0x63f, "7.1"},
    NamedLayout{"7.1-remap", "FL FR FC LFE BL BR SL SR", 0x63f, "7.1"},
};

std::ostream& operator<<(std::ostream& stream, const NamedLayout& layout)
{
    return stream << layout.option;
}

class Layouts : public CommandTest, public testing::WithParamInterface<NamedLayout>
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, stereo);
        writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.25\n");
    }

    /// Upmixes in.wav and returns the report.
    nlohmann::json upmix(const std::string& output) const
    {
        std::vector<std::string> arguments{"upmix", "--json", "--layout", option(), "in.wav", output};
        if (GetParam().option == "7.1-remap") arguments.insert(arguments.end(), {"--remap", "matrix.txt"});
        const Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return nlohmann::json::parse(result.output);
    }

    /// Channel layout that ffprobe reports for a file.
    std::string probed(const std::string& name) const
    {
        const Result result = runIn(
            directory, {.arguments = {"-v", "error", "-show_entries",
                                      "stream=channels,channel_layout,bits_per_raw_sample", "-of", "csv=p=0", name},
                        .program = "ffprobe"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result.output;
    }

    static std::string expected() { return std::to_string(channels()) + "," + std::string(GetParam().name) + ",24\n"; }

    static std::string option() { return std::string(GetParam().option); }

    static std::size_t channels() { return static_cast<std::size_t>(std::ranges::count(GetParam().slots, ' ')) + 1; }

    const Samples stereo = stereoNoise(8000, 24);
};

TEST(LayoutTable, IsTestedCompletely)
{
    std::vector<std::string> tested;
    for (const NamedLayout& layout : kLayouts) tested.emplace_back(layout.option);
    EXPECT_EQ(tested, tarn::layoutNames()) << "kLayouts in this file";
}

TEST_P(Layouts, SlotsHaveTheSamplesThatTheirNamesSay)
{
    const nlohmann::json report = upmix("out.wav");
    std::string slots;
    for (const auto& channel : report["channels"]) slots += (slots.empty() ? "" : " ") + std::string(channel["name"]);
    EXPECT_EQ(slots, GetParam().slots);
    const std::array<std::array<std::int32_t, 4>, 3> matrix{
        {{0x10000000, 0, 0, 0}, {0, 0x10000000, 0, 0}, {0, 0, 0x8000000, 0x4000000}}};
    EXPECT_TRUE(readAudio(at("out.wav")).samples ==
                engineOutput(stereo, {.layout = option(), .bits = 24, .remap = matrix}));
}

TEST_P(Layouts, WaveFilesHaveTheChannelMask)
{
    upmix("out.wav");
    const WaveFormat format = waveFormat(at("out.wav"));
    EXPECT_EQ(format.tag, 0xfffe);
    EXPECT_EQ(format.channels, channels());
    EXPECT_EQ(format.mask, GetParam().mask);
    EXPECT_EQ(probed("out.wav"), expected());
}

TEST_P(Layouts, FlacFilesNameTheLayout)
{
    upmix("out.flac");
    EXPECT_EQ(probed("out.flac"), expected());
    char tag[64];
    std::snprintf(tag, sizeof tag, "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x%04X", GetParam().mask);
    EXPECT_NE(bytesOf(at("out.flac")).find(tag), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Command, Layouts, testing::ValuesIn(kLayouts), [](const auto& test) {
    std::string name = "Layout" + std::string(test.param.option);
    std::erase_if(name, [](char c) { return c == '.' || c == '-'; });
    return name;
});

} // namespace tarn_cli
