// `tarn upmix --skip-existing`: which outputs count as complete.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kFlac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;

} // namespace

class ExistingOutputs : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(50000, 16));
    }

    ino_t inodeOf(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(stat(at(name).c_str(), &status), 0) << name;
        return status.st_ino;
    }

    /// Expects that the output counts as complete, with or without --force, and is not changed.
    void expectSkipped(const std::string& input, const std::string& output) const
    {
        const ino_t before = inodeOf(output);
        for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--force"}}) {
            std::vector<std::string> arguments{"upmix", "--skip-existing", "--json", input, output};
            arguments.insert(arguments.end(), more.begin(), more.end());
            const Result result = tarn(arguments);
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(result.errors, "tarn: " + output + ": is complete already, so " + input + " is skipped\n");
            EXPECT_EQ(Json::parse(result.output), (Json{{"input", input}, {"output", output}, {"skipped", true}}));
            EXPECT_EQ(inodeOf(output), before);
        }
    }

    /// Expects that the output is refused as incomplete, and is replaced with --force.
    void expectIncomplete(const std::string& output, const std::string& flaw) const
    {
        const std::string before = bytesOf(at(output));
        const Result refused = tarn({"upmix", "--skip-existing", "in.wav", output});
        EXPECT_EQ(refused.exitCode, 64);
        EXPECT_EQ(refused.errors, "tarn: " + output + ": exists and is not a complete upmix of in.wav: " + flaw +
                                      "; add --force to replace it, or choose another name\n");
        EXPECT_EQ(bytesOf(at(output)), before);
        const Result forced = tarn({"upmix", "--skip-existing", "--force", "in.wav", output});
        EXPECT_EQ(forced.exitCode, 0) << forced.errors;
        EXPECT_EQ(readAudio(at(output)).info.frames, 50000);
        EXPECT_EQ(readAudio(at(output)).info.channels, 3);
        std::filesystem::remove(at(output));
    }
};

TEST_F(ExistingOutputs, CompleteOnesAreSkipped)
{
    writeFloats(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, 2, std::vector<float>(100000, 0.1f));
    for (const std::string input : {"in.wav", "in.ogg"}) {
        for (const std::string output : {"out.wav", "out.flac"}) {
            const Result first = tarn({"upmix", "--skip-existing", input, output});
            ASSERT_EQ(first.exitCode, 0) << first.errors;
            expectSkipped(input, output);
            std::filesystem::remove(at(output));
        }
    }
}

TEST_F(ExistingOutputs, IncompleteOnesAreRefusedOrReplaced)
{
    writeAudio(at("out.wav"), kWave16, 48000, 2, stereoNoise(50000, 16));
    expectIncomplete("out.wav", "it has 2 channels instead of 3");
    writeAudio(at("out.wav"), kWave16, 44100, 3, Samples(3 * 50000));
    expectIncomplete("out.wav", "it has a rate of 44100 Hz instead of 48000 Hz");
    writeAudio(at("out.wav"), kWave16, 48000, 3, Samples(3 * 49999));
    expectIncomplete("out.wav", "it has 49999 frames instead of 50000");
    writeBytes(at("out.wav"), "This is no audio, but it is long enough for a header of some kind.\n");
    expectIncomplete("out.wav", "it is cut short, damaged or not an audio file");

    for (const std::string output : {"out.wav", "out.flac"}) {
        ASSERT_EQ(tarn({"upmix", "in.wav", output}).exitCode, 0);
        std::filesystem::resize_file(at(output), std::filesystem::file_size(at(output)) - 10);
        expectIncomplete(output, "its end is missing");
    }
    writeAudio(at("out.flac"), kFlac16, 48000, 3, Samples(3 * 50000));
    std::filesystem::resize_file(at("out.flac"), std::filesystem::file_size(at("out.flac")) / 2);
    expectIncomplete("out.flac", "its end is missing");
}

