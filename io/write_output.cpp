// Writes host samples.
// SPDX-License-Identifier: MIT
#include "io/block_io.h"
#include "io/sample_conversion.h"
#include "lanes/lanes.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// Stores the samples of one slot, stride bytes apart.
template <int kBytes>
void writeSlot(const std::int32_t* samples, std::size_t frames, std::uint8_t* position, std::size_t stride) noexcept
{
#pragma GCC unroll 8
    for (std::size_t i = 0; i < frames; ++i) {
        storeSample<kBytes>(position, static_cast<std::uint32_t>(samples[i]));
        position += stride;
    }
}

/// Stores one lane of a vector of T, seen in 16 bytes of lanes.
template <typename T, int kLane>
[[gnu::always_inline]] inline void storeLane(std::uint8_t* position, const Ints<4>& lanes) noexcept
{
    using Vector [[gnu::vector_size(16)]] = T;
    const T value = reinterpret_cast<Vector>(lanes.part[0])[kLane];
    __builtin_memcpy(position, &value, sizeof value);
}

/// Four frames of three adjacent samples as two stores per frame: a head of type Head and the rest of the third sample.
///
/// low, high  the 32-bit words of the heads; a head of 32 bits is the low one
/// third      the third samples; their rest starts at byte kRest
template <typename Head, typename Rest, int kRest, int... kFrame>
[[gnu::always_inline]] inline void storeFrames(const Ints<4>& low, const Ints<4>& high, const Ints<4>& third,
                                               std::uint8_t* position, std::size_t stride,
                                               std::integer_sequence<int, kFrame...> /*frames*/) noexcept
{
    constexpr int kRestLanes = 4 / static_cast<int>(sizeof(Rest));
    constexpr int kRestLane = kRest / static_cast<int>(sizeof(Rest));
    if constexpr (sizeof(Head) == 4) {
        (storeLane<Head, kFrame>(position + kFrame * stride, low), ...);
    } else {
        (storeLane<Head, kFrame % 2>(position + kFrame * stride,
                                     kFrame < 2 ? lowInterleaved(low, high) : highInterleaved(low, high)),
         ...);
    }
    (storeLane<Rest, kFrame * kRestLanes + kRestLane>(position + kFrame * stride + sizeof(Head), third), ...);
}

/// The same for kCount frames.
template <typename Head, typename Rest, int kRest, int kCount>
[[gnu::always_inline]] inline void storeFrames(const Ints<kCount>& low, const Ints<kCount>& high,
                                               const Ints<kCount>& third, std::uint8_t* position,
                                               std::size_t stride) noexcept
{
    if constexpr (kCount == 4) {
        storeFrames<Head, Rest, kRest>(low, high, third, position, stride, std::make_integer_sequence<int, 4>{});
    } else {
        constexpr std::size_t kHalf = kCount / 2;
        storeFrames<Head, Rest, kRest>(lowHalf(low), lowHalf(high), lowHalf(third), position, stride);
        storeFrames<Head, Rest, kRest>(highHalf(low), highHalf(high), highHalf(third), position + kHalf * stride,
                                       stride);
    }
}

