// Everything that a picture shows of a recording, collected in one pass.
// SPDX-License-Identifier: MIT
#pragma once

#include "picture/channel.h"
#include "picture/envelope.h"
#include "picture/frequency_axis.h"
#include "picture/places.h"
#include "picture/power_spectra.h"
#include "picture/time_grid.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tarn
{

/// Rows of a spectrogram, the lowest frequency first.
inline constexpr std::size_t kSpectrumRows = 512;

/// Values of a row of the front: energies of left, centre and right.
inline constexpr std::size_t kFrontValues = 3;

/// Values of a row of the surround channels: energies of left and right.
inline constexpr std::size_t kBehindValues = 2;

/// Shares of the energy of a recording, together 1; all 0 for silence.
struct EnergyShares
{
    double left = 0.0;
    double centre = 0.0;
    double right = 0.0;
    double behind = 0.0;
};

/// Shares with the sum 1 in whole percent with the sum 100, in the order of EnergyShares. Those with the largest
/// fractions are rounded up.
std::array<int, 4> percentagesOf(const EnergyShares& shares) noexcept;

/// Collects spectra, places and envelopes of an upmix of any length in constant memory. The result does not depend on
/// the number of frames per call.
class PictureAnalysis
{
public:
    explicit PictureAnalysis(PictureSource source);

    /// Adds frames of left-justified samples, interleaved.
    void push(const std::int32_t* samples, std::size_t frames);

    /// Analyses the last frames. Nothing can be added afterwards.
    void finish();

    const PictureSource& source() const noexcept { return recording; }
    std::uint64_t frames() const noexcept { return received; }
    bool hasCentre() const noexcept { return has(ChannelPlace::Centre); }
    bool hasBehind() const noexcept { return has(ChannelPlace::LeftBehind) || has(ChannelPlace::RightBehind); }

    /// Sums of spectra: kSpectrumRows rows of energies, then the number of spectra. The energies are tilted.
    const TimeGrid& front() const noexcept { return frontGrid; }

    /// The same of the surround channels; without values if there are none.
    const TimeGrid& behind() const noexcept { return behindGrid; }

    /// Sums of kPlaceRows rows of energies, then the number of spectra.
    const TimeGrid& places() const noexcept { return placeGrid; }

    const Envelope& envelope() const noexcept { return envelopes; }
    EnergyShares shares() const;

private:
    bool has(ChannelPlace place) const noexcept;
    void addReadySpectra();
    void addSpectra(std::uint64_t frame);
    const float* powerOf(ChannelPlace place) const noexcept;

    PictureSource recording;
    PowerSpectra spectra;
    FrequencyRows rows;
    Places directions;
    std::uint64_t hop;        ///< shortest distance of spectra, frames
    std::uint64_t longestHop; ///< half a window
    TimeGrid frontGrid;
    TimeGrid behindGrid;
    TimeGrid placeGrid;
    Envelope envelopes;
    std::vector<float> silence;     ///< power of a missing output
    std::uint64_t received = 0;     ///< frames
    std::uint64_t nextSpectrum = 0; ///< first frame of its hop
};

} // namespace tarn
