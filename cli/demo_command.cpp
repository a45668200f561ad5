#include "cli/demo_command.h"

#include "cli/demo_files.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/measurement.h"
#include "cli/scene.h"
#include "cli/text.h"
#include "cli/upmixer.h"

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
    void write(const std::uint8_t* slots, std::size_t frames) override
    {
        const auto sample = [slots](std::size_t i) { return loadLeftJustified(slots + 2 * i, 2) * 0x1p-31; };
        for (std::size_t frame = 0; frame < frames; ++frame) {
            outputs.left.push_back(sample(3 * frame));
            outputs.right.push_back(sample(3 * frame + 1));
            outputs.centre.push_back(sample(3 * frame + 2));
        }
    }

    void finish() override {}

    ThreeOutputs outputs;
};

/// Sends 16-bit stereo through the engine.
void upmixStereo(const std::vector<std::int16_t>& stereo, std::uint32_t sampleRate, const Layout& layout, bool align,
                 AudioSink& sink)
{
    Upmixer upmixer(layout, {.sampleRate = sampleRate, .bits = kBits}, {}, align, sink);
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

/// The delay of the engine as the scene's bed shows it: its left side against the front left output.
std::size_t measureDelay(const Scene& scene, const ThreeOutputs& outputs)
{
    constexpr std::size_t kFrames = 24000;
    const ScenePart& bed = scene.parts[scene.bed];
    const std::size_t first = bed.firstFrame + (bed.frames - kFrames) / 2;
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
    std::printf("A stereo scene of %.1f seconds at %u Hz, upmixed to front left, centre and front right:\n\n",
                static_cast<double>(scene.stereo.size()) / (2.0 * scene.sampleRate), scene.sampleRate);
    printTable(scene, outputs, delay);
    std::printf("\n  delay of the engine: %zu frames, %.1f ms (cross-correlation of input and output)\n\n", delay,
                1000.0 * static_cast<double>(delay) / scene.sampleRate);
    std::printf("What to look for: the voice belongs in C; the traveller starts in FL, passes through C and ends in\n"
                "FR; the bed stays wide, mostly in FL and FR; all together, C holds the voice between them.\n\n");
}

void printNextStep(const DemoOptions& options, const std::optional<DemoFiles>& files)
{
    const std::string program = printable(options.program);
    if (!files) {
        std::printf("Next, keep the scene as a file:  %s demo scene.wav\n"
                    "or upmix music of your own:      %s upmix song.flac song-3.0.wav\n",
                    program.c_str(), program.c_str());
        return;
    }
    std::printf("%s holds the scene as %s, and %s the stereo that it was made from,\n"
                "aligned with it: compare them by ear.\n"
                "Next, upmix music of your own:   %s upmix song.flac song-3.0.wav\n",
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

    // What is measured is what a live host hears, followed by silence to bring out the last of it.
    std::vector<std::int16_t> followed = scene.stereo;
    followed.resize(followed.size() + 2 * (kMaxDelayFrames + 1));
    MemorySink memory;
    upmixStereo(followed, scene.sampleRate, layoutNamed("3.0"), false, memory);
    printReport(scene, memory.outputs);

    // A report that cannot be printed leaves no files.
    flushOutput();
    if (files) {
        upmixStereo(scene.stereo, scene.sampleRate, layout, true, files->upmixed());
        files->finish(scene.stereo);
    }
    printNextStep(options, files);
    flushOutput();
}

} // namespace tarn