/// Stores three adjacent samples of the frames from begin on, stride bytes apart.
///
/// position  that of frame begin
template <int kBytes>
[[gnu::always_inline]] inline void writeFrames(const std::int32_t (&samples)[3][64], std::size_t begin,
                                               std::size_t frames, std::uint8_t* position, std::size_t stride) noexcept
{
    constexpr std::size_t kWidth = kVectorFloats < 8 ? kVectorFloats : 8;
    const std::size_t whole = frames / kWidth * kWidth;
#pragma GCC unroll 1
    for (std::size_t i = begin; i < whole; i += kWidth) {
        const Ints<kWidth> first = load<kWidth>(samples[0] + i);
        const Ints<kWidth> second = load<kWidth>(samples[1] + i);
        const Ints<kWidth> third = load<kWidth>(samples[2] + i);
        if constexpr (kBytes == 2) {
            const Ints<kWidth> low = (first & broadcast<kWidth>(0xffff)) | shiftedLeft<16>(second);
            storeFrames<std::uint32_t, std::uint16_t, 0>(low, low, third, position, stride);
        } else if constexpr (kBytes == 3) {
            const Ints<kWidth> low = (first & broadcast<kWidth>(0xffffff)) | shiftedLeft<24>(second);
            const Ints<kWidth> high = (shiftedRight<8>(second) & broadcast<kWidth>(0xffff)) | shiftedLeft<16>(third);
            storeFrames<std::uint64_t, std::uint8_t, 2>(low, high, third, position, stride);
        } else {
            storeFrames<std::uint64_t, std::uint32_t, 0>(first, second, third, position, stride);
        }
        position += kWidth * stride;
    }
    for (std::size_t k = 0; k < 3; ++k)
        writeSlot<kBytes>(samples[k] + whole, frames - whole, position + k * kBytes, stride);
}

#if defined __AVX512BW__

constexpr int kMaxSlots = 8;

/// How 16 frames of 16-bit samples become vectors of 32 words of a buffer with kSlots slots.
template <int kSlots>
struct WordPlaces
{
    static constexpr std::size_t kVectors = (16 * kSlots + 31) / 32;

    /// The indices of the words among 32 words of first and second samples, followed by 32 words of third samples.
    std::uint16_t source[kVectors][32]{};

    /// A bit for every word to be written.
    std::uint32_t written[kVectors]{};

    constexpr WordPlaces()
    {
        for (int word = 0; word < 16 * kSlots; ++word) {
            const int frame = word / kSlots;
            const int slot = word % kSlots;
            if (slot >= 3) continue;
            source[word / 32][word % 32] = static_cast<std::uint16_t>(slot < 2 ? 2 * frame + slot : 32 + 2 * frame);
            written[word / 32] |= std::uint32_t{1} << (word % 32);
        }
    }
};

template <int kSlots>
constexpr WordPlaces<kSlots> kWordPlaces;

/// Stores frames of three adjacent 16-bit samples in a buffer with kSlots slots, 16 at a time. Masked stores write the
/// words of these samples only. Returns the number of frames that it has stored.
template <int kSlots>
[[gnu::always_inline]] inline std::size_t writeWords(const std::int32_t (&samples)[3][64], std::size_t frames,
                                                     std::uint8_t* position) noexcept
{
    constexpr const WordPlaces<kSlots>& places = kWordPlaces<kSlots>;
    const std::size_t whole = frames / 16 * 16;
#pragma GCC unroll 1
    for (std::size_t i = 0; i < whole; i += 16) {
        const Ints<16> fronts =
            (load<16>(samples[0] + i) & broadcast<16>(0xffff)) | shiftedLeft<16>(load<16>(samples[1] + i));
        const auto pairs = reinterpret_cast<__m512i>(fronts.part[0]);
        const auto thirds = reinterpret_cast<__m512i>(load<16>(samples[2] + i).part[0]);
#pragma GCC unroll 4
        for (std::size_t v = 0; v < places.kVectors; ++v)
            _mm512_mask_storeu_epi16(position + 64 * v, places.written[v],
                                     _mm512_permutex2var_epi16(pairs, _mm512_loadu_si512(places.source[v]), thirds));
        position += 32 * kSlots;
    }
    return whole;
}

template <int... kSlots>
[[gnu::always_inline]] inline std::size_t
writeWords(const std::int32_t (&samples)[3][64], std::size_t frames, std::uint8_t* position, std::uint32_t slots,
           std::integer_sequence<int, kSlots...> /*after the first three*/) noexcept
{
    std::size_t stored = 0;
    ((slots == 3 + kSlots ? void(stored = writeWords<3 + kSlots>(samples, frames, position)) : void()), ...);
    return stored;
}

#endif

