// A real recording, upmixed to 3.0 and 5.1 and compared with the engine.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

namespace tarn_cli
{

namespace
{

/// A guitar chord of ten seconds. Most of it is centred; the side signal has an eighth of the energy of the mid signal,
/// so all three outputs are active. Its length is not a multiple of a block. Debian: sonic-pi-samples, CC0.
constexpr const char* kRecording = "/usr/share/sonic-pi/samples/guit_em9.flac";

} // namespace

class Recording : public CommandTest
{};

TEST_F(Recording, IsUpmixedTo30And51ToTheLastBit)
{
    ASSERT_TRUE(std::filesystem::exists(kRecording)) << kRecording << " is missing: apt-get install sonic-pi-samples";
    const Audio recording = readAudio(kRecording);
    ASSERT_EQ(recording.info.channels, 2);
    ASSERT_EQ(recording.info.samplerate, 44100);
    ASSERT_NE(recording.info.frames % 64, 0);

    for (const std::string layout : {"3.0", "5.1"}) {
        for (const std::string extension : {".wav", ".flac"}) {
            const Result result =
                tarn({"upmix", "--preset", "plain", "--layout", layout, kRecording, layout + extension});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            const Audio output = readAudio(at(layout + extension));
            EXPECT_EQ(output.info.frames, recording.info.frames);
            EXPECT_TRUE(output.samples ==
                        engineOutput(recording.samples, {.layout = layout, .sampleRate = 44100, .plain = true}))
                << layout << extension;
        }
    }
}

} // namespace tarn_cli
