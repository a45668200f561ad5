// Upmixes the built-in scene, prints the table and writes the files.
// SPDX-License-Identifier: MIT
#include "cli/demo_command.h"

#include "cli/command_name.h"
#include "cli/decibels.h"
#include "cli/demo_files.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/measurement.h"
#include "cli/room_options.h"
#include "cli/scene.h"
#include "cli/text.h"
#include "cli/upmixer.h"
#include "stream/block.h"

#include <cerrno>
#include <cstdio>
#include <optional>

namespace tarn
{

namespace
{

constexpr std::uint32_t kBits = 16;
constexpr std::size_t kChunkFrames = 4096;
constexpr std::size_t kMaxDelayFrames = 2047;

/// Keeps the outputs of a 3.0 upmix in memory.
class MemorySink final : public AudioSink
{
public:
    void write(const std::int32_t* samples, std::size_t frames) override
    {
        for (std::size_t frame = 0; frame < frames; ++frame) {
            outputs.left.push_back(samples[3 * frame] * 0x1p-31);
            outputs.right.push_back(samples[3 * frame + 1] * 0x1p-31);
            outputs.centre.push_back(samples[3 * frame + 2] * 0x1p-31);
        }
    }

    void finish() override {}

    ThreeOutputs outputs;
};

/// Upmixes 16-bit stereo.
void upmixStereo(const std::vector<std::int16_t>& stereo, std::uint32_t sampleRate, const Layout& layout,
                 const EngineSettings& settings, bool align, AudioSink& sink)
{
    Upmixer upmixer(layout, {.sampleRate = sampleRate, .bits = kBits}, settings, align, sink);
    std::vector<std::int32_t> chunk;
    for (std::size_t frame = 0; frame < stereo.size() / 2; frame += kChunkFrames) {
        throwIfInterrupted();
        const std::size_t end = std::min(stereo.size(), 2 * (frame + kChunkFrames));
        chunk.clear();
        for (std::size_t i = 2 * frame; i < end; ++i) chunk.push_back(stereo[i] * 0x10000);
        upmixer.push(chunk.data(), chunk.size() / 2);
    }
    upmixer.finish();
}

/// Measures the delay of the engine: correlates the left side of the wide chords with the front left output.
std::size_t measureDelay(const Scene& scene, const ThreeOutputs& outputs)
{
    constexpr std::size_t kFrames = 24000;
    const ScenePart& part = scene.parts[scene.wideChords];
    const std::size_t first = part.firstFrame + (part.frames - kFrames) / 2;
    std::vector<double> left;
    for (std::size_t i = 0; i < kFrames; ++i) left.push_back(scene.stereo[2 * (first + i)] * 0x1p-15);
    return findDelay(left, std::span(outputs.left).subspan(first, kFrames + kMaxDelayFrames), kMaxDelayFrames);
}

void printTable(const Scene& scene, const ThreeOutputs& outputs, std::size_t delay)
{
    std::printf("  %-24s   share of energy, %%        peak, dBFS\n", "");
    std::printf("  %-24s     FL     C    FR        FL      C     FR\n", "part of the scene");
    for (const ScenePart& part : scene.parts) {
        const PartMeasure m = measurePart(outputs, part.firstFrame + delay, part.frames);
        std::printf("  %-24s  %5.1f %5.1f %5.1f    %6.1f %6.1f %6.1f\n", part.name.c_str(), 100.0 * m.energyShare[0],
                    100.0 * m.energyShare[1], 100.0 * m.energyShare[2], decibels(m.peak[0]), decibels(m.peak[1]),
                    decibels(m.peak[2]));
    }
}

void printReport(const Scene& scene, const ThreeOutputs& outputs)
{
    const std::size_t delay = measureDelay(scene, outputs);
    std::printf("A stereo scene of %.1f seconds at %u Hz, and what the engine makes of it, without preset:\n\n",
                static_cast<double>(scene.stereo.size()) / (2.0 * scene.sampleRate), scene.sampleRate);
    printTable(scene, outputs, delay);
    std::printf(
        "\n  delay of the filterbank: %zu frames, %.1f ms, measured; live streams have a latency of %zu frames\n"
        "  at every rate, because they collect %zu frames first; the limiter adds as many\n\n",
        delay, 1000.0 * static_cast<double>(delay) / scene.sampleRate, delay + zrk_tarn::kBlockFrames,
        zrk_tarn::kBlockFrames);
    std::printf("Expected: the voice is in C; the moving source starts in FL, passes through C and ends in FR;\n"
                "the wide chords stay in FL and FR; in the mix of all, C contains the voice.\n\n");
}

zrk_tarn::RoomSettings settingsOf(const DemoOptions& options)
{
    RoomOptions room;
    room.preset = options.preset;
    return roomSettingsOf(room, layoutNamed(options.layout));
}

void printNextStep(const DemoOptions& options, const std::optional<DemoFiles>& files)
{
    const std::string& program = commandName();
    if (!files) {
        std::printf("Next, write the scene to a file:  %s demo scene.wav\n"
                    "or upmix your own music:          %s upmix song.flac song-3.0.wav\n",
                    program.c_str(), program.c_str());
        return;
    }
    if (keepsStereo(layoutNamed(options.layout), settingsOf(options)))
        std::printf("Both files are the same, because the gain of the centre is 0 dB; add --preset voice.\n");
    std::printf("%s contains the scene as %s, and %s its stereo source,\n"
                "time-aligned: compare them by ear.\n"
                "Next, upmix your own music:       %s upmix song.flac song-3.0.wav\n",
                printable(options.output).c_str(), options.layout.c_str(), printable(files->stereoName()).c_str(),
                program.c_str());
}

void flushOutput()
{
    if (std::fflush(stdout) == 0) return;
    const int error = errno;
    throwIfInterrupted();
    throw Failure(EX_IOERR, "standard output: writing failed: " + systemError(error));
}

} // namespace

void runDemo(const DemoOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    const Scene scene = makeScene();
    std::optional<DemoFiles> files;
    if (!options.output.empty())
        files.emplace(options.output, options.force, layout,
                      StreamFormat{.sampleRate = scene.sampleRate, .bits = kBits});

    // Measures the output of a live host, with silence appended to flush the engine.
    std::vector<std::int16_t> extended = scene.stereo;
    extended.resize(extended.size() + 2 * (kMaxDelayFrames + 1));
    MemorySink memory;
    upmixStereo(extended, scene.sampleRate, layoutNamed("3.0"), {}, false, memory);
    printReport(scene, memory.outputs);

    // If the report cannot be printed, no files are left.
    flushOutput();
    if (files) {
        upmixStereo(scene.stereo, scene.sampleRate, layout, {.room = settingsOf(options)}, true, files->upmixed());
        files->finish(scene.stereo);
    }
    printNextStep(options, files);
    flushOutput();
}

} // namespace tarn