/// Stores frames of three adjacent samples in a buffer with the given number of slots.
template <int kBytes>
[[gnu::always_inline]] inline void writeAdjacent(const std::int32_t (&samples)[3][64], std::size_t frames,
                                                 std::uint8_t* position, std::uint32_t slots) noexcept
{
    const std::size_t stride = frameStride(kBytes, slots);
    std::size_t stored = 0;
#if defined __AVX512BW__
    if constexpr (kBytes == 2)
        stored = writeWords(samples, frames, position, slots, std::make_integer_sequence<int, kMaxSlots - 2>{});
#endif
    writeFrames<kBytes>(samples, stored, frames, position + stored * stride, stride);
}

/// The same for an incomplete block.
template <int kBytes>
[[gnu::noinline]] void writePartOfBlock(const std::int32_t (&samples)[3][64], std::size_t frames,
                                        std::uint8_t* position, std::uint32_t slots) noexcept
{
    writeAdjacent<kBytes>(samples, frames, position, slots);
}

/// Whether the block is in the engine's own rows and goes to three adjacent slots in the order of the rows.
bool isAdjacent(const ZRKTarn& engine, std::size_t bytes, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::uint8_t* const first = engine.channelPtr[0];
    bool adjacent = frames > 0 && channels >= 3; // without frames, the slots may be null
    for (std::size_t k = 0; k < 3; ++k)
        adjacent =
            adjacent && engine.channelPtr[k] == first + k * bytes && engine.outputPtr[k] == engine.outputBlock[k];
    return adjacent;
}

} // namespace

std::uint32_t writeOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept
{
    const std::int32_t bytes = containerBytes(engine.bitsPerSample);
    const std::size_t stride = frameStride(bytes, channels);

    // Channel after channel: if two share a slot, the last one wins.
    const bool written = dispatchContainer(bytes, [&](auto width) {
        constexpr int kBytes = width;
        const HostRange range(engine);
        if (kLittleEndian && isAdjacent(engine, kBytes, frames, channels)) {
            std::int32_t samples[3][64];
            for (int k = 0; k < 3; ++k) convertRow(engine.outputBlock[k], range, samples[k]);
            if (frames == 64) {
                writeAdjacent<kBytes>(samples, 64, engine.channelPtr[0], channels);
            } else {
                writePartOfBlock<kBytes>(samples, frames, engine.channelPtr[0], channels);
            }
            return;
        }
        for (int k = 0; k < 3; ++k) {
            std::uint8_t* const position = engine.channelPtr[k];
            if (engine.outputPtr[k] == engine.outputBlock[k]) {
                std::int32_t samples[64];
                convertRow(engine.outputBlock[k], range, samples);
                writeSlot<kBytes>(samples, frames, position, stride);
            } else {
                // A row of the caller may be in the host buffer itself.
                for (std::uint32_t i = 0; i < frames; ++i)
                    storeSample<kBytes>(position + i * stride,
                                        static_cast<std::uint32_t>(toHostSample(engine.outputPtr[k][i], range)));
            }
        }
    });
    return written ? 1 : 0;
}

void writeRows(const ZRKTarn& engine, std::int32_t (*rows)[64]) noexcept
{
    const HostRange range(engine);
    for (int k = 0; k < 3; ++k) convertRow(engine.outputBlock[k], range, rows[k]);
}

// cppcheck-suppress constParameter ; it writes rows of the engine
void convertOutput(ZRKTarn& engine, std::uint32_t frames) noexcept
{
    const HostRange range(engine);
    for (int k = 0; k < 3; ++k) {
        std::int32_t* const row = engine.outputPtr[k];
        if (row == engine.outputBlock[k]) {
            std::int32_t samples[64];
            convertRow(engine.outputBlock[k], range, samples);
            for (std::uint32_t i = 0; i < frames; ++i) row[i] = samples[i];
        } else {
            // A row of the caller may have only frames samples.
            for (std::uint32_t i = 0; i < frames; ++i) row[i] = toHostSample(row[i], range);
        }
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
