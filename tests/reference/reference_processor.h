// The host object of the reference engine.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "tests/reference/reference_engine.h"

namespace reference
{

/// The host object of the reference engine: configuration, stream format, channel slots and the block driver.
///
/// The channel assignment is passed as plain codes, one per interleaved slot.
struct Processor
{
    Engine* engine = nullptr; ///< owned; created by the first process call
    std::int32_t mode = 0;
    std::int32_t option = 0;
    float mixFraction = 1.0f;
    std::uint32_t sampleRate = 0;     ///< of the format in force, in Hz
    std::uint32_t bitsPerSample = 0;  ///< of the format in force
    std::uint32_t channelCount = 0;   ///< slots of the last assignment
    std::uint32_t assignment[8] = {}; ///< codes of the last assignment
    std::int32_t leftSlot = -1;
    std::int32_t rightSlot = -1;
    std::int32_t centreSlot = -1;
    std::int32_t auxSlotA = -1; ///< slot of code 0x40000
    std::int32_t auxSlotB = -1; ///< slot of code 0x80000
    std::uint32_t remapCoeff[3][4] = {};

    /// Starts without an engine.
    Processor() = default;

    /// Closes and frees the engine, if there is one.
    ~Processor();

    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    /// Stores the three configuration values for the next change of stream format; always 0.
    std::uint32_t setup(std::int32_t newMode, std::int32_t newOption, float newMixFraction);

    /// Stores the 3 x 4 remap gains for the next call that remaps; always 0.
    std::uint32_t set_remap_coeff(std::uint32_t (*coeff)[4]);

    /// Processes an interleaved buffer in place, in blocks of 64 frames and a shorter last one; always 0.
    ///
    /// A buffer that lacks a needed role is left alone, as is one of more than 8 slots or without an assignment.
    std::uint32_t process(void* buffer, std::uint32_t frameCount, std::uint32_t slotCount, std::uint32_t streamRate,
                          std::uint32_t streamBits, const std::uint32_t* assignmentCodes);
};

} // namespace reference
