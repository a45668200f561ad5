// The signal path of tarn meter, and the choice between screen and lines.
// SPDX-License-Identifier: MIT
#include "cli/meter_command.h"

#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/meter_screen.h"
#include "cli/metered_stream.h"
#include "cli/parse_time.h"
#include "cli/playback.h"
#include "cli/progress.h"
#include "cli/raw_pcm.h"
#include "cli/resampled_source.h"
#include "cli/terminal.h"
#include "cli/text.h"
#include "cli/windowed_source.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <unistd.h>

namespace tarn
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds kFrameTime(40); ///< 25 screens per second
constexpr double kStepDb = 1.0;        ///< of a key

bool writesAudio(const MeterOptions& options)
{
    return options.pass || options.upmix;
}

std::string inputNameOf(const MeterOptions& options)
{
    return options.raw || options.input == "-" ? "standard input" : options.input;
}

void checkOptions(const MeterOptions& options)
{
    if (options.pass && options.upmix) throw Failure(EX_USAGE, "--pass: contradicts --upmix; leave one of them out");
    if (!options.raw) {
        for (const auto& [isGiven, name] : {std::pair{options.pass, "--pass"}, std::pair{options.upmix, "--upmix"}})
            if (isGiven)
                throw Failure(EX_USAGE, std::string(name) +
                                            ": needs a raw stream on standard input; add --raw with its "
                                            "rate and width, for example --raw 48000:16");
        if (options.input.empty())
            throw Failure(EX_USAGE, "INPUT is required; name a file, or add --raw 48000:16 for a raw stream");
    } else {
        if (!options.input.empty() && options.input != "-")
            throw Failure(EX_USAGE, "--raw: describes the stream on '-', but INPUT is a file; leave it out");
        if (options.start) throw Failure(EX_USAGE, "--start: a raw stream has no times; leave it out");
        if (options.speed) throw Failure(EX_USAGE, "--speed: a stream has a speed of its own; leave it out");
    }
    checkRoomOptions(options.room, layoutNamed(options.layout), false);
}

/// The source from its start on, and where it passes the bytes of a raw stream.
WindowedSource openSource(const MeterOptions& options)
{
    std::unique_ptr<AudioSource> source;
    if (options.raw) {
        const StreamFormat format = parseRawFormat(*options.raw);
        if (isatty(STDIN_FILENO) != 0)
            throw Failure(EX_USAGE, "standard input: is a terminal; pipe a raw stream into it, or name a file");
        source = std::make_unique<RawSource>(format, options.pass ? writeToStandardOutput : RawSource::Receiver());
    } else {
        source = std::make_unique<FileSource>(options.input);
    }
    const std::uint32_t rate = engineRateFor(source->format().sampleRate);
    if (rate != source->format().sampleRate) source = std::make_unique<ResampledSource>(std::move(source), rate);
    // Samples above full scale are clipped, as in a live stream; searching for them would read the file twice.
    for (const std::string& note : source->prepare(false, {.keep = false, .sharedPeak = 1.0}))
        printNote(inputNameOf(options) + ": " + note);
    return {std::move(source), options.start ? framesOf(*options.start, rate) : 0, std::nullopt};
}

/// Whether a line can be written without waiting, and has a reader. A pipe that is ready has room for PIPE_BUF bytes,
/// more than a line.
bool isReady(int descriptor)
{
    pollfd wait = {descriptor, POLLOUT, 0};
    return poll(&wait, 1, 0) > 0 && wait.revents == POLLOUT;
}

/// The meters of one run, with what the stream does not know.
class Meters
{
public:
    Meters(const MeterOptions& meterOptions, const AudioSource& source, MeteredStream& meteredStream,
           Player& filePlayer)
        : options(meterOptions), stream(meteredStream), player(filePlayer)
    {
        const std::uint32_t rate = source.format().sampleRate;
        if (options.start) startSeconds = static_cast<double>(framesOf(*options.start, rate)) / rate;
        if (const auto frames = source.expectedFrames())
            totalSeconds = startSeconds + static_cast<double>(*frames) / rate;
    }

    MeterValues values()
    {
        MeterValues now = stream.values();
        now.name = inputNameOf(options);
        now.seconds += startSeconds;
        now.totalSeconds = totalSeconds;
        now.isPaused = player.isPaused();
        now.canPause = !options.raw;
        hold.apply(now);
        return now;
    }

    /// Prints a line. Drops it if the audio on standard output would wait for its reader, or end with it.
    void printLine()
    {
        const bool isAudio = writesAudio(options);
        std::FILE* const display = isAudio ? stderr : stdout;
        if (isAudio && !isReady(STDERR_FILENO)) return;
        const std::string line = options.json ? jsonOf(values()).dump() : lineOf(values());
        std::fputs((line + "\n").c_str(), display);
        std::fflush(display);
        if (std::ferror(display) == 0 || isAudio) return;
        throwIfInterrupted();
        throw Failure(EX_IOERR, "standard output: writing failed; check the program or the disk that receives it");
    }

