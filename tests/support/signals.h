#pragma once

#include "tests/support/random.h"

#include <array>
#include <cstdint>
#include <iosfwd>

namespace tests
{

/// Stereo test signals. Nyquist is the highest frequency of every stream, whatever its rate.
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
    SteadyTones,      ///< tones with whole periods per block, so that every block is alike
    TravellingSource, ///< noise from hard left to hard right and back
    Impulses,         ///< single full-scale samples, left and right in turn
    FullScaleSquare,  ///< both rails, left and right at different periods
    Bursts            ///< noise and digital silence in turn
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

/// The frame of a signal at a time, counted in frames; noise comes from random.
Frame frameOf(Signal signal, std::uint64_t time, Random& random);

/// A sample of a width in bits for a value of -1 to 1; widths beyond 32 bits are taken as 32.
std::int32_t sampleOf(double value, std::uint32_t bitsPerSample);

} // namespace tests
