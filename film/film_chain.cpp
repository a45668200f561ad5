// Connects engine, gain and limiter.
// SPDX-License-Identifier: MIT
#include "film/film_chain.h"

namespace tarn
{

namespace
{

StreamFormat engineFormat(StreamFormat format, bool hasStage)
{
    return hasStage ? StreamFormat{.sampleRate = format.sampleRate, .bits = 32} : format;
}

} // namespace

FilmChain::FilmChain(const Layout& layout, StreamFormat format, const EngineSettings& settings, int headroomBits,
                     AudioSink& sink)
    : stage(headroomBits > 0 ? std::make_optional<GainStage>(layout.slots, format,
                                                             OutputLevel{.gainDb = settings.room.gainDb,
                                                                         .limiter = settings.room.limiter,
                                                                         .headroomBits = headroomBits},
                                                             sink)
                             : std::nullopt),
      upmixer(layout, engineFormat(format, headroomBits > 0), headroomBits > 0 ? atUnityGain(settings) : settings, true,
              stage ? static_cast<AudioSink&>(*stage) : sink)
{}

void FilmChain::finish()
{
    upmixer.finish();
    if (stage) stage->flush();
}

std::uint64_t FilmChain::clippedSamples() const noexcept
{
    return stage ? stage->counts().clipped : upmixer.meters().saturated;
}

} // namespace tarn
