// The types that configure a stream and that its meters return.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// @file
/// The types that configure a stream and that its meters return.

/// Streams: buffers of any size and format through the engine.
namespace zrk_tarn
{

/// The sample rates that the engine supports, Hz, ascending.
inline constexpr std::array<std::uint32_t, 7> kSampleRatesHz{32000, 44100, 48000, 64000, 88200, 96000, 192000};

/// Maximum number of slots per frame.
inline constexpr std::size_t kMaxSlots = 8;

/// Number of frequency groups that the engine steers independently.
inline constexpr std::size_t kBandGroups = 16;

/// Maximum make-up gain, a factor (+18.06 dB).
inline constexpr float kMaxMakeUpGain = 8.0f;

/// Typical make-up gain (+3 dB): makes the upmix in 3.0 about as loud as the stereo.
///
/// The upmix is softer because a centred source comes from one loudspeaker instead of two. The examples in
/// docs/streams.md need 3.1 to 3.7 dB by ITU-R BS.1770. Without the limiter, loud recordings clip with this gain.
inline constexpr float kTypicalMakeUpGain = 1.41253754f;

/// Maximum gain of the centre and of the surround channels, a factor (+12 dB).
inline constexpr float kMaxChannelGain = 3.98107171f;

/// Typical gain of the surround channels (-3 dB).
inline constexpr float kTypicalSurroundGain = 0.707945784f;

/// Memory layout of a sample. Integers are signed and little-endian, floats native.
enum class SampleFormat : std::uint8_t
{
    S16,     ///< 16 bits in 2 bytes
    S24,     ///< 24 bits in 3 bytes
    S24In32, ///< 24 bits in the low 3 of 4 bytes; the fourth is ignored on input and sign extension on output
    S32,     ///< 32 bits in 4 bytes
    F32      ///< single precision, full scale +-1; larger samples saturate, NaN becomes silence, both are counted
};

/// Where the samples of an output slot come from.
struct OutputSlot
{
    /// The kind of source.
    enum class Source : std::uint8_t
    {
        Engine,  ///< an engine output: 0 front left, 1 front right, 2 centre; with a remap matrix: one of its 4 columns
        Input,   ///< an input slot, delayed by the latency; integers stay exact, floats are rounded to 32-bit integers
        Silence, ///< zeros
        /// A surround channel: 0 left and 1 right, at the sides in layouts that have sides, else behind the listener;
        /// 2 left and 3 right, behind the listener in layouts that have sides. If 2 or 3 is in use, all four are 3 dB
        /// softer. Not with a remap matrix.
        Surround,
        /// Left (0) or right (1) of the input, delayed by the latency, with the centre at another level: the upmix for
        /// two loudspeakers or headphones. If the gain of the centre is 1, integers are exact. Not with a remap matrix.
        Dialogue,
        /// The LFE channel: the bass of left plus right below 120 Hz, delayed by the latency. Receivers play it 10 dB
        /// louder than the other channels; it is then as loud as the bass of the fronts with BassMode::Fronts. Only
        /// index 0. Not with a remap matrix.
        Lfe
    };

