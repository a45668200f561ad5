#pragma once

#include <array>
#include <cstdint>
#include <optional>

/// @file
/// What a stream is made for and what it shows: formats, slots, configuration, meters.

/// The streaming adapter.
namespace zrk_tarn
{

/// How a sample lies in a host's memory. Integers are signed and little-endian, floats native.
enum class SampleFormat : std::uint8_t
{
    S16,     ///< 16 bits in 2 bytes
    S24,     ///< 24 bits in 3 bytes
    S24In32, ///< 24 bits in the low 3 of 4 bytes; read without the fourth, which is written as the sign
    S32,     ///< 32 bits in 4 bytes
    F32      ///< single precision, full scale +-1
};

/// What an output slot carries.
struct OutputSlot
{
    /// Where its samples come from.
    enum class Source : std::uint8_t
    {
        Engine, ///< an output of the engine: 0 front left, 1 front right, 2 centre; with a remap matrix its column
        Input,  ///< an input slot, delayed by the latency; integers untouched, floats as exact as 32 bits carry them
        Silence ///< nothing
    };

    Source source = Source::Silence; ///< of its samples
    std::uint8_t index = 0;          ///< of the engine's output or of the input slot
};

/// Gains from front left, front right and centre (rows) to four outputs (columns), signed with 28 fraction bits:
/// 0x10000000 is unity. Sums wrap around beyond full scale: what a column's gains amount to should be 1 or less.
struct RemapGains
{
    std::uint32_t gain[3][4]; ///< engine output x column
};

/// The gain that makes the upmix of most music as loud as its stereo, +3 dB: single sources come out of one loudspeaker
/// instead of two. Recordings need 2.8 to 3.6 dB by ITU-R BS.1770 (docs/streams.md). Loud ones saturate with it.
inline constexpr float kTypicalMakeUpGain = 1.41253754f;

/// How fast the engine follows strong steering.
enum class SteeringMode : std::uint8_t
{
    Fast, ///< at the fast speed
    Calm  ///< at the mid speed instead
};

/// What a stream is made for. The defaults take stereo floats and give front left, front right and centre.
struct StreamConfiguration
{
    std::uint32_t sampleRateHz = 48000;      ///< 32000, 44100, 48000, 64000, 88200, 96000 or 192000
    SampleFormat format = SampleFormat::F32; ///< of input and output
    std::uint32_t inputSlots = 2;            ///< 1 to 8
    std::uint32_t leftSlot = 0;              ///< input slot of the left channel
    std::uint32_t rightSlot = 1;             ///< input slot of the right channel
    std::uint32_t outputSlots = 3;           ///< 1 to 8
    /// What the output slots carry; the first outputSlots of them count.
    std::array<OutputSlot, 8> outputs = {
        {{OutputSlot::Source::Engine, 0}, {OutputSlot::Source::Engine, 1}, {OutputSlot::Source::Engine, 2}}};
    std::optional<RemapGains> remap = std::nullopt; ///< spreads the three outputs over four
    SteeringMode mode = SteeringMode::Fast;         ///< can be changed later
    float mixFraction = 1.0f;                       ///< 0 to 1
};

/// The smoothing speed that a band group follows its steering with.
enum class SteeringSpeed : std::uint8_t
{
    Slower, ///< the slowest
    Slow,   ///< slow
    Mid,    ///< medium
    Fast    ///< the fastest
};

/// What a display shows. Levels are linear, full scale 1.
struct StreamMeters
{
    float peak[8];           ///< per output slot; falls by 20 dB in 1.7 s (as IEC 60268-10, type I)
    float rms[8];            ///< per output slot, over about 300 ms
    float leftRight[16];     ///< per band group, lowest first: -1 right to 1 left
    float frontBack[16];     ///< per band group: -1 back to 1 front
    SteeringSpeed speed[16]; ///< per band group
    std::uint64_t blocks;    ///< of 64 frames, processed so far
    std::uint64_t saturated; ///< samples that were beyond full scale, before the engine or by gain behind it
    std::uint64_t invalid;   ///< NaN samples, taken as silence
};

} // namespace zrk_tarn
