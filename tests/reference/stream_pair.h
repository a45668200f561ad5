// A stream of the library and one of the reference, compared after every block.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/upmix_stream.h"
#include "tests/reference/reference_stream.h"

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

    /// The configuration has a format of integers and no remap matrix.
    explicit StreamPair(const zrk_tarn::StreamConfiguration& given)
        : configuration(given),
          bits(configuration.format == zrk_tarn::SampleFormat::S16   ? 16
               : configuration.format == zrk_tarn::SampleFormat::S24 ? 24
                                                                     : 32),
          own(configuration)
    {
        settings.bassInFronts = configuration.bass == zrk_tarn::BassMode::Fronts;
        reset();
    }

    /// Clears both signals.
    void reset()
    {
        own.reset();
        reference.emplace(configuration, bits);
        expected = Rows(configuration.outputSlots);
    }

    /// Runs a block of every input slot, samples of the format's width. Returns the first difference.
    std::optional<StreamDifference> runBlock(const Rows& input)
    {
        applySettings();
        const std::size_t bytes = static_cast<std::size_t>(bits) / 8;
        std::vector<std::uint8_t> stereo(kFrames * configuration.inputSlots * bytes);
        std::vector<std::uint8_t> output(kFrames * configuration.outputSlots * bytes);
        std::size_t at = 0;
        for (std::size_t i = 0; i < kFrames; ++i)
            for (std::size_t slot = 0; slot < configuration.inputSlots; ++slot, at += bytes)
                std::memcpy(&stereo[at], &input[slot][i], bytes);
        own.process(stereo.data(), output.data(), kFrames);

        // The stream returns a block after it has collected the next one.
        Rows due = reference->process(input, settings);
        due.swap(expected);
        for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot) {
            for (int i = 0; i < kFrames; ++i) {
                std::int32_t sample = 0;
                const std::size_t place = static_cast<std::size_t>(i) * configuration.outputSlots + slot;
                std::memcpy(&sample, &output[place * bytes], bytes);
                const int unused = 32 - bits;
                sample = static_cast<std::int32_t>(static_cast<std::uint32_t>(sample) << unused) >> unused;
                const std::int32_t wanted = due[slot][static_cast<std::size_t>(i)];
                if (sample != wanted) return StreamDifference{slot, i, sample, wanted};
            }
        }
        return std::nullopt;
    }

    const zrk_tarn::StreamConfiguration configuration;
    const int bits;
    StreamSettings settings; ///< from the next block on

private:
    void applySettings()
    {
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
    Rows expected; ///< output of the block before
};

} // namespace reference