    Source source = Source::Silence; ///< kind of source
    std::uint8_t index = 0;          ///< number of the engine output, input slot, surround channel or side
};

/// Gains from front left, front right and centre (rows) to four outputs (columns), signed fixed point with 28 fraction
/// bits: 0x10000000 is 1. If the sum of absolute gains in a column exceeds 1, the output can wrap.
struct RemapGains
{
    std::uint32_t gain[3][4]; ///< engine output x column
};

/// How fast the engine follows strong steering.
enum class SteeringMode : std::uint8_t
{
    Fast, ///< at the fast smoothing speed
    Calm  ///< at the medium smoothing speed
};

/// Where the bass plays.
enum class BassMode : std::uint8_t
{
    Steered, ///< where the engine steers it: a subwoofer that adds the outputs gets centred bass 3 dB softer than other
             ///< bass
    Fronts   ///< below 120 Hz, the fronts play 0.7071 x the stereo, and the centre nothing; the surround channels begin
             ///< at 160 Hz
};

/// Configuration of a stream. The default is stereo floats at 48 kHz to front left, front right and centre.
struct StreamConfiguration
{
    std::uint32_t sampleRateHz = 48000;      ///< one of kSampleRatesHz
    SampleFormat format = SampleFormat::F32; ///< of input and output
    std::uint32_t inputSlots = 2;            ///< 1 to kMaxSlots
    std::uint32_t leftSlot = 0;              ///< input slot of the left channel
    std::uint32_t rightSlot = 1;             ///< input slot of the right channel
    std::uint32_t outputSlots = 3;           ///< 1 to kMaxSlots
    /// Sources of the output slots; the first outputSlots entries are used.
    std::array<OutputSlot, kMaxSlots> outputs = {
        {{OutputSlot::Source::Engine, 0}, {OutputSlot::Source::Engine, 1}, {OutputSlot::Source::Engine, 2}}};
    std::optional<RemapGains> remap = std::nullopt; ///< if set, mixes the three engine outputs into four
    SteeringMode mode = SteeringMode::Fast;         ///< initial mode, see UpmixStream::setMode
    /// Keeps the true peak of all outputs but input slots at about -1 dB, with one gain for all of them, instead of
    /// clipping. Costs 64 frames of latency.
    bool limiter = false;
    /// Initial mode, see UpmixStream::setBass. Fronts is not possible with a remap matrix; Dialogue slots keep their
    /// bass.
    BassMode bass = BassMode::Steered;
};

/// The smoothing speed with which a band group follows its steering.
enum class SteeringSpeed : std::uint8_t
{
    Slower, ///< slowest
    Slow,   ///< slow
    Mid,    ///< medium
    Fast    ///< fastest
};

/// Meter values for a display. Levels are linear, full scale 1.
struct StreamMeters
{
    float peak[kMaxSlots];            ///< per output slot; decays by 20 dB in 1.7 s (as IEC 60268-10, type I)
    float rms[kMaxSlots];             ///< per output slot, over about 300 ms
    float leftRight[kBandGroups];     ///< per band group, lowest first: -1 right to 1 left
    float frontBack[kBandGroups];     ///< per band group: -1 back to 1 front
    SteeringSpeed speed[kBandGroups]; ///< per band group
    std::uint64_t blocks;             ///< processed blocks of 64 frames
    std::uint64_t saturated;          ///< samples beyond full scale: floats of the input, or outputs after gain
    std::uint64_t invalid;            ///< NaN samples of the input, read as silence
    float limiterGain;                ///< smallest gain of the limiter in the last block; 1: it does nothing
    float smallestLimiterGain;        ///< smallest gain of the limiter in all blocks
    std::uint64_t limitedBlocks;      ///< blocks in which the gain of the limiter was below 1

    // The band groups in the three outputs of the engine, before gains, width, bass mode, limiter, matrix and bypass.
    // Updated every 8 blocks. Front left and front right are equal for a sound in the centre and for a wide sound;
    // groupCentre tells them apart.
    float groupLevel[kBandGroups];   ///< root of the sum of the mean squares in the three outputs, over about 300 ms
    float groupPlace[kBandGroups];   ///< share of front left in these squares, minus that of front right: -1 to 1
    float groupCentre[kBandGroups];  ///< share of the centre in these squares: 0 to 1
    float groupUpperHz[kBandGroups]; ///< upper edge; the lower edge is that of the group before, or 0

    /// Per band group: root of the sum of the mean squares in all surround channels, two or four, over about 300 ms,
    /// before their gain, bass mode, limiter and bypass. 0 without Surround slots.
    float groupSurround[kBandGroups];
};

} // namespace zrk_tarn
