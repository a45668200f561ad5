// Upmixes the stereo track of a film: the packets of all other tracks pass.
// SPDX-License-Identifier: MIT
#include "film/upmix_film.h"

#include "cli/audio_source.h"
#include "cli/decibels.h"
#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/loudness.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "film/encoding.h"
#include "film/film_chain.h"
#include "film/input_film.h"
#include "film/output_film.h"
#include "film/track_decoder.h"
#include "film/track_encoder.h"
#include "stream/gain.h"
#include "stream/steering_mode_names.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace tarn
{

namespace
{

/// A track before it is upmixed.
struct Survey
{
    double peak = 1.0;                        ///< full scale 1
    std::optional<double> loudness{};         ///< LUFS
    std::optional<double> upmixAtUnityGain{}; ///< its loudness, LUFS
};

/// What a survey measures.
struct SurveyPlan
{
    bool peak = false;
    bool loudness = false;      ///< of the track
    bool upmixLoudness = false; ///< with neither gain nor limiter
    bool samples = false;       ///< a sixth of the track only
};

/// The parts of a track that a survey of a sixth of it decodes.
constexpr double kPartSeconds = 10.0;
constexpr double kPartPeriod = 60.0;
constexpr double kLongTrack = 600.0; ///< seconds; a shorter one is decoded completely

/// How a track is upmixed.
struct Plan
{
    EngineSettings settings;
    int headroomBits = 0;
    double peak = 1.0; ///< beyond full scale, by which the track is scaled down
    int dialogueLevel = -31;
};

/// The parts of a job.
struct Job
{
    const FilmOptions& options;
    const Layout& layout;
    InputFilm& input;
    unsigned track;
    const Encoding& encoding;
    std::uint32_t rate;
};

EngineSettings engineSettings(const FilmOptions& options, const Layout& layout)
{
    return {.mode = zrk_tarn::steeringModeNamed(options.mode).value(), .room = roomSettingsOf(options.room, layout)};
}

/// Decodes a whole track. Calls pass(packet) for every packet of the film, which can take it.
template <typename Pass>
void decodeAll(InputFilm& input, unsigned track, TrackDecoder& decoder, Pass pass)
{
    const Packet packet = newPacket();
    while (input.read(*packet)) {
        if (packet->stream_index == static_cast<int>(track)) decoder.decode(packet.get());
        pass(*packet);
        av_packet_unref(packet.get());
    }
    decoder.decode(nullptr);
}

/// Decodes parts of a track, each with a decoder of its own.
template <typename MakeDecoder>
void decodeParts(InputFilm& input, unsigned track, MakeDecoder makeDecoder)
{
    const Packet packet = newPacket();
    std::unique_ptr<TrackDecoder> decoder;
    while (input.read(*packet)) {
        const double time = static_cast<double>(packet->pts) * av_q2d(input.stream(track).time_base);
        const bool isInPart = packet->pts != AV_NOPTS_VALUE && std::fmod(std::abs(time), kPartPeriod) < kPartSeconds;
        if (!isInPart && decoder) {
            decoder->decode(nullptr);
            decoder.reset();
        }
        if (isInPart && !decoder) decoder = makeDecoder();
        if (decoder) decoder->decode(packet.get());
        av_packet_unref(packet.get());
    }
    if (decoder) decoder->decode(nullptr);
}

/// Decodes the track alone, and measures it.
///
/// headroomBits  of the samples
Survey survey(const Job& job, SurveyPlan plan, int headroomBits)
{
    InputFilm input(job.options.input);
    input.readOnly(job.track);
    EngineSettings settings = engineSettings(job.options, job.layout);
    settings.room.gainDb = 0.0;
    settings.room.limiter = false;
    LoudnessMeter before(job.rate);
    LoudnessSink after(job.layout, job.rate, nullptr, headroomBits);
    Upmixer upmixer(job.layout, StreamFormat{.sampleRate = job.rate, .bits = 32}, settings, true, after);
    Progress progress("measuring", input.expectedFrames(job.rate), job.rate,
                      !job.options.quiet && !job.options.inBatch);
    const auto makeDecoder = [&] {
        return std::make_unique<TrackDecoder>(job.options.input, input.stream(job.track),
                                              TrackConversion{.rateHz = job.rate,
                                                              .scale = std::ldexp(1.0, -headroomBits),
                                                              .endSeconds = input.declaredEnd()},
                                              [&](const std::int32_t* stereo, std::size_t frames) {
                                                  throwIfInterrupted();
                                                  if (plan.loudness) before.push(stereo, frames, headroomBits);
                                                  if (plan.upmixLoudness) upmixer.push(stereo, frames);
                                                  progress.advance(frames);
                                              });
    };
    Survey found;
    if (plan.samples && input.duration().value_or(0.0) > kLongTrack) {
        decodeParts(input, job.track, makeDecoder);
    } else {
        const auto decoder = makeDecoder();
        decodeAll(input, job.track, *decoder, [](AVPacket& /*packet*/) {});
        found.peak = std::max(decoder->peak(), 1.0);
    }
    upmixer.finish();
    if (plan.loudness) found.loudness = before.integrated();
    if (plan.upmixLoudness) found.upmixAtUnityGain = after.meter().integrated();
    return found;
}

/// The dialogue level for a loudness: players turn a track down by the difference from -31.
int dialogueLevelOf(const FilmOptions& options, double loudness)
{
    constexpr double kLowest = -31.0;
    constexpr double kHighest = -1.0;
    if (options.dialnorm != "auto") return std::stoi(options.dialnorm);
    if (!std::isfinite(loudness)) return static_cast<int>(kLowest);
    return static_cast<int>(std::lround(std::clamp(loudness, kLowest, kHighest)));
}

/// Measures what the options need.
///
/// exceeds  whether samples of the track can be beyond full scale: they get headroom in front of a limiter, and without
///          one, the track is scaled down by its peak
Plan planOf(const Job& job, bool exceeds)
{
    Plan plan{.settings = engineSettings(job.options, job.layout)};
    double& gainDb = plan.settings.room.gainDb;
    const bool isLimited = plan.settings.room.limiter;
    const bool isMatched = job.options.loudnessMatch;
    const bool storesLoudness = job.encoding.hasDialogueLevel && job.options.dialnorm == "auto";
    if (exceeds && isLimited) plan.headroomBits = kHeadroomBits;
    const SurveyPlan wanted{
        .peak = exceeds && !isLimited, .loudness = isMatched, .upmixLoudness = isMatched || storesLoudness};
    Survey found;
    if (wanted.peak || wanted.upmixLoudness) found = survey(job, wanted, exceeds ? kHeadroomBits : 0);
    if (wanted.peak) plan.peak = found.peak;
    const double upmixed = found.upmixAtUnityGain.value_or(-HUGE_VAL) - decibels(plan.peak);
    if (isMatched && std::isfinite(*found.loudness) && std::isfinite(upmixed))
        gainDb = std::min(*found.loudness - upmixed, zrk_tarn::kMaxGainDb);
    plan.dialogueLevel = dialogueLevelOf(job.options, upmixed + gainDb);
    if (plan.peak > 1.0 && !job.options.quiet) {
        const std::string excess = formatted("%.2f dB", decibels(plan.peak));
        printNote(job.options.input + ": peak +" + excess + " above full scale: scaled down by " + excess);
    }
    return plan;
}

/// The width of the samples between engine and encoder. FLAC and PCM hold at most 24 bits.
StreamFormat outputFormat(const TrackDecoder& decoder, const Encoding& encoding)
{
    StreamFormat format = decoder.format();
    if (encoding.bitRate == 0) format.bits = std::min(format.bits, 24u);
    return format;
}

void printClipping(const FilmOptions& options, std::uint64_t input, std::uint64_t output)
{
    if (input > 0)
        printNote(options.input + ": " + std::to_string(input) +
                  " samples are more than 24 dB above full scale and are clipped; the track is probably damaged");
    if (output > 0)
        printNote(options.output + ": " + std::to_string(output) + " samples were beyond full scale and are clipped; " +
                  (options.room.noLimiter ? "leave out --no-limiter" : "add --limiter") + ", or give a smaller --gain");
}

} // namespace

Json upmixFilm(const FilmOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    checkRoomOptions(options.room, layout, false);
    InputFilm input(options.input);
    const unsigned track = input.chooseTrack(options);
    const AVStream& original = input.stream(track);
    OutputFilm output(options.output, options.force, input);
    const Encoding& encoding = encodingFor(options.codec, output.container(), options.output);
    const int trackRate = original.codecpar->sample_rate;
    const std::uint32_t rate = commonRate(encoding, trackRate);
    if (rate != static_cast<std::uint32_t>(trackRate) && !options.quiet)
        printNote(options.input + ": track " + std::to_string(track) + " is converted from " +
                  std::to_string(trackRate) + " to " + std::to_string(rate) + " Hz");

    const Job job{options, layout, input, track, encoding, rate};
    const Plan plan = planOf(job, TrackDecoder::canExceedFullScale(original, rate));
    std::optional<FilmChain> chain;
    std::optional<TrackEncoder> encoder;
    Progress progress("upmixing", input.expectedFrames(rate), rate, !options.quiet && !options.inBatch);
    TrackDecoder decoder(
        options.input, original,
        {.rateHz = rate, .scale = std::ldexp(1.0 / plan.peak, -plan.headroomBits), .endSeconds = input.declaredEnd()},
        [&](const std::int32_t* stereo, std::size_t frames) {
            if (chain->frames() == 0) encoder->startAt(decoder.start().value_or(0));
            chain->push(stereo, frames);
            progress.advance(frames);
        });
    const StreamFormat format = outputFormat(decoder, encoding);
    encoder.emplace(options.output, encoding, layout, format, options.bitRate, plan.dialogueLevel,
                    output.wantsGlobalHeader(), [&](AVPacket& packet) { output.add(packet); });
    chain.emplace(layout, format, plan.settings, plan.headroomBits, *encoder);
    const std::vector<std::string> lost = output.begin(encoder->codec(), track, options.replace);

    decodeAll(input, track, decoder, [&](AVPacket& packet) { output.copy(packet); });
    chain->finish();
    encoder->finish();
    if (chain->frames() == 0)
        throw Failure(EX_DATAERR, options.input + ": no sound of track " + std::to_string(track) + " can be decoded");
    output.finish();

    const std::optional<Loss> loss = lossOf(decoder.damage(), input.damage(track), track, rate);
    if (loss) printNote(options.input + ": " + loss->message + "; the rest is upmixed; " + loss->advice);
    for (const std::string& note : lost)
        if (!options.quiet) printNote(options.output + ": " + note);
    printClipping(options, decoder.clippedSamples(), chain->clippedSamples());
    if (!options.quiet)
        printNote(options.output + ": track " + std::to_string(track) + " upmixed to " + options.layout + " " +
                  encoding.name + ", " + formatted("%.0f", progress.speed()) + " x real time");
    Json report = {{"input", options.input},
                   {"output", options.output},
                   {"track", track},
                   {"codec", encoding.name},
                   {"layout", options.layout},
                   {"sample_rate_hz", rate},
                   {"frames", chain->frames()},
                   {"start_frame", decoder.start().value_or(0)},
                   {"input_gain_db", -decibels(plan.peak)},
                   {"gain_db", plan.settings.room.gainDb},
                   {"clipped_samples", chain->clippedSamples()},
                   {"left_out", lost},
                   {"speed", progress.speed()}};
    if (encoding.hasDialogueLevel) report["dialogue_level_db"] = plan.dialogueLevel;
    if (loss) {
        report["exit_code"] = loss->isNegligible() ? EX_OK : kExitIncomplete;
        report["loss"] = loss->json();
    }
    return report;
}

} // namespace tarn
