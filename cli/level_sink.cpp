// Accumulates channel levels while samples pass to the next sink.
// SPDX-License-Identifier: MIT
#include "cli/level_sink.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace tarn
{

namespace
{

constexpr std::size_t kMaxSlots = 8;
constexpr std::size_t kPartFrames = 128;
constexpr double kFullScale = 0x1p31;

/// Squares of samples that are not scaled, slot by slot.
struct Squares
{
    std::array<double, kMaxSlots> sum;
    std::array<double, kMaxSlots> largest;
};

/// Values of two neighbouring slots.
using Pair [[gnu::vector_size(2 * sizeof(double))]] = double;

Pair loadPair(const double* values) noexcept
{
    Pair pair;
    std::memcpy(&pair, values, sizeof pair);
    return pair;
}

void storePair(double* values, const Pair& pair) noexcept
{
    std::memcpy(values, &pair, sizeof pair);
}

/// Adds the squares of up to kPartFrames frames. Every sum adds them in the order of the frames.
template <std::size_t kSlots>
void addSquares(const std::int32_t* samples, std::size_t frames, Squares& squares) noexcept
{
    double converted[kPartFrames * kSlots];
    for (std::size_t i = 0; i < frames * kSlots; ++i) converted[i] = samples[i];

    constexpr std::size_t kPairs = (kSlots + 1) / 2;
    const auto slotOf = [](std::size_t pair) { return std::min(2 * pair, kSlots - 2); }; // the last two can overlap
    Pair sum[kPairs];
    Pair largest[kPairs];
    for (std::size_t p = 0; p < kPairs; ++p) {
        sum[p] = loadPair(&squares.sum[slotOf(p)]);
        largest[p] = loadPair(&squares.largest[slotOf(p)]);
    }
    for (std::size_t i = 0; i < frames; ++i) {
#pragma GCC unroll 4
        for (std::size_t p = 0; p < kPairs; ++p) {
            const Pair sample = loadPair(converted + i * kSlots + slotOf(p));
            const Pair square = sample * sample;
            sum[p] += square;
            largest[p] = largest[p] < square ? square : largest[p];
        }
    }
    for (std::size_t p = 0; p < kPairs; ++p) {
        storePair(&squares.sum[slotOf(p)], sum[p]);
        storePair(&squares.largest[slotOf(p)], largest[p]);
    }
}

using AddSquares = void (*)(const std::int32_t* samples, std::size_t frames, Squares& squares);

/// The function for a number of slots, 2 to kMaxSlots.
AddSquares addSquaresOf(std::size_t slots)
{
    static constexpr auto kAll = []<std::size_t... kIndex>(std::index_sequence<kIndex...>)
    {
        return std::array<AddSquares, sizeof...(kIndex)>{addSquares<kIndex + 2>...};
    }
    (std::make_index_sequence<kMaxSlots - 1>{});
    return kAll.at(slots - 2);
}

} // namespace

void LevelSink::write(const std::int32_t* samples, std::size_t frames)
{
    constexpr double kUnit = kFullScale * kFullScale; // a power of two, which does not change the rounding
    const AddSquares addPart = addSquaresOf(channels.size());
    for (std::size_t done = 0; done < frames;) {
        const std::size_t part = std::min(kPartFrames, frames - done);
        const std::int32_t* const first = samples + done * channels.size();
        Squares squares{};
        for (std::size_t slot = 0; slot < channels.size(); ++slot) squares.sum[slot] = channels[slot].energy * kUnit;
        addPart(first, part, squares);
        for (std::size_t slot = 0; slot < channels.size(); ++slot) {
            ChannelLevel& channel = channels[slot];
            channel.energy = squares.sum[slot] / kUnit;
            // Few parts have a new peak or full scale. Squares of 32 bits are rounded, so different ones can be equal.
            const double known = std::min(channel.peak * kFullScale, static_cast<double>(largest));
            if (squares.largest[slot] > 0.0 && squares.largest[slot] >= known * known)
                measurePeaks(first + slot, part, channel);
        }
        done += part;
    }
    sink.write(samples, frames);
}

/// Updates the peak of a slot and the number of its samples at full scale.
void LevelSink::measurePeaks(const std::int32_t* first, std::size_t frames, ChannelLevel& channel) const noexcept
{
    for (std::size_t i = 0; i < frames; ++i) {
        const std::int32_t sample = first[i * channels.size()];
        channel.peak = std::max(channel.peak, std::abs(static_cast<double>(sample)) / kFullScale);
        if (sample == INT32_MIN || sample >= largest) ++channel.fullScaleSamples;
    }
}

} // namespace tarn
