// The expected output of the command, from the engine itself.
// SPDX-License-Identifier: MIT
#include "tests/cli/engine_output.h"

#include "cli/layout.h"
#include "dispatch/instruction_sets.h"
#include "host/zrk_tarn_processor.h"
#include "room/limiter.h"
#include "stream/gain.h"
#include "stream/mode_names.h"
#include "stream/upmix_stream.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDelay = 960;

/// Channel codes of the other set for the same positions.
audio_channel_assignment_t codesOf(const std::string& layout)
{
    if (layout == "7.1-remap") return {{0x8000, 0x10000, 0, 0, 0, 0, 0x40000, 0x80000}};
    return {{0x8000, 0x10000, 0x1000, 0, 0, 0, 0, 0}};
}

/// Rounds half away from zero and clips.
std::int64_t rounded(std::int32_t sample, unsigned bits)
{
    const double scaled = std::round(std::ldexp(sample, static_cast<int>(bits) - 32));
    return static_cast<std::int64_t>(std::min(scaled, std::ldexp(1.0, static_cast<int>(bits) - 1) - 1.0));
}

void store(std::int64_t sample, std::uint8_t* to, std::size_t bytes)
{
    for (std::size_t b = 0; b < bytes; ++b)
        to[b] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(sample) >> (8 * b));
}

/// Left-justified.
std::int32_t load(const std::uint8_t* from, std::size_t bytes)
{
    std::uint32_t word = 0;
    for (std::size_t b = 0; b < bytes; ++b) word |= std::uint32_t{from[b]} << (8 * (4 - bytes + b));
    return static_cast<std::int32_t>(word);
}

std::vector<std::string> slotNamesOf(const std::string& layout)
{
    std::istringstream names{std::string(tarn::layoutNamed(layout).slotNames)};
    return {std::istream_iterator<std::string>(names), {}};
}

/// Whether a layout has a slot of this name.
bool hasSlot(const std::vector<std::string>& slotNames, const std::string& name)
{
    return std::find(slotNames.begin(), slotNames.end(), name) != slotNames.end();
}

/// The source that a slot must have, according to its name and those of the other slots. Throws std::out_of_range for
/// other names.
zrk_tarn::OutputSlot expectedSource(const std::string& slot, const std::vector<std::string>& slotNames)
{
    using zrk_tarn::OutputSlot;
    using enum OutputSlot::Source;
    static const std::map<std::string, OutputSlot> kWithoutCentre{{"FL", {Dialogue, 0}}, {"FR", {Dialogue, 1}}};
    static const std::map<std::string, OutputSlot> kBehind{{"BL", {Surround, 0}}, {"BR", {Surround, 1}}};
    static const std::map<std::string, OutputSlot> kBehindSides{{"BL", {Surround, 2}}, {"BR", {Surround, 3}}};
    static const std::map<std::string, OutputSlot> kOthers{{"FL", {Engine, 0}},   {"FR", {Engine, 1}},
                                                           {"FC", {Engine, 2}},   {"LFE", {Lfe, 0}},
                                                           {"SL", {Surround, 0}}, {"SR", {Surround, 1}}};
    if (!hasSlot(slotNames, "FC")) return kWithoutCentre.at(slot);
    if (slot.starts_with('B')) return (hasSlot(slotNames, "SL") ? kBehindSides : kBehind).at(slot);
    return kOthers.at(slot);
}

/// The output of a stream with the default preset.
Samples streamOutput(const Samples& stereo, const EngineRun& run)
{
    using zrk_tarn::SampleFormat;
    const std::size_t bytes = run.bits / 8;
    const std::vector<std::string> slotNames = slotNamesOf(run.layout);
    const std::size_t slots = slotNames.size();
    const std::size_t frames = stereo.size() / 2;
    zrk_tarn::StreamConfiguration configuration{.sampleRateHz = run.sampleRate,
                                                .format = run.bits == 16   ? SampleFormat::S16
                                                          : run.bits == 24 ? SampleFormat::S24
                                                                           : SampleFormat::S32,
                                                .outputSlots = static_cast<std::uint32_t>(slots),
                                                .mode =
                                                    zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, run.mode).value(),
                                                .limiter = !run.headroom,
                                                .bass = zrk_tarn::BassMode::Fronts};
    std::transform(slotNames.begin(), slotNames.end(), configuration.outputs.begin(),
                   [&](const std::string& slot) { return expectedSource(slot, slotNames); });

    const std::size_t latency = zrk_tarn::UpmixStream::latencyFrames(configuration);
    const std::size_t skipped = run.align ? latency : latency - kDelay;
    std::vector<std::uint8_t> input((frames + skipped) * 2 * bytes);
    std::vector<std::uint8_t> buffer((frames + skipped) * slots * bytes);
    for (std::size_t i = 0; i < stereo.size(); ++i) store(rounded(stereo[i], run.bits), &input[i * bytes], bytes);
    zrk_tarn::UpmixStream stream(configuration);
    stream.setSurroundGain(zrk_tarn::gainFactor(-3.0));
    stream.setLfeGain(run.lfeDb ? zrk_tarn::gainFactor(*run.lfeDb) : 0.0f);
    if (!run.headroom) stream.setMakeUpGain(hasSlot(slotNames, "FC") ? zrk_tarn::gainFactor(3.0) : 1.0f);
    stream.process(input.data(), buffer.data(), frames + skipped);
    Samples output;
    for (std::size_t i = skipped * slots; i < buffer.size() / bytes; ++i)
        output.push_back(load(&buffer[i * bytes], bytes));
    return output;
}

