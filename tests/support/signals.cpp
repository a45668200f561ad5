// Stereo test signals.
// SPDX-License-Identifier: MIT
#include "tests/support/signals.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <ostream>

namespace tests
{

namespace
{

/// A sine; the frequency is in subbands, so 0.5 is the middle of the lowest one.
double tone(std::uint64_t time, double subbands)
{
    return std::sin(std::numbers::pi * subbands / 64.0 * static_cast<double>(time));
}

} // namespace

std::ostream& operator<<(std::ostream& stream, Signal signal)
{
    constexpr const char* kNames[] = {
        "Silence", "DiffuseNoise", "CentredNoise", "OppositeNoise",    "LeftNoise", "QuietNoise",      "LowTone",
        "MidTone", "HighTone",     "SteadyTones",  "TravellingSource", "Impulses",  "FullScaleSquare", "Bursts"};
    return stream << kNames[static_cast<int>(signal)];
}

Frame frameOf(Signal signal, std::uint64_t time, Random& random)
{
    switch (signal) {
    case Signal::Silence:
        return {0.0, 0.0};
    case Signal::DiffuseNoise: {
        const double left = 0.5 * random.uniform();
        return {left, 0.5 * random.uniform()};
    }
    case Signal::CentredNoise: {
        const double both = 0.7 * random.uniform();
        return {both, both};
    }
    case Signal::OppositeNoise: {
        const double left = 0.7 * random.uniform();
        return {left, -left};
    }
    case Signal::LeftNoise:
        return {random.uniform(), 0.0};
    case Signal::QuietNoise: {
        const double left = random.uniform() / 8192.0;
        return {left, random.uniform() / 8192.0};
    }
    case Signal::LowTone:
        return {0.6 * tone(time, 0.4), 0.6 * tone(time, 0.4)};
    case Signal::MidTone:
        return {0.8 * tone(time, 9.3), 0.3 * tone(time, 9.3)};
    case Signal::HighTone:
        return {0.0, 0.9 * tone(time, 55.5)};
    case Signal::SteadyTones:
        return {0.4 * tone(time, 6.0) + 0.1 * tone(time, 30.0), 0.2 * tone(time, 6.0) + 0.3 * tone(time, 30.0)};
    case Signal::TravellingSource: {
        const double angle = 0.25 * std::numbers::pi * (1.0 + std::sin(static_cast<double>(time) / 900.0));
        const double source = 0.7 * random.uniform();
        return {source * std::cos(angle), source * std::sin(angle)};
    }
    case Signal::Impulses:
        return {time % 301 == 0 ? 1.0 : 0.0, time % 301 == 150 ? -1.0 : 0.0};
    case Signal::FullScaleSquare:
        return {time / 50 % 2 == 0 ? 1.0 : -1.0, time / 77 % 2 == 0 ? 1.0 : -1.0};
    case Signal::Bursts: {
        const double left = random.uniform();
        const double right = random.uniform();
        return time / 700 % 2 == 0 ? Frame{left, right} : Frame{0.0, 0.0};
    }
    }
    return {0.0, 0.0};
}

std::int32_t sampleOf(double value, std::uint32_t bitsPerSample)
{
    const double top = std::pow(2.0, static_cast<double>(std::clamp(bitsPerSample, 1u, 32u)) - 1.0);
    return static_cast<std::int32_t>(std::fmax(-top, std::fmin(top - 1.0, std::nearbyint(value * top))));
}

} // namespace tests
