// An upmix whose meters can be read and whose settings can be changed while it runs.
// SPDX-License-Identifier: MIT
#include "cli/metered_stream.h"

#include "cli/decibels.h"
#include "stream/gain.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <limits>
#include <sstream>

namespace tarn
{

namespace
{

constexpr std::uint32_t kUpdatesPerSecond = 10; ///< of the loudness, as BS.1770 steps
constexpr double kSilentLufs = -std::numeric_limits<double>::infinity();

} // namespace

MeteredStream::Loudness::Loudness(MeteredStream& owner, AudioSink* next)
    : stream(owner), sink(next), meter(owner.rate, owner.layout)
{}

void MeteredStream::Loudness::write(const std::int32_t* samples, std::size_t frames)
{
    if (stream.isRestartWanted.exchange(false)) {
        meter = LoudnessMeter(stream.rate, stream.layout);
        untilUpdate = 0;
        stream.integrated = kSilentLufs;
    }
    meter.push(samples, frames);
    if (frames >= untilUpdate) {
        stream.momentary = meter.momentary();
        stream.integrated = meter.integrated();
        untilUpdate = stream.rate / kUpdatesPerSecond;
    } else {
        untilUpdate -= frames;
    }
    if (sink != nullptr) sink->write(samples, frames);
}

MeteredStream::MeteredStream(const Layout& outputLayout, StreamFormat format, const EngineSettings& settings,
                             AudioSink* next)
    : layout(outputLayout),
      rate(format.sampleRate),
      momentary(kSilentLufs),
      integrated(kSilentLufs),
      mode(settings.mode),
      gainDb(settings.room.gainDb),
      centreDb(settings.room.centreDb),
      loudness(*this, next),
      upmixer(layout, format, settings, true, loudness)
{}

void MeteredStream::push(const std::int32_t* stereo, std::size_t frames, std::uint64_t clippedBefore)
{
    clippedInput = clippedBefore;
    upmixer.push(stereo, frames);
    position += frames;
}

MeterValues MeteredStream::values() const
{
    const zrk_tarn::StreamMeters meters = upmixer.meters();
    MeterValues values{.seconds = static_cast<double>(position) / rate,
                       .layout = std::string(layout.name),
                       .isOn = isOn,
                       .mode = nameOf(mode),
                       .gainDb = gainDb,
                       .centreDb = centreDb,
                       .momentary = momentary,
                       .integrated = integrated,
                       .reductionDb = decibels(1.0 / static_cast<double>(meters.limiterGain)),
                       .clipped = clippedInput + meters.saturated};
    for (std::size_t g = 0; g < zrk_tarn::kBandGroups; ++g)
        values.groups.push_back({.upperHz = static_cast<double>(meters.groupUpperHz[g]),
                                 .level = static_cast<double>(meters.groupLevel[g]),
                                 .place = static_cast<double>(meters.groupPlace[g]),
                                 .centre = static_cast<double>(meters.groupCentre[g]),
                                 .surround = static_cast<double>(meters.groupSurround[g])});
    std::istringstream names{std::string(layout.slotNames)};
    for (std::size_t slot = 0; slot < layout.slots; ++slot) {
        OutputValue& output = values.outputs.emplace_back();
        names >> output.name;
        output.peak = static_cast<double>(meters.peak[slot]);
        output.rms = static_cast<double>(meters.rms[slot]);
    }
    return values;
}

void MeteredStream::toggleUpmix() noexcept
{
    isOn = !isOn;
    upmixer.live().setBypass(!isOn);
}

void MeteredStream::toggleMode() noexcept
{
    mode = mode == zrk_tarn::SteeringMode::Fast ? zrk_tarn::SteeringMode::Calm : zrk_tarn::SteeringMode::Fast;
    upmixer.live().setMode(mode);
}

void MeteredStream::changeGain(double stepDb) noexcept
{
    gainDb = std::clamp(gainDb + stepDb, zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb);
    upmixer.live().setMakeUpGain(zrk_tarn::gainFactor(gainDb));
}

void MeteredStream::changeCentre(double stepDb) noexcept
{
    centreDb = std::clamp(centreDb + stepDb, zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb);
    upmixer.live().setCentreGain(zrk_tarn::gainFactor(centreDb));
}

void MeteredStream::restartLoudness() noexcept
{
    isRestartWanted = true;
    integrated = kSilentLufs;
}

} // namespace tarn