/// Applies gain and limiter to samples of 32 bits with headroom and rounds them to the width of the run.
Samples amplified(const Samples& samples, const EngineRun& run)
{
    using zrk_tarn::Limiter;
    const std::size_t slots = slotsOf(run.layout);
    const std::size_t frames = samples.size() / slots;
    const double factor = std::ldexp(static_cast<double>(zrk_tarn::gainFactor(run.gainDb)), kHeadroomBits);
    const double step = std::ldexp(1.0, 32 - static_cast<int>(run.bits));
    Limiter limiter(run.sampleRate, 0x1p31);
    Samples output;
    for (std::size_t first = 0; output.size() < samples.size(); first += kBlock) {
        zrk_tarn::UnroundedRow* const input = limiter.input();
        std::fill_n(*input, Limiter::kRows * kBlock, 0.0);
        for (std::size_t i = first; i < std::min(frames, first + kBlock); ++i)
            for (std::size_t slot = 0; slot < slots; ++slot)
                input[slot][i - first] = factor * samples[i * slots + slot];
        const auto& operations = zrk_tarn::chosenOperations();
        const float peak =
            operations.findTruePeak(limiter.peakWindowOf(slots, operations.advancePeakWindow),
                                    static_cast<std::int32_t>(slots), static_cast<float>(Limiter::kCeiling));
        const zrk_tarn::UnroundedRow* const rows = limiter.process(slots, static_cast<double>(peak));
        for (std::size_t i = 0; first > 0 && i < kBlock && output.size() < samples.size(); ++i)
            for (std::size_t slot = 0; slot < slots; ++slot)
                output.push_back(static_cast<std::int32_t>(std::round(rows[slot][i] / step) * step));
    }
    return output;
}

} // namespace

std::size_t slotsOf(const std::string& layout)
{
    return slotNamesOf(layout).size();
}

Samples engineOutput(const Samples& stereo, const EngineRun& run)
{
    if (run.headroom) {
        EngineRun unrounded = run;
        unrounded.bits = 32;
        return amplified(streamOutput(stereo, unrounded), run);
    }
    if (!run.plain && run.layout != "7.1-remap") return streamOutput(stereo, run);
    const std::size_t slots = slotsOf(run.layout);
    const std::size_t bytes = run.bits / 8;
    const std::size_t frames = stereo.size() / 2;
    const std::size_t skipped = run.align ? kDelay : 0;
    const std::size_t padded = (frames + skipped + kBlock - 1) / kBlock * kBlock;
    std::vector<std::uint8_t> buffer(padded * slots * bytes);
    for (std::size_t i = 0; i < stereo.size(); ++i)
        store(rounded(stereo[i], run.bits), &buffer[((i / 2) * slots + i % 2) * bytes], bytes);

    zrk_tarn_processor_t processor;
    processor.setup(run.mode == "fast" ? 0 : 1, 0, 1.0f);
    unsigned matrix[3][4];
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 4; ++c) matrix[r][c] = static_cast<unsigned>(run.remap[r][c]);
    processor.set_remap_coeff(matrix);
    audio_channel_assignment_t codes = codesOf(run.layout);
    processor.process(buffer.data(), static_cast<std::uint32_t>(padded), static_cast<std::uint32_t>(slots),
                      run.sampleRate, run.bits, &codes);

    Samples output;
    for (std::size_t i = skipped * slots; i < (skipped + frames) * slots; ++i)
        output.push_back(load(&buffer[i * bytes], bytes));
    return output;
}

} // namespace tarn_cli
