// A stream of the library and one of the reference, compared after every block.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/upmix_stream.h"
#include "tests/reference/reference_stream.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace reference
{

/// Where two streams differ.
struct StreamDifference
{
    std::size_t slot;
    int frame;
    std::int32_t own;
    std::int32_t expected;
};

/// Runs the same blocks through both streams.
class StreamPair
{
public:
    using Rows = std::vector<std::array<std::int32_t, kFrames>>;

    explicit StreamPair(const zrk_tarn::StreamConfiguration& given)
        : configuration(given), bits(bitsOf(given.format)), own(configuration)
    {
        settings.bassInFronts = configuration.bass == zrk_tarn::BassMode::Fronts;
        if (configuration.remap) settings.remap = *configuration.remap;
        reset();
    }

    /// Clears both signals.
    void reset()
    {
        own.reset();
        reference.emplace(configuration, bits);
        inputFaults = {};
        expected = Rows(configuration.outputSlots);
    }

    /// Whether the words of a block are floats.
    bool isFloat() const { return configuration.format == zrk_tarn::SampleFormat::F32; }

    /// Runs a block of every input slot: samples of the format's width, or the bits of floats. Returns the first
    /// difference; a difference of the counted faults is in a slot that does not exist.
    std::optional<StreamDifference> runBlock(const Rows& input)
    {
        applySettings();
        const std::size_t bytes = configuration.format == zrk_tarn::SampleFormat::S24In32
                                      ? sizeof(std::int32_t)
                                      : static_cast<std::size_t>(bits) / 8;
        std::vector<std::uint8_t> stereo(kFrames * configuration.inputSlots * bytes);
        std::vector<std::uint8_t> output(kFrames * configuration.outputSlots * bytes);
        std::size_t at = 0;
        for (std::size_t i = 0; i < kFrames; ++i)
            for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot, at += bytes) {
                std::memcpy(&stereo[at], &input[slot][i], bytes);
                if (configuration.format == zrk_tarn::SampleFormat::S24In32) stereo[at + 3] = kUnusedByte;
            }
        own.process(stereo.data(), output.data(), kFrames);

        // The stream returns a block after it has collected the next one.
        Rows due = reference->process(integersOf(input), settings);
        due.swap(expected);
        for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
            for (int i = 0; i < kFrames; ++i) {
                std::int32_t sample = 0;
                const std::size_t place = static_cast<std::size_t>(i) * configuration.outputSlots + slot;
                std::memcpy(&sample, &output[place * bytes], bytes);
                // Samples of fewer bytes are not sign-extended yet.
                const int unused = 32 - 8 * static_cast<int>(bytes);
                sample = static_cast<std::int32_t>(static_cast<std::uint32_t>(sample) << unused) >> unused;
                const std::int32_t integer = due[slot][static_cast<std::size_t>(i)];
                const std::int32_t wanted = isFloat() ? std::bit_cast<std::int32_t>(floatOf(integer)) : integer;
                if (sample != wanted) return StreamDifference{slot, i, sample, wanted};
            }
        }
        return differenceOfFaults();
    }

    const zrk_tarn::StreamConfiguration configuration;
    const int bits;
    StreamSettings settings; ///< from the next block on

private:
    static constexpr std::uint8_t kUnusedByte = 0x5a; ///< the fourth of a sample of 24 bits in 4 bytes

    static int bitsOf(zrk_tarn::SampleFormat format)
    {
        using enum zrk_tarn::SampleFormat;
        if (format == S16) return 16;
        return format == S24 || format == S24In32 ? 24 : 32;
    }

    Rows integersOf(const Rows& words)
    {
        Rows integers = words;
        for (auto& row : integers)
            for (std::int32_t& word : row)
                if (isFloat()) word = integerOf(std::bit_cast<float>(word), inputFaults);
        return integers;
    }

    std::optional<StreamDifference> differenceOfFaults() const
    {
        const zrk_tarn::StreamMeters meters = own.meters();
        const Faults counted{.saturated = inputFaults.saturated + reference->faults.saturated,
                             .invalid = inputFaults.invalid};
        if (counted == Faults{.saturated = meters.saturated, .invalid = meters.invalid}) return std::nullopt;
        return StreamDifference{configuration.outputSlots, 0,
                                static_cast<std::int32_t>(meters.saturated + meters.invalid),
                                static_cast<std::int32_t>(counted.saturated + counted.invalid)};
    }

    void applySettings()
    {
        if (configuration.remap) own.setRemap(settings.remap);
        own.setBypass(settings.bypass);
        own.setMakeUpGain(settings.gain);
        own.setCentreGain(settings.centre);
        own.setCentreWidth(settings.width);
        own.setSurroundGain(settings.surround);
        own.setLfeGain(settings.lfe);
        own.setBass(settings.bassInFronts ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered);
        own.setLimiting(settings.limiting);
    }

    zrk_tarn::UpmixStream own;
    std::optional<Stream> reference;
    Faults inputFaults;
    Rows expected; ///< output of the block before
};

} // namespace reference
