// Counts the samples that wrap around in the remap mix.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "cli/upmixer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace tarn
{

/// Computes the exact sums of a remap matrix from the three outputs of the engine.
class RemapSums final : public AudioSink
{
public:
    /// Statistics of a column of the matrix. Sums are integers of the width of the samples, rounded down.
    struct Column
    {
        std::uint64_t wrapped = 0; ///< sums beyond full scale
        std::int64_t smallest = std::numeric_limits<std::int64_t>::max();
        std::int64_t largest = std::numeric_limits<std::int64_t>::min();
    };

    RemapSums(const zrk_tarn::RemapGains& matrix, StreamFormat format) noexcept;

    void write(const std::int32_t* samples, std::size_t frames) override;
    void finish() override {}

    const std::array<Column, kRemapColumns>& columns() const noexcept { return sums; }

private:
    zrk_tarn::RemapGains gains;
    std::uint32_t bits;
    std::array<Column, kRemapColumns> sums{};
};

/// Counts the samples of a remapped output that wrapped around.
///
/// The engine computes the same three outputs with and without a matrix. A second engine without a matrix provides
/// them; their exact sums show which samples wrapped in the output of the first engine.
class WrapCounter
{
public:
    /// Whether samples of this width can wrap around in any column.
    static bool canWrap(const zrk_tarn::RemapGains& matrix, std::uint32_t bits) noexcept;

    /// For the output of an Upmixer with the same arguments.
    WrapCounter(StreamFormat format, const EngineSettings& settings, bool align);

    WrapCounter(const WrapCounter&) = delete;
    WrapCounter& operator=(const WrapCounter&) = delete;

    /// Processes the same frames as the other Upmixer.
    void push(const std::int32_t* stereo, std::size_t frames) { plain.push(stereo, frames); }

    /// Counts the frames that remain after the last push.
    void finish() { plain.finish(); }

    /// Samples of the output that wrapped around.
    std::uint64_t wrapped() const noexcept;

    /// The result and advice for the user.
    ///
    /// slots  slot names of the columns
    std::string note(const RemapSlots& slots) const;

private:
    double fullScale;
    RemapSums sums;
    Upmixer plain;
};

} // namespace tarn
