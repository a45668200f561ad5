#pragma once

#include "../engine/zrk_tarn.h"

#include <cstdint>

/// Channel position codes of the interleaved slots, in slot order; as many are read as the buffer has slots.
///
/// 0x2000, 0x8000   left: input, output front left       0x40000  output of remap column 2
/// 0x4000, 0x10000  right: input, output front right     0x80000  output of remap column 3
/// 0x200, 0x1000    centre: output, plain path only      others   never touched
///
/// A role's slot is the first one that carries one of its codes; of a role's two codes, either will do. These are not
/// the bits of WAVE channel masks.
struct audio_channel_assignment_t
{
    static constexpr std::uint32_t kLeft = 0x2000;          ///< or 0x8000
    static constexpr std::uint32_t kRight = 0x4000;         ///< or 0x10000
    static constexpr std::uint32_t kCentre = 0x200;         ///< or 0x1000
    static constexpr std::uint32_t kRemapColumn2 = 0x40000; ///< on the remap path only
    static constexpr std::uint32_t kRemapColumn3 = 0x80000; ///< on the remap path only

    std::uint32_t code[8]; ///< of each slot
};

/// What a host holds: one stream's engine, its configuration and the block driver.
///
/// One object serves one thread at a time and takes no locks. The first process call of the program fills process-wide
/// tables and must return before other threads make theirs, or cosModTablesInit (filterbank/cos_mod.h) is called before
/// them; from then on any number of objects run on any number of threads. All process calls of an object but its first,
/// which allocates, are real-time safe.
///
/// Results depend on nothing but the calls: process sets the default floating-point environment (round to nearest,
/// subnormal numbers kept) and puts the caller's back, with its exception flags as they were.
///
/// The output comes kDelayFrames after the input, at every rate. To bring out the last of a stream, process as much
/// silence; to start anew, as after a seek, take a new object. stream/upmix_stream.h does all that for hosts with
/// buffers of other sizes and formats.
class [[gnu::visibility("default")]] zrk_tarn_processor_t
{
public:
    /// Frames by which the output comes after the input, at every rate.
    static constexpr std::uint32_t kDelayFrames = 960;

    /// A processor without an engine, which the first process call creates.
    zrk_tarn_processor_t() noexcept;

    /// Closes and frees the engine, if there is one.
    ~zrk_tarn_processor_t();

    zrk_tarn_processor_t(const zrk_tarn_processor_t&) = delete;
    zrk_tarn_processor_t& operator=(const zrk_tarn_processor_t&) = delete;

    /// Stores the configuration, which the first process call, and later the next change of the stream format, puts
    /// into effect. Returns 0.
    ///
    /// mode         0: strong steering is followed fast; 1: calmer, at medium speed. These are modes 1 and 2 of the
    ///              engine; 2 becomes its mode 4, which it rejects, keeping what it had; all others are taken as 1
    /// option       passed on to the engine, which does not read it
    /// mixFraction  0.0 to 1.0
    std::uint32_t setup(std::int32_t mode, std::int32_t option, float mixFraction) noexcept;

    /// Copies the remap matrix, which the next process call on the remap path puts into effect. Returns 0.
    ///
    /// coeff  [3][4]  engine output (front left, front right, centre) x remap output, signed fixed-point words with
    ///                28 fraction bits: 0x10000000 is unity
    std::uint32_t set_remap_coeff(unsigned(*coeff)[4]) noexcept;

    /// Upmixes a buffer of interleaved PCM in place. Always returns 0: after a call, leftSlot, rightSlot and centreSlot
    /// (or both remap slots) that are not -1 tell that the assignment was understood.
    ///
    /// buffer         frameCount x channelCount signed little-endian samples, right-justified in containers of
    ///                (bitsPerSample + 7) / 8 bytes; containers of 2, 3 and 4 bytes are processed
    ///                null processes nothing
    /// frameCount     frames; cut into blocks of 64, the last one padded with silence to a whole block. Nothing is
    ///                carried over between calls: any other number than a multiple of 64 but at the end of a stream
    ///                puts a gap into it, so hosts with other buffers queue them to multiples of 64
    /// channelCount   slots per frame, 0 to 8; more are left unprocessed, and the stored assignment stays as it was
    /// sampleRate     Hz; 32000, 44100, 48000, 64000, 88200, 96000 or 192000, others run on what was set before
    /// bitsPerSample  bits
    /// assignment     codes of the slots; null with slots to name processes nothing
    ///
    /// Buffers without a left, right and centre slot pass unchanged. Buffers of 8 slots that carry left, right and both
    /// remap codes take the remap path; all others write front left, front right and centre into their slots.
    ///
    /// Throws std::bad_alloc when the engine cannot be created; the object can be used again.
    std::uint32_t process(void* buffer, std::uint32_t frameCount, std::uint32_t channelCount, std::uint32_t sampleRate,
                          std::uint32_t bitsPerSample, audio_channel_assignment_t* assignment);

    // Configuration, as setup and set_remap_coeff left it, and the stream format of the last process call.
    ZRKTarn* engine = nullptr;        ///< owned; created by the first process call
    std::int32_t mode = 0;            ///< setup
    std::int32_t option = 0;          ///< setup
    float mixFraction = 1.0f;         ///< setup
    std::uint32_t sampleRate = 0;     ///< Hz, for which the engine was last initialised
    std::uint32_t bitsPerSample = 0;  ///< bits, for which the engine was last initialised
    std::uint32_t channelCount = 0;   ///< slots of the last assignment
    std::uint32_t assignment[8]{};    ///< its codes
    std::int32_t leftSlot = -1;       ///< slot of the left code in it, or -1
    std::int32_t rightSlot = -1;      ///< slot of the right code, or -1
    std::int32_t centreSlot = -1;     ///< slot of the centre code, or -1
    std::int32_t auxSlotA = -1;       ///< slot of code 0x40000, or -1
    std::int32_t auxSlotB = -1;       ///< slot of code 0x80000, or -1
    std::uint32_t remapCoeff[3][4]{}; ///< gains, engine output x remap output
};
