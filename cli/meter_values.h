// The values that tarn meter shows.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// A band group in the outputs of the engine.
struct GroupValue
{
    double upperHz = 0.0;  ///< upper edge
    double level = 0.0;    ///< full scale 1
    double place = 0.0;    ///< share of the left minus that of the right, -1 to 1
    double centre = 0.0;   ///< share of the centre, 0 to 1
    double surround = 0.0; ///< level of all surround channels before their gain, full scale 1

    double leftShare() const noexcept { return (1.0 - centre + place) / 2.0; }
    double rightShare() const noexcept { return (1.0 - centre - place) / 2.0; }
};

/// An output slot, full scale 1.
struct OutputValue
{
    std::string name;
    double peak = 0.0;
    double rms = 0.0;
    double held = 0.0; ///< highest peak of the last seconds
};

/// What the meters show at one time.
struct MeterValues
{
    std::string name{};                      ///< of the input
    double seconds = 0.0;                    ///< position in the input
    std::optional<double> totalSeconds = {}; ///< length of the input, if known
    std::string layout;
    bool isPaused = false;
    bool canPause = false;
    bool isOn = true; ///< not in bypass
    std::string mode;
    double gainDb = 0.0;
    double centreDb = 0.0;
    std::vector<GroupValue> groups{};   ///< lowest first
    std::vector<OutputValue> outputs{}; ///< in slot order
    double momentary = 0.0;             ///< loudness of the output over 400 ms, LUFS; minus infinity for silence
    double integrated = 0.0;            ///< since the start
    double reductionDb = 0.0;           ///< by the limiter
    std::uint64_t clipped = 0;          ///< samples of the input and of the outputs
};

/// Holds the peaks of the outputs for two seconds of the input.
class PeakHold
{
public:
    /// Sets the held peaks of values. They are of the same outputs, and later than those before.
    void apply(MeterValues& values);

    void reset() noexcept { held.clear(); }

private:
    struct Peak
    {
        double level = 0.0;
        double seconds = 0.0; ///< position of the peak
    };

    std::vector<Peak> held;
};

/// A number with one digit after the point, and no sign if it is rounded to zero.
std::string tenths(double value);

/// Values as a line of words such as momentary=-23.1. Levels are in dB of full scale; "-inf" is silence.
std::string lineOf(const MeterValues& values);

/// The same as JSON. Silence is null.
Json jsonOf(const MeterValues& values);

} // namespace tarn
