// Signals from a fuzzer's bytes.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/host_pair.h"

#include <cstdint>

namespace fuzz
{

/// A signal described by a few bytes.
class ByteSignal
{
public:
    /// Reads the description.
    explicit ByteSignal(ByteReader& bytes);

    /// Writes frames into slots of a buffer: the signal's left side into even slots, its right side into odd ones.
    ///
    /// time  of the first frame
    void write(HostBuffer& buffer, std::uint64_t time, std::uint32_t frames, std::uint32_t slots,
               std::uint32_t bitsPerSample) const;

private:
    enum class Kind : std::uint8_t
    {
        Silence,
        Bytes,         ///< given bytes, repeated, in all slots
        DiffuseNoise,  ///< independent left and right
        CentredNoise,  ///< left and right equal
        OppositeNoise, ///< right is left inverted
        Tone,          ///< whole periods per 256 frames, with separate levels left and right
        TwoTones,      ///< one on each side
        Steps,         ///< alternating full scale, with separate periods left and right
        Impulses,      ///< single full-scale samples in silence
        Constant
    };

    struct Frame
    {
        std::int32_t left;
        std::int32_t right;
    };

    Frame frameAt(std::uint64_t time) const;
    void writeBytes(HostBuffer& buffer) const;

    Kind kind;
    std::uint8_t shift[2];  ///< left, right: halvings of full scale
    std::uint8_t detail[2]; ///< pitch, period or seed
    std::span<const std::uint8_t> pattern;
};

} // namespace fuzz
