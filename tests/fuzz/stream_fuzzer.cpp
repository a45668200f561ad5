// Fuzz target: streams of any configuration, settings and signals, with the library and the reference.
// SPDX-License-Identifier: MIT
#include "engine/zrk_tarn.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/reference/stream_pair.h"
#include "tests/support/random.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace
{

using fuzz::ByteReader;
using reference::StreamPair;
using reference::StreamSettings;
using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::UpmixStream;

constexpr std::array<SampleFormat, 5> kFormats{SampleFormat::S16, SampleFormat::S24, SampleFormat::S32,
                                               SampleFormat::F32, SampleFormat::S24In32};
constexpr int kMaxBlocks = 300;

/// Gains of one magnitude, some of them 0.
zrk_tarn::RemapGains gainsFrom(ByteReader& bytes)
{
    zrk_tarn::RemapGains gains{};
    const int shift = bytes.byte() % 32;
    tests::Random random(bytes.byte());
    for (auto& row : gains.gain)
        for (std::uint32_t& gain : row)
            if (!random.chance(4)) gain = static_cast<std::uint32_t>(static_cast<std::int32_t>(random.bits()) >> shift);
    return gains;
}

/// Configurations that a stream refuses become the default one.
StreamConfiguration configurationFrom(ByteReader& bytes)
{
    StreamConfiguration configuration;
    configuration.sampleRateHz = bytes.oneOf(zrk_tarn::kSampleRatesHz);
    configuration.format = bytes.oneOf(kFormats);
    configuration.inputSlots = 1 + bytes.below(8);
    configuration.leftSlot = bytes.below(configuration.inputSlots);
    configuration.rightSlot = bytes.below(configuration.inputSlots);
    configuration.outputSlots = 1 + bytes.below(8);
    for (OutputSlot& slot : configuration.outputs) {
        const std::uint8_t choice = bytes.byte();
        slot = {static_cast<OutputSlot::Source>(choice % 6), static_cast<std::uint8_t>(choice / 6 % 4)};
    }
    const std::uint8_t choices = bytes.byte();
    configuration.limiter = (choices & 1) != 0;
    configuration.bass = (choices & 2) != 0 ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered;
    configuration.mode = (choices & 4) != 0 ? zrk_tarn::SteeringMode::Fast : zrk_tarn::SteeringMode::Calm;
    if ((choices & 8) != 0) configuration.remap = gainsFrom(bytes);
    if (UpmixStream::problemOf(configuration) == nullptr) return configuration;
    StreamConfiguration valid;
    valid.format = configuration.format;
    valid.limiter = configuration.limiter;
    valid.remap = configuration.remap;
    return valid;
}

/// Changes one setting, or resets.
void changeSetting(StreamPair& pair, ByteReader& bytes)
{
    StreamSettings& settings = pair.settings;
    const std::uint32_t choice = bytes.below(11);
    const float part = static_cast<float>(bytes.byte()) / 128.0f; // 0 to 2, and 1
    switch (choice) {
    case 0:
        settings.bypass = !settings.bypass;
        break;
    case 1:
        settings.gain = 4.0f * part;
        break;
    case 2:
        settings.gain = 1.0f;
        break;
    case 3:
        settings.centre = 1.5f * part;
        break;
    case 4:
        settings.centre = 1.0f;
        break;
    case 5:
        settings.width = part < 1.0f ? part : 1.0f;
        break;
    case 6:
        settings.surround = settings.lfe = part;
        break;
    case 7:
        settings.bassInFronts = !settings.bassInFronts;
        break;
    case 8:
        settings.limiting = !settings.limiting;
        break;
    case 9:
        settings.remap = gainsFrom(bytes);
        break;
    default:
        pair.reset();
    }
}

/// Signals of one kind and level in all slots.
class Source
{
public:
    explicit Source(ByteReader& bytes) : kind(bytes.byte() % 8), shift(bytes.byte() % 32), random(bytes.byte()) {}

    void write(StreamPair::Rows& rows, const StreamPair& pair)
    {
        const int bits = pair.bits;
        for (std::size_t i = 0; i < rows[0].size(); ++i) {
            const std::int32_t common = sample(bits);
            for (std::size_t slot = 0; slot < rows.size(); ++slot) {
                const std::int32_t own = sample(bits);
                const std::int32_t choices[] = {0,
                                                own,
                                                common,
                                                slot % 2 == 0 ? common : -common,
                                                slot == 0 ? common : common / 4,
                                                i / 32 % 2 == 0 ? fullScale(bits) : -fullScale(bits),
                                                i == 0 ? fullScale(bits) : 0,
                                                static_cast<std::int32_t>(random.bits()) >> (32 - bits)};
                rows[slot][i] = pair.isFloat() ? floatWord(choices[kind]) : choices[kind];
            }
        }
    }

private:
    static std::int32_t fullScale(int bits) { return std::numeric_limits<std::int32_t>::max() >> (32 - bits); }

    std::int32_t sample(int bits)
    {
        return static_cast<std::int32_t>(fullScale(bits) * random.uniform()) / (std::int32_t{1} << (shift % bits / 2));
    }

    /// The bits of a float of up to four times full scale; any bits for the last kind.
    std::int32_t floatWord(std::int32_t sample) const
    {
        if (kind == 7) return sample;
        return std::bit_cast<std::int32_t>(std::ldexp(static_cast<float>(sample), -29 - shift % 4));
    }

    std::uint32_t kind; ///< silence, diffuse, centred, opposite, panned, full-scale square wave, impulses, any bits
    int shift;
    tests::Random random;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    ZRKTarn{}.Open();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    ByteReader decisions(bytes, size);
    StreamPair pair(configurationFrom(decisions));
    StreamPair::Rows rows(pair.configuration.inputSlots);
    for (int blocks = 0; !decisions.empty() && blocks < kMaxBlocks;) {
        for (std::uint32_t changes = decisions.below(4); changes > 0; --changes) changeSetting(pair, decisions);
        Source source(decisions);
        for (std::uint32_t left = 1 + decisions.below(24); left > 0; --left, ++blocks) {
            source.write(rows, pair);
            if (const auto difference = pair.runBlock(rows)) {
                std::fprintf(stderr, "stream: block %d, slot %zu, frame %d: %d instead of %d\n", blocks,
                             difference->slot, difference->frame, difference->own, difference->expected);
                std::abort();
            }
        }
    }
    return 0;
}
