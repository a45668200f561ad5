// Cuts a host's buffers into blocks of 64 frames and runs them through the engine.
// SPDX-License-Identifier: MIT
#include "host/reconfigure.h"
#include "host/zrk_tarn_processor.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>

namespace
{

constexpr std::uint32_t kBlockFrames = 64;
constexpr std::uint32_t kMaxSlots = 8;

/// Creates the engine, or initializes it again if the stream format has changed; its histories stay.
void applyFormat(zrk_tarn_processor_t& processor, std::uint32_t sampleRate, std::uint32_t bitsPerSample)
{
    if (processor.engine == nullptr) {
        processor.engine = new ZRKTarn();
    } else if (sampleRate == processor.sampleRate && bitsPerSample == processor.bitsPerSample) {
        return;
    } else {
        processor.engine->Close();
    }

    // A format that the engine rejects is stored too, so that it is not tried again with every buffer.
    processor.engine->Open();
    processor.sampleRate = sampleRate;
    processor.bitsPerSample = bitsPerSample;
    zrk_tarn::initializeEngine(processor);
}

/// Bytes of a sample's container. The sum wraps modulo 2^32: the seven largest widths give 0 bytes.
std::size_t containerBytes(std::uint32_t bitsPerSample) noexcept
{
    return (bitsPerSample + 7) / 8;
}

/// The first slot that has one of a role's codes, or -1.
std::int32_t slotOf(const zrk_tarn_processor_t& processor, std::initializer_list<std::uint32_t> roleCodes)
{
    const std::uint32_t* const begin = processor.assignment;
    const std::uint32_t* const end = begin + processor.channelCount;
    const auto* const found = std::find_first_of(begin, end, roleCodes.begin(), roleCodes.end());
    return found == end ? -1 : static_cast<std::int32_t>(found - begin);
}

/// Stores the assignment and finds the slot of every role, if the assignment has changed.
void applyAssignment(zrk_tarn_processor_t& processor, std::uint32_t channelCount, const std::uint32_t* codes)
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
    applyFormat(*this, streamRate, streamBits);

    if (slots > kMaxSlots || (slots > 0 && slotCodes == nullptr)) return 0;
    applyAssignment(*this, slots, slots > 0 ? slotCodes->code : assignment);

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
