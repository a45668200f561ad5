// Upmixes the stereo track of a film: the packets of all other tracks pass.
// SPDX-License-Identifier: MIT
#include "film/upmix_film.h"

#include "cli/audio_source.h"
#include "cli/decibels.h"
#include "cli/json.h"
#include "cli/layout.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "film/decode_all.h"
#include "film/encoding.h"
#include "film/film_chain.h"
#include "film/film_loss.h"
#include "film/input_film.h"
#include "film/output_film.h"
#include "film/track_encoder.h"
#include "film/upmix_plan.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tarn
{

namespace
{

/// One film.
class FilmUpmix
{
public:
    explicit FilmUpmix(const FilmOptions& options);

    /// Writes the output.
    void run();

    /// Prints notes and returns the report of --json; valid after run.
    Json report() const;

private:
    NamingHook recordingHook() const;
    Json lossReport() const;
    void push(const std::int32_t* stereo, std::size_t frames);
    void printNotes() const;

    const FilmOptions& options;
    const Layout& layout;
    InputFilm input;
    unsigned track;
    OutputFilm output;
    const Encoding& encoding;
    std::uint32_t rate;
    std::optional<Progress> progress;
    Plan plan{};
    std::optional<TrackDecoder> decoder;
    std::optional<TrackEncoder> encoder;
    std::optional<FilmChain> chain;
    std::vector<std::string> leftOut;
    std::optional<Loss> loss;
};

void checkEncodingOptions(const FilmOptions& options, const Encoding& encoding)
{
    const std::string end = std::string(encoding.name) + " has none; leave it out, or choose another --codec";
    if (options.bitRate && encoding.bitRate == 0) throw Failure(EX_USAGE, "--bitrate: lossless " + end);
    if (options.dialnorm != "auto" && !encoding.hasDialogueLevel) throw Failure(EX_USAGE, "--dialnorm: " + end);
}

FilmUpmix::FilmUpmix(const FilmOptions& filmOptions)
    : options(filmOptions),
      layout(layoutNamed(options.layout)),
      input(options.input),
      track(input.chooseTrack(options)),
      output(options.output, options.force, input, recordingHook()),
      encoding(encodingFor(options.codec, output.container(), options.output)),
      rate(commonRate(encoding, input.stream(track).codecpar->sample_rate))
{
    checkEncodingOptions(options, encoding);
    const int own = input.stream(track).codecpar->sample_rate;
    if (rate != static_cast<std::uint32_t>(own) && !options.quiet)
        printNote(options.input + ": track " + std::to_string(track) + " is converted from " + std::to_string(own) +
                  " to " + std::to_string(rate) + " Hz");
}

/// Adds the output to the ledger when it is complete.
NamingHook FilmUpmix::recordingHook() const
{
    if (!options.record) return {};
    return [this](const FileState& state) { options.record(state, lossReport()); };
}

/// What is missing; an empty object if nothing is.
Json FilmUpmix::lossReport() const
{
    if (!loss) return Json::object();
    return {{"exit_code", loss->isNegligible() ? EX_OK : kExitIncomplete}, {"loss", loss->json()}};
}

void FilmUpmix::run()
{
    const AVStream& original = input.stream(track);
    plan = planOf({options, layout, track, rate}, encoding, TrackDecoder::canExceedFullScale(original, rate));
    progress.emplace("upmixing", input.expectedFrames(rate), rate, !options.quiet && !options.inBatch);
    decoder.emplace(
        options.input, original,
        TrackConversion{
            .rateHz = rate, .headroomBits = plan.headroomBits, .peak = plan.peak, .endSeconds = input.latestEnd()},
        [this](const std::int32_t* stereo, std::size_t frames) { push(stereo, frames); });
    const StreamFormat format = encoding.formatOf(decoder->format());
    encoder.emplace(options.output, encoding, layout, format, options.bitRate, plan.dialogueLevel,
                    output.wantsGlobalHeader(), [this](AVPacket& packet) { output.add(packet); });
    chain.emplace(layout, format, plan.settings, plan.headroomBits, *encoder);
    leftOut = output.begin(encoder->codec(), track, options.replace);

    decodeAll(input, track, *decoder, [this](AVPacket& packet) { output.copy(packet); });
    chain->finish();
    encoder->finish();
    if (chain->frames() == 0)
        throw Failure(EX_DATAERR, options.input + ": no sound of track " + std::to_string(track) + " can be decoded");
    loss = lossOf(decoder->damage(), input.damage(track), track, rate);
    output.finish();
}

void FilmUpmix::push(const std::int32_t* stereo, std::size_t frames)
{
    if (chain->frames() == 0) encoder->startAt(decoder->start().value_or(0));
    chain->push(stereo, frames);
    progress->advance(frames);
}

void FilmUpmix::printNotes() const
{
    if (loss) printNote(options.input + ": " + loss->message + "; the rest is upmixed; " + loss->advice);
    if (const std::uint64_t count = decoder->clippedSamples(); count > 0)
        printNote(options.input + ": " + std::to_string(count) +
                  " samples are more than 24 dB above full scale and are clipped; the track is probably damaged");
    if (const std::uint64_t count = chain->clippedSamples(); count > 0)
        printNote(options.output + ": " + std::to_string(count) + " samples were beyond full scale and are clipped; " +
                  (options.room.noLimiter ? "leave out --no-limiter" : "add --limiter") + ", or give a smaller --gain");
    if (options.quiet) return;
    if (const std::string others = input.otherThanStereo(track); !others.empty())
        printNote(options.input + ": not upmixed, because only stereo is: " + others);
    for (const std::string& note : leftOut) printNote(options.output + ": " + note);
    if (plan.loudness) {
        printLoudness(options.output, *plan.loudness, plan.settings.room.gainDb);
        printShortfall(options.output, *plan.loudness);
    }
    printNote(options.output + ": track " + std::to_string(track) + " upmixed to " + options.layout + " " +
              encoding.name + ", " + formatted("%.0f", progress->speed()) + " x real time");
}

Json FilmUpmix::report() const
{
    printNotes();
    Json report = {{"input", options.input},
                   {"output", options.output},
                   {"track", track},
                   {"codec", encoding.name},
                   {"layout", options.layout},
                   {"sample_rate_hz", rate},
                   {"frames", chain->frames()},
                   {"start_frame", decoder->start().value_or(0) + std::int64_t{rate} * output.delaySeconds()},
                   {"input_gain_db", -decibels(plan.peak)},
                   {"gain_db", plan.settings.room.gainDb},
                   {"clipped_samples", chain->clippedSamples()},
                   {"left_out", leftOut},
                   {"speed", progress->speed()}};
    if (plan.loudness) report["loudness_lufs"] = jsonOf(*plan.loudness);
    if (encoding.hasDialogueLevel) report["dialogue_level_db"] = plan.dialogueLevel;
    report.update(lossReport());
    return report;
}

} // namespace

Json upmixFilm(const FilmOptions& options)
{
    checkRoomOptions(options.room, layoutNamed(options.layout), false);
    FilmUpmix film(options);
    film.run();
    return film.report();
}

} // namespace tarn
