// Measures peak and loudness of a track.
// SPDX-License-Identifier: MIT
#include "film/track_survey.h"

#include "cli/interrupt.h"
#include "cli/loudness.h"
#include "cli/progress.h"
#include "film/decode_all.h"
#include "film/film_chain.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace tarn
{

namespace
{

/// The parts of a track that a survey of a sixth of it decodes.
constexpr double kPartSeconds = 10.0;
constexpr double kPartPeriod = 60.0;
constexpr double kLongTrack = 600.0; ///< seconds; a shorter one is decoded completely

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

} // namespace

EngineSettings engineSettings(const FilmOptions& options, const Layout& layout)
{
    return {.mode = zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, options.mode).value(),
            .room = roomSettingsOf(options.room, layout)};
}

Survey survey(const SurveyedTrack& track, const SurveyPlan& plan)
{
    InputFilm input(track.options.input);
    input.readOnly(track.index);
    EngineSettings settings = engineSettings(track.options, track.layout);
    if (plan.isAtUnityGain) settings = atUnityGain(settings);
    LoudnessMeter before(track.rate);
    LoudnessSink after(track.layout, track.rate, plan.upmix, plan.isAtUnityGain ? plan.headroomBits : 0);
    FilmChain chain(track.layout, StreamFormat{.sampleRate = track.rate, .bits = 32}, settings,
                    plan.isAtUnityGain ? 0 : plan.headroomBits, after);
    Progress progress("measuring", input.expectedFrames(track.rate), track.rate,
                      !track.options.quiet && !track.options.inBatch);
    const auto makeDecoder = [&] {
        return std::make_unique<TrackDecoder>(
            track.options.input, input.stream(track.index),
            TrackConversion{.rateHz = track.rate, .headroomBits = plan.headroomBits, .endSeconds = input.latestEnd()},
            [&](const std::int32_t* stereo, std::size_t frames) {
                throwIfInterrupted();
                if (plan.loudness) before.push(stereo, frames, plan.headroomBits);
                if (plan.upmixLoudness) chain.push(stereo, frames);
                progress.advance(frames);
            });
    };
    Survey found;
    if (plan.samples && input.duration().value_or(0.0) > kLongTrack) {
        decodeParts(input, track.index, makeDecoder);
    } else {
        const auto decoder = makeDecoder();
        decodeAll(input, track.index, *decoder, [](AVPacket& /*packet*/) {});
        found.peak = std::max(decoder->peak(), 1.0);
        found.format = decoder->format();
    }
    chain.finish();
    if (plan.loudness) found.loudness = before.integrated();
    if (plan.upmixLoudness) found.upmixLoudness = after.meter().integrated();
    return found;
}

} // namespace tarn
