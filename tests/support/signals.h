// Stereo test signals.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/random.h"

#include <array>
#include <cstdint>
#include <iosfwd>

namespace tests
{

/// Stereo test signals. Frequencies scale with the sample rate.
enum class Signal
{
    Silence,
    DiffuseNoise,     ///< independent left and right
    CentredNoise,     ///< left and right equal
    OppositeNoise,    ///< right is left inverted
    LeftNoise,        ///< left only
    QuietNoise,       ///< a few least significant bits of 16
    LowTone,          ///< in the lowest subband
    MidTone,          ///< in one subband, left louder
    HighTone,         ///< in the highest band group, right only
    SteadyTones,      ///< tones with whole periods per block, so all blocks are equal
    TravellingSource, ///< noise from hard left to hard right and back
    Impulses,         ///< single full-scale samples, left and right alternating
    FullScaleSquare,  ///< full scale, with different periods left and right
    Bursts            ///< noise alternating with digital silence
};

inline constexpr std::array kAllSignals = {
    Signal::Silence,          Signal::DiffuseNoise, Signal::CentredNoise,    Signal::OppositeNoise, Signal::LeftNoise,
    Signal::QuietNoise,       Signal::LowTone,      Signal::MidTone,         Signal::HighTone,      Signal::SteadyTones,
    Signal::TravellingSource, Signal::Impulses,     Signal::FullScaleSquare, Signal::Bursts,
};

std::ostream& operator<<(std::ostream& stream, Signal signal);

/// One frame, full scale at +-1.
struct Frame
{
    double left;
    double right;
};

/// The frame of a signal at a time in frames; noise uses random.
Frame frameOf(Signal signal, std::uint64_t time, Random& random);

/// The integer sample of a value from -1 to 1, for at most 32 bits.
std::int32_t sampleOf(double value, std::uint32_t bitsPerSample);

} // namespace tests