    /// Prints what was played, and its loudness.
    void printSummary()
    {
        const MeterValues last = values();
        const auto timeText = [](double seconds) {
            return durationText(static_cast<std::uint64_t>(std::llround(seconds * 1000.0)), 1000);
        };
        printNote(last.name + ": " + (startSeconds > 0.0 ? timeText(startSeconds) + " to " : "") +
                  timeText(last.seconds) +
                  (std::isfinite(last.integrated) ? ", " + tenths(last.integrated) + " LUFS" : ", no loudness"));
    }

    /// Shows screens until the playback ends or the user quits. Returns whether the user did.
    bool showScreens(int descriptor, const Playback& playback)
    {
        const ScreenStyle style = styleOfEnvironment();
        Terminal terminal(descriptor);
        while (!playback.hasEnded()) {
            terminal.show(screenOf(values(), terminal.size(), style), style.colours);
            for (const char key : terminal.waitForKeys(kFrameTime))
                if (!handle(key)) return true;
            if (arrivedSignal() != 0) return false;
        }
        return false;
    }

private:
    /// Returns false for the key that quits.
    bool handle(char key)
    {
        switch (key) {
        case 'q':
            return false;
        case ' ':
            if (!options.raw) player.togglePause();
            break;
        case 'b':
            stream.toggleUpmix();
            break;
        case 'm':
            stream.toggleMode();
            break;
        case Terminal::kUp:
        case Terminal::kDown:
            stream.changeGain(key == Terminal::kUp ? kStepDb : -kStepDb);
            break;
        case Terminal::kRight:
        case Terminal::kLeft:
            stream.changeCentre(key == Terminal::kRight ? kStepDb : -kStepDb);
            break;
        case 'r':
            stream.restartLoudness();
            hold.reset();
            break;
        default:
            break;
        }
        return true;
    }

    const MeterOptions& options;
    MeteredStream& stream;
    Player& player;
    double startSeconds = 0.0;
    std::optional<double> totalSeconds;
    PeakHold hold;
};

/// Plays with screens. Returns whether the source was played to its end.
bool playOnScreen(int descriptor, Player& player, Meters& meters)
{
    const Playback playback(player);
    if (meters.showScreens(descriptor, playback)) return false;
    while (!playback.hasEnded()) std::this_thread::sleep_for(milliseconds(1));
    playback.rethrowProblem();
    return true;
}

/// Throws Failure (EX_USAGE) if a source that was played to its end ended before the start.
void checkStart(const MeterOptions& options, const WindowedSource& source)
{
    if (options.start && source.position() <= framesOf(*options.start, source.format().sampleRate))
        throw startAfterEnd(options.start, inputNameOf(options), source);
}

/// Reports the loss of a source that was played to its end. Returns the exit code.
int reportLoss(const MeterOptions& options, const WindowedSource& source)
{
    const std::optional<Loss> loss = source.loss();
    if (!loss) return EX_OK;
    printNote(inputNameOf(options) + ": " + loss->message + "; " + loss->advice);
    return loss->isNegligible() ? EX_OK : kExitIncomplete;
}

} // namespace

int runMeter(const MeterOptions& options)
{
    checkOptions(options);
    const Layout& layout = layoutNamed(options.layout);
    WindowedSource source = openSource(options);
    const EngineSettings settings{.mode = zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, options.mode).value(),
                                  .room = roomSettingsOf(options.room, layout)};
    // Only the width of the upmix matters to others.
    const StreamFormat format{.sampleRate = source.format().sampleRate,
                              .bits = options.upmix ? source.format().bits : 32};
    if (options.pass) refuseTerminalForAudio();
    std::optional<RawSink> sink;
    if (options.upmix) sink.emplace(layout.slots, format);
    MeteredStream stream(layout, format, settings, sink ? &*sink : nullptr);
    std::optional<double> speed = options.speed;
    if (!options.raw && !speed) speed = 1.0;
    Player player(source, stream, speed);
    Meters meters(options, source, stream, player);

    const int display = writesAudio(options) ? STDERR_FILENO : STDOUT_FILENO;
    if (options.json || !Terminal::canShowScreens(display)) {
        player.play([&meters] { meters.printLine(); });
        checkStart(options, source);
        return reportLoss(options, source);
    }
    const bool hasEnded = playOnScreen(display, player, meters);
    if (hasEnded) checkStart(options, source);
    meters.printSummary();
    return hasEnded ? reportLoss(options, source) : EX_OK;
}

} // namespace tarn
