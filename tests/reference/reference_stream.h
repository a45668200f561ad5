// The stream of the reference: a literal implementation to compare the optimised one with.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"
#include "tests/reference/reference_engine.h"
#include "tests/reference/reference_surrounds.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace reference
{

inline constexpr int kFrames = 64; ///< of a block

using Block = std::array<double, kFrames>;

/// A value that moves to its target within 1024 frames, one frame at a time.
struct Fade
{
    double start;
    double target;
    int frames = 1024;    ///< since the start
    bool isSteady = true; ///< for the whole block

    explicit Fade(double value) : start(value), target(value) {}
    void beginBlock(double newTarget);
    double next();
    bool isSteadyAt(double value) const { return isSteady && target == value; }

private:
    double value() const;
};

/// One section of a filter for one signal, in the transposed direct form II.
struct Section
{
    double b0, b1, b2, a1, a2;
    double s1 = 0.0, s2 = 0.0;

    double filter(double x);
    void dropTraces();
};

/// Two equal sections in series.
struct Crossover
{
    Section sections[2];

    double filter(double x);
    void dropTraces();
};

/// The limiter, one sample at a time.
struct Limiter
{
    /// rateHz            32000 to 192000
    /// samplesFullScale  of the samples
    Limiter(std::uint32_t rateHz, double samplesFullScale);

    /// Exchanges a block of every row for the one before, limited.
    void limit(std::vector<Block>& rows, bool isUnlimited);

    double release;
    double fullScale;
    std::size_t heldBlocks;
    std::vector<double> needed; ///< gain that each block needs, from the first on
    double gain = 1.0;
    std::vector<Block> before;
    std::vector<std::array<float, 75>> window; ///< the last 11 samples of the block before, and the block
};

/// Counts of samples that were changed.
struct Faults
{
    std::uint64_t saturated = 0; ///< floats of the input beyond full scale, and outputs after gain
    std::uint64_t invalid = 0;   ///< NaN samples of the input

    bool operator==(const Faults&) const = default;
};

/// The 32-bit integer for a float: rounded half away from zero, saturated; NaN gives 0.
std::int32_t integerOf(float sample, Faults& faults);

/// The float for a 32-bit integer; full scale is 1.
float floatOf(std::int32_t sample);

/// What a stream's setters set.
struct StreamSettings
{
    bool bypass = false;
    float gain = 1.0f;
    float centre = 1.0f;
    float width = 1.0f;
    float surround = 0.707945784f;
    float lfe = 1.0f;
    bool bassInFronts = false;
    bool limiting = true;
    zrk_tarn::RemapGains remap{}; ///< for configurations with a remap matrix
};

/// A stream of blocks of integers.
class Stream
{
public:
    /// bits  width of the samples: 16, 24 or 32
    Stream(const zrk_tarn::StreamConfiguration& configuration, int bits);

    /// Returns a block of every output slot for a block of every input slot, each at 64 consecutive frames. The latency
    /// is that of a stream, less the 64 frames in which it collects a block.
    std::vector<std::array<std::int32_t, kFrames>> process(const std::vector<std::array<std::int32_t, kFrames>>& input,
                                                           const StreamSettings& settings);

    /// Samples of the output that saturated.
    Faults faults;

private:
    using Rows = std::vector<std::array<std::int32_t, kFrames>>;

    void upmix(const Rows& input, const StreamSettings& settings);
    void changeCentre();
    void renderSurrounds();
    void filterBass(const Rows& delayed);
    std::vector<Block> wetRows(const Rows& delayed);
    bool isPlainStereo() const;
    std::int32_t saturated(double value);

    zrk_tarn::StreamConfiguration configuration;
    int bits;
    double fullScale;
    int surroundChannels = 0;

    std::unique_ptr<Engine> engine = std::make_unique<Engine>();
    std::unique_ptr<Surrounds> surrounds;
    std::deque<Rows> past; ///< input of the blocks before, oldest first
    Crossover bassOfStereo[2];
    Crossover restOfFronts[3];
    Crossover restOfSurrounds[4];
    Crossover bassForLfe;
    Limiter limiter;
    Rows dryBefore; ///< delayed input of the block before

    bool isFirst = true;
    Fade wet{1.0}, gain{1.0}, centre{1.0}, width{1.0}, frontShare{0.0}, surroundGain{1.0}, lfeGain{1.0}, bass{0.0};
    Block wetAt{}, gainAt{}, centreAt{}, widthAt{}, frontShareAt{}, surroundGainAt{}, lfeGainAt{}, bassAt{};

    Block fronts[4]; ///< front left, front right and centre, before the room; or the columns of the remap matrix
    Block behind[4];
    Block voice; ///< the engine's centre
    Block lfe;
};

} // namespace reference
