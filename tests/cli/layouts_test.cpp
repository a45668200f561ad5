// Channel layouts that the output files declare.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <cstdio>
#include <ostream>

namespace tarn_cli
{

/// Layout, WAV channel mask, name in ffprobe.
struct NamedLayout
{
    std::string option;
    std::uint32_t mask;
    std::string name;
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
        writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, stereoNoise(2000, 24));
        writeBytes(at("matrix.txt"), "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n");
    }

    void upmix(const std::string& output) const
    {
        std::vector<std::string> arguments{"upmix", "--layout", GetParam().option, "in.wav", output};
        if (GetParam().option == "7.1-remap") arguments.insert(arguments.end(), {"--remap", "matrix.txt"});
        const Result result = tarn(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.errors;
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

    std::string expected(std::size_t channels) const
    {
        return std::to_string(channels) + "," + GetParam().name + ",24\n";
    }

    std::size_t channels() const
    {
        return GetParam().option == "2.0" ? 2 : GetParam().option == "3.0" ? 3 : GetParam().option == "5.1" ? 6 : 8;
    }
};

TEST_P(Layouts, WaveFilesHaveTheChannelMask)
{
    upmix("out.wav");
    const WaveFormat format = waveFormat(at("out.wav"));
    EXPECT_EQ(format.tag, 0xfffe);
    EXPECT_EQ(format.channels, channels());
    EXPECT_EQ(format.mask, GetParam().mask);
    EXPECT_EQ(probed("out.wav"), expected(channels()));
}

TEST_P(Layouts, FlacFilesNameTheLayout)
{
    upmix("out.flac");
    EXPECT_EQ(probed("out.flac"), expected(channels()));
    char tag[64];
    std::snprintf(tag, sizeof tag, "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x%04X", GetParam().mask);
    EXPECT_NE(bytesOf(at("out.flac")).find(tag), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Command, Layouts,
                         testing::Values(NamedLayout{"2.0", 0x3, "stereo"}, NamedLayout{"3.0", 0x7, "3.0"},
                                         NamedLayout{"5.1", 0x3f, "5.1"}, NamedLayout{"7.1", 0x63f, "7.1"},
                                         NamedLayout{"7.1-remap", 0x63f, "7.1"}),
                         [](const auto& test) {
                             return test.param.option == "7.1-remap" ? "Slots8"
                                                                     : "Channels" + test.param.name.substr(0, 1);
                         });

} // namespace tarn_cli
