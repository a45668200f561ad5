// The host object: one stream, its configuration and the block driver.
// SPDX-License-Identifier: MIT
#pragma once

#include "../engine/zrk_tarn.h"

#include <cstdint>

/// Channel position codes of the interleaved slots, one per slot, in slot order.
///
/// 0x2000, 0x8000   left: input, output front left       0x40000  output of remap column 2
/// 0x4000, 0x10000  right: input, output front right     0x80000  output of remap column 3
/// 0x200, 0x1000    centre: output, plain path only      others   slot stays unchanged
///
/// If several slots have a code of the same role, the first one has the role. The codes are not the bits of WAVE
/// channel masks.
struct audio_channel_assignment_t
{
    static constexpr std::uint32_t kLeft = 0x2000;          ///< or 0x8000
    static constexpr std::uint32_t kRight = 0x4000;         ///< or 0x10000
    static constexpr std::uint32_t kCentre = 0x200;         ///< or 0x1000
    static constexpr std::uint32_t kRemapColumn2 = 0x40000; ///< on the remap path only
    static constexpr std::uint32_t kRemapColumn3 = 0x80000; ///< on the remap path only

    std::uint32_t code[8]; ///< of every slot
};

/// One stream: its engine, its configuration and the block driver.
///
/// Use an object on one thread at a time; it takes no locks. The first process call of the program fills process-wide
/// tables and must return before other threads call process; or call cosModTablesInit (filterbank/cos_mod.h) first.
/// Afterwards any number of objects can run on any number of threads. The first process call of an object allocates;
/// all others are real-time safe and need at most 12 KiB of stack in an optimised build.
///
/// Results depend only on the calls: process sets the default floating-point environment (round to nearest, subnormal
/// numbers kept) and restores the caller's environment and exception flags.
///
/// The output is delayed by kDelayFrames at every rate. To get the end of a stream, process that many frames of
/// silence. To start again, for example after a seek, use a new object. For other buffer sizes and formats, use
/// UpmixStream (stream/upmix_stream.h).
class [[gnu::visibility("default")]] zrk_tarn_processor_t
{
public:
    /// Delay of the output in frames, at every rate.
    static constexpr std::uint32_t kDelayFrames = 960;

    /// Creates no engine; the first process call does.
    zrk_tarn_processor_t() noexcept;

    /// Frees the engine.
    ~zrk_tarn_processor_t();

    zrk_tarn_processor_t(const zrk_tarn_processor_t&) = delete;
    zrk_tarn_processor_t& operator=(const zrk_tarn_processor_t&) = delete;

    /// Stores the configuration, which the first process call and every change of the stream format apply. Returns 0.
    ///
    /// mode         0: follows strong steering at fast speed (engine mode 1); 1: at mid speed (engine mode 2); 2: keeps
    ///              the previous mode (engine mode 4, which the engine rejects); others: like 1
    /// option       passed to the engine, which does not use it
    /// mixFraction  0.0 to 1.0, passed to the engine, which does not use it
    std::uint32_t setup(std::int32_t mode, std::int32_t option, float mixFraction) noexcept;

    /// Copies the remap matrix, which the next process call on the remap path applies. Returns 0.
    ///
    /// coeff  [3][4]  engine output (front left, front right, centre) x remap output, signed fixed-point words with
    ///                28 fraction bits: 0x10000000 is unity
    std::uint32_t set_remap_coeff(unsigned(*coeff)[4]) noexcept;

    /// Upmixes a buffer of interleaved PCM in place. Always returns 0. If the arguments are valid, the buffer was
    /// processed if leftSlot, rightSlot and centreSlot (or both remap slots) are not -1 after the call.
    ///
    /// buffer         frameCount x channelCount signed little-endian samples, right-justified in containers of
    ///                (bitsPerSample + 7) / 8 bytes; containers of 2, 3 and 4 bytes are processed; null processes
    ///                nothing
    /// frameCount     frames, split into blocks of 64; the last block is padded with silence. No frames are kept for
    ///                the next call, so a number that is not a multiple of 64 causes a gap unless the stream ends.
    ///                Hosts with other buffer sizes must queue frames
    /// channelCount   slots per frame, 0 to 8; with more, the buffer and the stored assignment stay unchanged
    /// sampleRate     Hz: 32000, 44100, 48000, 64000, 88200, 96000 or 192000; another rate keeps the settings of the
    ///                previous one
    /// bitsPerSample  width of the samples, bits
    /// assignment     codes of the slots; null processes nothing, unless channelCount is 0
    ///
    /// Buffers of 8 slots with left, right and both remap codes are remapped. Other buffers need a left, right and
    /// centre slot, which get front left, front right and centre; without them they stay unchanged.
    ///
    /// Throws std::bad_alloc if it cannot allocate the engine; the object stays usable.
    std::uint32_t process(void* buffer, std::uint32_t frameCount, std::uint32_t channelCount, std::uint32_t sampleRate,
                          std::uint32_t bitsPerSample, audio_channel_assignment_t* assignment);

    // The engine, the configuration from setup and set_remap_coeff, and the stream format of the last process call.
    ZRKTarn* engine = nullptr;        ///< owned; created by the first process call
    std::int32_t mode = 0;            ///< from setup
    std::int32_t option = 0;          ///< from setup
    float mixFraction = 1.0f;         ///< from setup
    std::uint32_t sampleRate = 0;     ///< Hz, of the last initialization
    std::uint32_t bitsPerSample = 0;  ///< bits, of the last initialization
    std::uint32_t channelCount = 0;   ///< slots of the last assignment
    std::uint32_t assignment[8]{};    ///< codes of the last assignment
    std::int32_t leftSlot = -1;       ///< slot of the left code in assignment, or -1
    std::int32_t rightSlot = -1;      ///< slot of the right code, or -1
    std::int32_t centreSlot = -1;     ///< slot of the centre code, or -1
    std::int32_t auxSlotA = -1;       ///< slot of code 0x40000, or -1
    std::int32_t auxSlotB = -1;       ///< slot of code 0x80000, or -1
    std::uint32_t remapCoeff[3][4]{}; ///< gains, engine output x remap output
};