TEST_F(ExistingOutputs, LossOfACutInputIsReportedAgain)
{
    writeFloats(at("in.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 2, std::vector<float>(2 * 200000, 0.1f));
    writeAudio(at("in.wav"), kWave16, 48000, 2, stereoNoise(150000, 16));
    writeAudio(at("short.wav"), kWave16, 48000, 2, stereoNoise(150000, 16));
    std::filesystem::resize_file(at("in.ogg"), std::filesystem::file_size(at("in.ogg")) - 20);
    std::filesystem::resize_file(at("in.wav"), 44 + 4 * 50000);
    std::filesystem::resize_file(at("short.wav"), 44 + 4 * 149000);
    for (const auto& [input, exitCode] : {std::pair("in.ogg", 1), {"in.wav", 1}, {"short.wav", 0}}) {
        const Result first = tarn({"upmix", "--quiet", "--json", input, "out.wav"});
        ASSERT_EQ(first.exitCode, exitCode);
        const Result again = tarn({"upmix", "--quiet", "--json", "--skip-existing", input, "out.wav"});
        EXPECT_EQ(again.exitCode, exitCode);
        EXPECT_EQ(first.errors.find("follows its audio"), std::string::npos) << "the rest of a page is no file";
        const std::string upmixed = "; the rest is upmixed";
        ASSERT_NE(first.errors.find(upmixed), std::string::npos) << first.errors;
        std::string expected = first.errors;
        EXPECT_EQ(again.errors, expected.erase(expected.find(upmixed), upmixed.size()));
        const Json report = Json::parse(again.output);
        EXPECT_EQ(report["skipped"], true);
        EXPECT_EQ(report["exit_code"], exitCode);
        EXPECT_EQ(report["loss"], Json::parse(first.output)["loss"]);

        const Result strict = tarn({"upmix", "--strict", "--skip-existing", input, "out.wav"});
        EXPECT_EQ(strict.exitCode, 65);
        EXPECT_NE(strict.errors.find("is cut short or damaged"), std::string::npos) << strict.errors;
        std::filesystem::remove(at("out.wav"));
    }
}

TEST_F(ExistingOutputs, StrictFindsDamageThatKeepsTheLength)
{
    writeAudio(at("in.flac"), kFlac16, 48000, 2, stereoNoise(150000, 16));
    std::string bytes = bytesOf(at("in.flac"));
    bytes.replace(bytes.size() / 2, 3, "???");
    writeBytes(at("in.flac"), bytes);
    const Result first = tarn({"upmix", "in.flac", "out.wav"});
    EXPECT_NE(first.errors.find("frames are damaged and become silence"), std::string::npos) << first.errors;
    EXPECT_EQ(tarn({"upmix", "--skip-existing", "in.flac", "out.wav"}).exitCode, 0);
    const Result strict = tarn({"upmix", "--strict", "--skip-existing", "in.flac", "out.wav"});
    EXPECT_EQ(strict.exitCode, 65);
    EXPECT_NE(strict.errors.find("frames are damaged and become silence"), std::string::npos) << strict.errors;
    EXPECT_EQ(tarn({"upmix", "--strict", "--skip-existing", "in.wav", "whole.wav"}).exitCode, 0);
    expectSkipped("in.wav", "whole.wav");
}

TEST_F(ExistingOutputs, LossOfASkippedFileOfABatchIsCounted)
{
    std::filesystem::copy(at("in.wav"), at("b.wav"));
    writeAudio(at("cut.wav"), kWave16, 48000, 2, stereoNoise(150000, 16));
    std::filesystem::resize_file(at("cut.wav"), 44 + 4 * 50000);
    ASSERT_EQ(tarn({"upmix", "--output-dir", "out", "in.wav", "cut.wav"}).exitCode, 1);
    const Result again = tarn({"upmix", "--skip-existing", "--output-dir", "out", "in.wav", "cut.wav", "b.wav"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_NE(again.errors.find("tarn: cut.wav: is cut short or damaged"), std::string::npos) << again.errors;
    EXPECT_TRUE(again.errors.ends_with("tarn: 1 of 3 files upmixed into out\n"
                                       "tarn: 2 files skipped, because the output is complete\n"
                                       "tarn: 1 file with losses, listed above\n"))
        << again.errors;
}

TEST_F(ExistingOutputs, AreRefusedWithoutTheOption)
{
    ASSERT_EQ(tarn({"upmix", "in.wav", "out.wav"}).exitCode, 0);
    const Result result = tarn({"upmix", "in.wav", "out.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("out.wav: exists already"), std::string::npos) << result.errors;
}

TEST_F(ExistingOutputs, InputItselfAndNonFilesAreRefused)
{
    std::filesystem::create_directory(at("folder.wav"));
    EXPECT_NE(tarn({"upmix", "--skip-existing", "in.wav", "in.wav"}).errors.find("in.wav: is the input file"),
              std::string::npos);
    const Result folder = tarn({"upmix", "--skip-existing", "in.wav", "folder.wav"});
    EXPECT_EQ(folder.exitCode, 64);
    EXPECT_EQ(folder.errors, "tarn: folder.wav: is a folder; type: tarn upmix --output-dir folder.wav in.wav\n");
}

TEST_F(ExistingOutputs, MissingInputIsAnError)
{
    ASSERT_EQ(tarn({"upmix", "in.wav", "out.wav"}).exitCode, 0);
    EXPECT_EQ(tarn({"upmix", "--skip-existing", "missing.wav", "out.wav"}).exitCode, 66);
}

TEST_F(ExistingOutputs, SkipExistingIsRefusedForStreams)
{
    for (const std::vector<std::string>& names : {std::vector<std::string>{"in.wav", "-"}, {"-", "out.wav"}}) {
        const Result result = tarn({"upmix", "--skip-existing", "--raw", "48000:16", names[0], names[1]});
        EXPECT_EQ(result.exitCode, 64);
        EXPECT_NE(result.errors.find("--skip-existing: compares OUTPUT with INPUT"), std::string::npos)
            << result.errors;
    }
}

TEST_F(ExistingOutputs, SkippedFilesOfABatchAreCounted)
{
    for (const std::string name : {"b.wav", "c.wav", "d.wav"}) std::filesystem::copy(at("in.wav"), at(name));
    ASSERT_EQ(tarn({"upmix", "--output-dir", "out", "in.wav", "b.wav", "c.wav"}).exitCode, 0);
    std::filesystem::resize_file(at("out/b.wav-3.0.wav"), 10000);
    const Result result =
        tarn({"upmix", "--skip-existing", "--json", "--output-dir", "out", "in.wav", "b.wav", "c.wav", "d.wav"});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_NE(result.errors.find("tarn: 1 of 4 files upmixed into out\n"
                                 "tarn: 2 files skipped, because the output is complete\n"
                                 "tarn: 1 file failed, listed above\n"),
              std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("out/b.wav-3.0.wav: exists and is not a complete upmix of b.wav: its end is missing"),
              std::string::npos)
        << result.errors;
    const Json report = Json::parse(result.output);
    EXPECT_EQ(report["failed"], 1);
    EXPECT_EQ(report["skipped"], 2);
    EXPECT_EQ(report["files"][0], (Json{{"input", "in.wav"}, {"output", "out/in.wav-3.0.wav"}, {"skipped", true}}));
    EXPECT_EQ(report["files"][1]["exit_code"], 64);
    EXPECT_EQ(report["files"][2]["skipped"], true);
    EXPECT_EQ(report["files"][3]["frames"], 50000);

    const Result again =
        tarn({"upmix", "--skip-existing", "--force", "--output-dir", "out", "in.wav", "b.wav", "c.wav", "d.wav"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.errors.find("is skipped"), std::string::npos) << again.errors;
    EXPECT_NE(again.errors.find("tarn: 1 of 4 files upmixed into out\n"
                                "tarn: 3 files skipped, because the output is complete\n"),
              std::string::npos)
        << again.errors;
}

} // namespace tarn_cli
