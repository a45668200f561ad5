#include "host/zrk_tarn_processor.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>

namespace
{

constexpr std::uint32_t kBlockFrames = 64;
constexpr std::uint32_t kMaxSlots = 8;
constexpr std::int32_t kOutputChannels = 3;

/// The engine's mode for a processor's mode; 4 is one that the engine rejects.
std::int32_t engineMode(std::int32_t processorMode) noexcept
{
    switch (processorMode) {
    case 0:
        return 1;
    case 2:
        return 4;
    default:
        return 2;
    }
}

/// Brings the processor's engine to a stream format; creates it if there is none, keeps it and its histories if so.
void followFormat(zrk_tarn_processor_t& processor, std::uint32_t sampleRate, std::uint32_t bitsPerSample)
{
    if (processor.engine == nullptr) {
        processor.engine = new ZRKTarn();
    } else if (sampleRate == processor.sampleRate && bitsPerSample == processor.bitsPerSample) {
        return;
    } else {
        processor.engine->Close();
    }

    // The format is stored whatever the engine says to it, so that a rejected one is not tried again.
    processor.engine->Open();
    processor.sampleRate = sampleRate;
    processor.bitsPerSample = bitsPerSample;
    processor.engine->Initialize({.spare = 0,
                                  .outputChannels = kOutputChannels,
                                  .bitsPerSample = static_cast<std::int32_t>(bitsPerSample),
                                  .sampleRate = sampleRate,
                                  .mode = engineMode(processor.mode),
                                  .option = processor.option,
                                  .mixFraction = processor.mixFraction});
}

/// Bytes of the container of a sample. Sums are modulo 2^32: the seven widths at the very top have none.
std::size_t containerBytes(std::uint32_t bitsPerSample) noexcept
{
    return (bitsPerSample + 7) / 8;
}

/// The first slot that carries one of a role's codes, or -1.
std::int32_t slotOf(const zrk_tarn_processor_t& processor, std::initializer_list<std::uint32_t> roleCodes)
{
    const std::uint32_t* const begin = processor.assignment;
    const std::uint32_t* const end = begin + processor.channelCount;
    const auto* const found = std::find_first_of(begin, end, roleCodes.begin(), roleCodes.end());
    return found == end ? -1 : static_cast<std::int32_t>(found - begin);
}

/// Finds the slots of all roles again if the assignment has changed.
void followAssignment(zrk_tarn_processor_t& processor, std::uint32_t channelCount, const std::uint32_t* codes)
{
    if (channelCount == processor.channelCount && std::equal(codes, codes + channelCount, processor.assignment)) return;

    processor.channelCount = channelCount;
    std::copy_n(codes, channelCount, processor.assignment);
    processor.leftSlot = slotOf(processor, {0x2000, 0x8000});
    processor.rightSlot = slotOf(processor, {0x4000, 0x10000});
    processor.centreSlot = slotOf(processor, {0x200, 0x1000});
    processor.auxSlotA = slotOf(processor, {0x40000});
    processor.auxSlotB = slotOf(processor, {0x80000});
}

} // namespace

std::uint32_t zrk_tarn_processor_t::process(void* buffer, std::uint32_t frameCount, std::uint32_t slots,
                                            std::uint32_t streamRate, std::uint32_t streamBits,
                                            audio_channel_assignment_t* slotCodes)
{
    followFormat(*this, streamRate, streamBits);

    if (slots > kMaxSlots || (slots > 0 && slotCodes == nullptr)) return 0;
    followAssignment(*this, slots, slots > 0 ? slotCodes->code : assignment);

    const bool remap = slots == kMaxSlots && auxSlotA != -1 && auxSlotB != -1;
    if (leftSlot == -1 || rightSlot == -1 || (!remap && centreSlot == -1)) return 0;
    if (remap) {
        int gains[3][4];
        std::memcpy(gains, remapCoeff, sizeof gains);
        engine->SetRemapCoeff(gains);
    }

    const std::size_t bytes = containerBytes(streamBits);
    const auto offsetOf = [bytes](std::int32_t slot) { return bytes * static_cast<std::size_t>(slot); };
    const std::size_t left = offsetOf(leftSlot);
    const std::size_t right = offsetOf(rightSlot);
    const std::size_t third = offsetOf(remap ? auxSlotA : centreSlot);
    const std::size_t fourth = offsetOf(remap ? auxSlotB : centreSlot);

    if (buffer == nullptr) return 0;
    for (std::uint32_t done = 0; done < frameCount;) {
        auto* const block = static_cast<std::uint8_t*>(buffer) + done * bytes * slots;
        const std::uint32_t frames = std::min(frameCount - done, kBlockFrames);
        engine->SetChannelPtrs(block + left, block + right, block + third, block + fourth);
        if (remap) {
            engine->ProcessCine3InterLeaveRemap(frames, slots);
        } else {
            engine->ProcessCine3InterLeave(frames, slots);
        }
        done += frames;
    }
    return 0;
}
