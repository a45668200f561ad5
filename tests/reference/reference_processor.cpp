// The host object of the reference engine.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_processor.h"

#include <cstddef>

namespace reference
{

namespace
{

/// Lowest slot that holds one of two codes, or -1.
std::int32_t findSlot(const std::uint32_t* codes, std::uint32_t count, std::uint32_t codeA, std::uint32_t codeB)
{
    for (std::uint32_t s = 0; s < count; ++s) {
        if (codes[s] == codeA || codes[s] == codeB) return static_cast<std::int32_t>(s);
    }
    return -1;
}

/// Whether two assignments hold the same codes.
bool sameCodes(const std::uint32_t* a, const std::uint32_t* b, std::uint32_t count)
{
    for (std::uint32_t s = 0; s < count; ++s) {
        if (a[s] != b[s]) return false;
    }
    return true;
}

/// Mode of the engine for a mode of the host.
std::int32_t engineMode(std::int32_t hostMode)
{
    switch (hostMode) {
    case 0:
        return 1;
    case 1:
        return 2;
    case 2:
        return 4;
    default:
        return 2;
    }
}

} // namespace

Processor::~Processor()
{
    if (engine != nullptr) {
        engine->Close();
        delete engine;
    }
}

std::uint32_t Processor::setup(std::int32_t newMode, std::int32_t newOption, float newMixFraction)
{
    mode = newMode;
    option = newOption;
    mixFraction = newMixFraction;
    return 0;
}

std::uint32_t Processor::set_remap_coeff(std::uint32_t (*coeff)[4])
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) remapCoeff[r][c] = coeff[r][c];
    }
    return 0;
}

std::uint32_t Processor::process(void* buffer, std::uint32_t frameCount, std::uint32_t slotCount,
                                 std::uint32_t streamRate, std::uint32_t streamBits,
                                 const std::uint32_t* assignmentCodes)
{
    // Engine and stream format.
    bool configure = false;
    if (engine == nullptr) {
        engine = new Engine();
        configure = true;
    } else if (streamRate != sampleRate || streamBits != bitsPerSample) {
        engine->Close();
        configure = true;
    }
    if (configure) {
        engine->Open();
        sampleRate = streamRate;
        bitsPerSample = streamBits;
        Parameters parameters;
        parameters.spare = 0;
        parameters.outputChannels = 3;
        parameters.bitsPerSample = static_cast<std::int32_t>(streamBits);
        parameters.sampleRate = streamRate;
        parameters.mode = engineMode(mode);
        parameters.option = option;
        parameters.mixFraction = mixFraction;
        engine->Initialize(parameters);
    }

    if (slotCount > 8) return 0;
    if (assignmentCodes == nullptr && slotCount != 0) return 0;

    // Slots.
    if (slotCount != channelCount || !sameCodes(assignmentCodes, assignment, slotCount)) {
        channelCount = slotCount;
        for (std::uint32_t s = 0; s < slotCount; ++s) assignment[s] = assignmentCodes[s];
        leftSlot = -1;
        if (slotCount == 0) {
            leftSlot = -1;
            rightSlot = -1;
            centreSlot = -1;
            auxSlotA = -1;
            auxSlotB = -1;
        } else {
            leftSlot = findSlot(assignment, slotCount, 0x2000, 0x8000);
            rightSlot = findSlot(assignment, slotCount, 0x4000, 0x10000);
            centreSlot = findSlot(assignment, slotCount, 0x200, 0x1000);
            auxSlotA = findSlot(assignment, slotCount, 0x40000, 0x40000);
            auxSlotB = findSlot(assignment, slotCount, 0x80000, 0x80000);
        }
    }

    // Path.
    bool remap = false;
    if (slotCount == 8) {
        if (leftSlot == -1 || rightSlot == -1) return 0;
        if (auxSlotA != -1 && auxSlotB != -1) remap = true;
    }

    const std::size_t bytesPerSample = (streamBits + 7u) / 8u;
    std::size_t blockStride = 0;
    std::size_t offset[4] = {};
    if (remap) {
        std::int32_t coeff[3][4];
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 4; ++c) coeff[r][c] = static_cast<std::int32_t>(remapCoeff[r][c]);
        }
        engine->SetRemapCoeff(coeff);
        blockStride = 512 * bytesPerSample;
        offset[0] = bytesPerSample * static_cast<std::size_t>(leftSlot);
        offset[1] = bytesPerSample * static_cast<std::size_t>(rightSlot);
        offset[2] = bytesPerSample * static_cast<std::size_t>(auxSlotA);
        offset[3] = bytesPerSample * static_cast<std::size_t>(auxSlotB);
    } else {
        if (leftSlot == -1 || rightSlot == -1 || centreSlot == -1) return 0;
        blockStride = 64 * bytesPerSample * slotCount;
        offset[0] = bytesPerSample * static_cast<std::size_t>(leftSlot);
        offset[1] = bytesPerSample * static_cast<std::size_t>(rightSlot);
        offset[2] = bytesPerSample * static_cast<std::size_t>(centreSlot);
        offset[3] = bytesPerSample * static_cast<std::size_t>(centreSlot);
    }

    // Blocks: whole ones, then the rest of the buffer as a short one.
    if (buffer == nullptr) return 0;
    std::uint8_t* const bytes = static_cast<std::uint8_t*>(buffer);
    const std::uint32_t wholeBlocks = frameCount / 64;
    const std::uint32_t restFrames = frameCount % 64;
    for (std::uint32_t i = 0; i <= wholeBlocks; ++i) {
        const std::uint32_t frames = i < wholeBlocks ? 64 : restFrames;
        if (frames == 0) break;
        std::uint8_t* const block = bytes + i * blockStride;
        engine->SetChannelPtrs(block + offset[0], block + offset[1], block + offset[2], block + offset[3]);
        if (remap) {
            engine->ProcessCine3InterLeaveRemap(frames, slotCount);
        } else {
            engine->ProcessCine3InterLeave(frames, slotCount);
        }
    }
    return 0;
}

} // namespace reference
