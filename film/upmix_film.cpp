// Upmixes the stereo track of a film: the packets of all other tracks pass.
// SPDX-License-Identifier: MIT
#include "film/upmix_film.h"

#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/loudness.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "cli/upmixer.h"
#include "film/encoding.h"
#include "film/input_film.h"
#include "film/output_film.h"
#include "film/track_decoder.h"
#include "film/track_encoder.h"
#include "stream/gain.h"
#include "stream/steering_mode_names.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tarn
{

namespace
{

/// Loudness of the track, LUFS.
struct FilmLoudness
{
    double input;
    double atUnityGain; ///< of the upmix
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

/// Measures loudness before and after an upmix without gain and limiter.
FilmLoudness measureLoudness(const FilmOptions& options, unsigned track, const Layout& layout, std::uint32_t rateHz)
{
    InputFilm input(options.input);
    EngineSettings settings = engineSettings(options, layout);
    settings.room.gainDb = 0.0;
    settings.room.limiter = false;
    LoudnessMeter before(rateHz);
    LoudnessSink after(layout, rateHz, nullptr);
    std::optional<Upmixer> upmixer;
    TrackDecoder decoder(options.input, input.stream(track), rateHz,
                         [&](const std::int32_t* stereo, std::size_t frames) {
                             throwIfInterrupted();
                             before.push(stereo, frames);
                             upmixer->push(stereo, frames);
                         });
    upmixer.emplace(layout, decoder.format(), settings, true, after);
    decodeAll(input, track, decoder, [](AVPacket& /*packet*/) {});
    upmixer->finish();
    return {before.integrated(), after.meter().integrated()};
}

/// The dialogue level for a loudness: players turn a track down by the difference from -31.
int dialogueLevelOf(const FilmOptions& options, const std::optional<FilmLoudness>& loudness, double gainDb)
{
    constexpr double kLowest = -31.0;
    constexpr double kHighest = -1.0;
    if (options.dialnorm != "auto") return std::stoi(options.dialnorm);
    if (!loudness || !std::isfinite(loudness->atUnityGain)) return static_cast<int>(kLowest);
    return static_cast<int>(std::lround(std::clamp(loudness->atUnityGain + gainDb, kLowest, kHighest)));
}

/// Adds the output to the ledger when it is complete.
NamingHook recordingHook(const FilmOptions& options)
{
    if (!options.record) return {};
    return [&options](const FileState& state) { options.record(state, Json::object()); };
}

} // namespace

Json upmixFilm(const FilmOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    checkRoomOptions(options.room, layout, false);
    InputFilm input(options.input);
    const unsigned track = input.chooseTrack(options);
    const AVStream& original = input.stream(track);
    OutputFilm output(options.output, options.force, input, recordingHook(options));
    const Encoding& encoding = encodingFor(options.codec, output.container(), options.output);
    const int trackRate = original.codecpar->sample_rate;
    const std::uint32_t rate = commonRate(encoding, trackRate);
    if (rate != static_cast<std::uint32_t>(trackRate) && !options.quiet)
        printNote(options.input + ": track " + std::to_string(track) + " is converted from " +
                  std::to_string(trackRate) + " to " + std::to_string(rate) + " Hz");

    EngineSettings settings = engineSettings(options, layout);
    std::optional<FilmLoudness> loudness;
    if (options.loudnessMatch || (encoding.hasDialogueLevel && options.dialnorm == "auto"))
        loudness = measureLoudness(options, track, layout, rate);
    if (options.loudnessMatch && std::isfinite(loudness->input) && std::isfinite(loudness->atUnityGain))
        settings.room.gainDb = std::min(loudness->input - loudness->atUnityGain, zrk_tarn::kMaxGainDb);

    std::optional<Upmixer> upmixer;
    std::optional<TrackEncoder> encoder;
    Progress progress("upmixing",
                      input.duration() ? std::optional(static_cast<std::uint64_t>(*input.duration() * rate))
                                       : std::nullopt,
                      rate, !options.quiet && !options.inBatch);
    TrackDecoder decoder(options.input, original, rate, [&](const std::int32_t* stereo, std::size_t frames) {
        if (upmixer->frames() == 0) encoder->startAt(decoder.start().value_or(0));
        upmixer->push(stereo, frames);
        progress.advance(frames);
    });
    // FLAC and PCM hold at most 24 bits.
    StreamFormat format = decoder.format();
    if (encoding.bitRate == 0) format.bits = std::min(format.bits, 24u);
    encoder.emplace(options.output, encoding, layout, format, options.bitRate,
                    dialogueLevelOf(options, loudness, settings.room.gainDb), output.wantsGlobalHeader(),
                    [&](AVPacket& packet) { output.add(packet); });
    upmixer.emplace(layout, format, settings, true, *encoder);
    const std::vector<std::string> lost = output.begin(encoder->codec(), track, options.replace);

    decodeAll(input, track, decoder, [&](AVPacket& packet) { output.copy(packet); });
    upmixer->finish();
    encoder->finish();
    if (upmixer->frames() == 0)
        throw Failure(EX_DATAERR, options.input + ": no sound of track " + std::to_string(track) + " can be decoded");
    output.finish();

    const int errors = decoder.errors() + input.errors();
    if (!options.quiet) {
        for (const std::string& note : lost) printNote(options.output + ": " + note);
        if (errors > 0)
            printNote(options.input + ": is damaged: " + std::to_string(errors) + " parts cannot be read; " +
                      formatted("%.2f", static_cast<double>(decoder.filledFrames()) / trackRate) +
                      " s of silence stand for missing sound");
        printNote(options.output + ": track " + std::to_string(track) + " upmixed to " + options.layout + " " +
                  encoding.name + ", " + formatted("%.0f", progress.speed()) + " x real time");
    }
    return {{"input", options.input},
            {"output", options.output},
            {"track", track},
            {"codec", encoding.name},
            {"layout", options.layout},
            {"sample_rate_hz", rate},
            {"frames", upmixer->frames()},
            {"start_frame", decoder.start().value_or(0)},
            {"gain_db", settings.room.gainDb},
            {"damaged_parts", errors},
            {"filled_frames", decoder.filledFrames()},
            {"left_out", lost},
            {"speed", progress.speed()}};
}

} // namespace tarn
