// Passes samples to the spectra and envelopes of a picture.
// SPDX-License-Identifier: MIT
#include "picture/analysis.h"

#include <algorithm>
#include <utility>

namespace tarn
{

namespace
{

constexpr std::size_t kHopsPerWindow = 16; ///< at the beginning

} // namespace

std::array<int, 4> percentagesOf(const EnergyShares& shares) noexcept
{
    const std::array exact{100.0 * shares.left, 100.0 * shares.centre, 100.0 * shares.right, 100.0 * shares.behind};
    std::array<int, 4> percentages{};
    int rest = 100;
    for (std::size_t i = 0; i < exact.size(); ++i) rest -= percentages[i] = static_cast<int>(exact[i]);
    for (; rest > 0; --rest) {
        std::size_t largest = 0;
        for (std::size_t i = 1; i < exact.size(); ++i)
            if (exact[i] - percentages[i] > exact[largest] - percentages[largest]) largest = i;
        ++percentages[largest];
    }
    return percentages;
}

PictureAnalysis::PictureAnalysis(PictureSource source)
    : recording(std::move(source)),
      spectra(recording.channels.size(), recording.sampleRate),
      rows(kSpectrumRows, static_cast<double>(recording.sampleRate) / static_cast<double>(spectra.points()),
           spectra.bins()),
      directions(static_cast<double>(recording.sampleRate) / static_cast<double>(spectra.points()), spectra.bins()),
      hop(spectra.points() / kHopsPerWindow),
      longestHop(spectra.points() / 2),
      frontGrid(kSpectrumRows * kFrontValues + 1, hop, TimeGrid::Merge::Sum),
      behindGrid(hasBehind() ? kSpectrumRows * kBehindValues + 1 : 0, hop, TimeGrid::Merge::Sum),
      placeGrid(kPlaceRows * kPlaceValues + 1, hop, TimeGrid::Merge::Sum),
      envelopes(recording.channels.size(), hop),
      silence(spectra.bins())
{}

bool PictureAnalysis::has(ChannelPlace place) const noexcept
{
    return std::any_of(recording.channels.begin(), recording.channels.end(),
                       [place](const PictureChannel& channel) { return channel.place == place; });
}

void PictureAnalysis::push(const std::int32_t* samples, std::size_t frames)
{
    constexpr std::size_t kChunkFrames = 4096; // limits the samples that wait
    while (frames > 0) {
        const std::size_t chunk = std::min(frames, kChunkFrames);
        for (std::size_t frame = 0; frame < chunk; ++frame, samples += recording.slots) {
            for (std::size_t channel = 0; channel < recording.channels.size(); ++channel) {
                const float sample = static_cast<float>(samples[recording.channels[channel].slot]) * 0x1p-31f;
                envelopes.add(received + frame, channel, sample);
                spectra.append(channel, sample);
            }
        }
        received += chunk;
        frames -= chunk;
        addReadySpectra();
    }
}

void PictureAnalysis::finish()
{
    spectra.appendMirrored();
    addReadySpectra();
}

/// Computes the spectra whose windows are complete: one in the middle of every hop. The hop grows with the columns,
/// until windows overlap by half; then a column has several spectra.
void PictureAnalysis::addReadySpectra()
{
    while (nextSpectrum < received) {
        const std::uint64_t distance = std::min(frontGrid.fit(nextSpectrum), longestHop);
        behindGrid.fit(nextSpectrum);
        placeGrid.fit(nextSpectrum);
        const std::uint64_t middle = nextSpectrum + distance / 2;
        if (!spectra.hasWindowAround(middle)) break;
        spectra.transform(middle);
        addSpectra(nextSpectrum);
        nextSpectrum += distance;
    }
    spectra.forgetBefore(std::min(nextSpectrum, received));
}

void PictureAnalysis::addSpectra(std::uint64_t frame)
{
    float* const front = frontGrid.valuesAt(frame);
    float* const behind = behindGrid.valuesAt(frame);
    for (std::size_t i = 0; i < recording.channels.size(); ++i) {
        const float* const power = spectra.power(i);
        switch (recording.channels[i].place) {
        case ChannelPlace::Left:
            rows.addTo(front, kFrontValues, power);
            break;
        case ChannelPlace::Centre:
            rows.addTo(front + 1, kFrontValues, power);
            break;
        case ChannelPlace::Right:
            rows.addTo(front + 2, kFrontValues, power);
            break;
        case ChannelPlace::LeftBehind:
            rows.addTo(behind, kBehindValues, power);
            break;
        case ChannelPlace::RightBehind:
            rows.addTo(behind + 1, kBehindValues, power);
            break;
        case ChannelPlace::Bass:
            break;
        }
    }
    front[kSpectrumRows * kFrontValues] += 1.0f;
    if (hasBehind()) behind[kSpectrumRows * kBehindValues] += 1.0f;

    float* const place = placeGrid.valuesAt(frame);
    directions.addTo(place, powerOf(ChannelPlace::Left), powerOf(ChannelPlace::Centre), powerOf(ChannelPlace::Right));
    place[kPlaceRows * kPlaceValues] += 1.0f;
}

/// The power of the first output at a place of the front.
const float* PictureAnalysis::powerOf(ChannelPlace place) const noexcept
{
    for (std::size_t i = 0; i < recording.channels.size(); ++i)
        if (recording.channels[i].place == place) return spectra.power(i);
    return silence.data();
}

EnergyShares PictureAnalysis::shares() const
{
    EnergyShares shares;
    for (std::size_t i = 0; i < recording.channels.size(); ++i) {
        const double energy = envelopes.energy(i);
        switch (recording.channels[i].place) {
        case ChannelPlace::Left:
            shares.left += energy;
            break;
        case ChannelPlace::Centre:
            shares.centre += energy;
            break;
        case ChannelPlace::Right:
            shares.right += energy;
            break;
        case ChannelPlace::LeftBehind:
        case ChannelPlace::RightBehind:
            shares.behind += energy;
            break;
        case ChannelPlace::Bass:
            break;
        }
    }
    const double sum = shares.left + shares.centre + shares.right + shares.behind;
    if (sum > 0.0)
        for (double* const share : {&shares.left, &shares.centre, &shares.right, &shares.behind}) *share /= sum;
    return shares;
}

} // namespace tarn
