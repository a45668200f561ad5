// An engine and its host buffer.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tests/support/music.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace speed
{

/// The format of a host buffer.
struct Format
{
    const char* name;
    std::uint32_t rate; ///< Hz
    std::int32_t bits;
    bool remap; ///< eight slots, four of them written; otherwise six slots, three of them written

    std::uint32_t slots() const { return remap ? 8 : 6; }
    std::size_t sampleBytes() const { return static_cast<std::size_t>(bits) / 8; }
    std::size_t blockBytes() const { return tests::kBlockFrames * slots() * sampleBytes(); }
};

inline constexpr Format kPlain{"48 kHz, 16 bit", 48000, 16, false};
inline constexpr Format kFormats[] = {
    kPlain,
    {"64 kHz, 16 bit", 64000, 16, false},
    {"96 kHz, 16 bit", 96000, 16, false},
    {"192 kHz, 16 bit", 192000, 16, false},
    {"48 kHz, 24 bit", 48000, 24, false},
    {"48 kHz, 32 bit", 48000, 32, false},
    {"48 kHz, 16 bit, remap", 48000, 16, true},
    {"48 kHz, 24 bit, remap", 48000, 24, true},
    {"48 kHz, 32 bit, remap", 48000, 32, true},
};

/// An engine and the host buffer that it processes. Engine is ZRKTarn or reference::Engine.
template <typename Engine>
class Stream
{
public:
    /// blocks  length of the host buffer
    explicit Stream(const Format& format, std::size_t blocks = 1)
        : hostFormat(format), storage(blocks * format.blockBytes())
    {
        record->Open();
        record->Initialize({.spare = 0,
                            .outputChannels = 3,
                            .bitsPerSample = format.bits,
                            .sampleRate = format.rate,
                            .mode = 1,
                            .option = 0,
                            .mixFraction = 1.0f});
        constexpr int kUnity = 1 << 28;
        int gains[3][4] = {{kUnity, 0, kUnity / 2, 0}, {0, kUnity, 0, kUnity / 2}, {kUnity / 2, kUnity / 2, 0, 0}};
        record->SetRemapCoeff(gains);
        select(0);
    }

    /// Writes block `number` of the music to the host buffer.
    void fill(std::size_t number, std::size_t block = 0)
    {
        const std::int32_t* sample = tests::music().data() + number % tests::kMusicBlocks * tests::kBlockFrames * 2;
        for (std::uint8_t* frame = blockAt(block); frame != blockAt(block + 1); frame += frameBytes()) {
            put(frame, *sample++);
            put(frame + hostFormat.sampleBytes(), *sample++);
        }
    }

    void fillWithSilence() { std::fill(storage.begin(), storage.end(), std::uint8_t{0}); }

    /// Selects the block of the host buffer to process.
    void select(std::size_t block)
    {
        std::uint8_t* const first = blockAt(block);
        const std::size_t bytes = hostFormat.sampleBytes();
        const std::size_t third = hostFormat.remap ? 6 : 2;
        record->SetChannelPtrs(first, first + bytes, first + third * bytes, first + (third + 1) * bytes);
    }

    void process()
    {
        if (hostFormat.remap) {
            record->ProcessCine3InterLeaveRemap(tests::kBlockFrames, hostFormat.slots());
        } else {
            record->ProcessCine3InterLeave(tests::kBlockFrames, hostFormat.slots());
        }
    }

    /// Processes music from its start.
    void run(std::size_t blocks)
    {
        for (std::size_t number = 0; number < blocks; ++number) {
            fill(number);
            process();
        }
    }

    /// Processes silence.
    void runSilence(std::size_t blocks)
    {
        for (std::size_t number = 0; number < blocks; ++number) {
            fillWithSilence();
            process();
        }
    }

    Engine& engine() { return *record; }
    const std::vector<std::uint8_t>& buffer() const { return storage; }
    const Format& format() const { return hostFormat; }

private:
    std::size_t frameBytes() const { return hostFormat.slots() * hostFormat.sampleBytes(); }
    std::uint8_t* blockAt(std::size_t block) { return storage.data() + block * hostFormat.blockBytes(); }

    /// Stores the upper bits of a sample, little-endian.
    void put(std::uint8_t* position, std::int32_t sample) const
    {
        const std::uint32_t value = static_cast<std::uint32_t>(sample) >> (32 - hostFormat.bits);
        for (std::size_t j = 0; j < hostFormat.sampleBytes(); ++j)
            position[j] = static_cast<std::uint8_t>(value >> (8 * j));
    }

    Format hostFormat;
    std::vector<std::uint8_t> storage;
    std::unique_ptr<Engine> record = std::make_unique<Engine>();
};

} // namespace speed
