// A stream in parts: the engine, and what comes after it.
// SPDX-License-Identifier: MIT
#include "bench/speed/room_stream.h"

#include "dispatch/instruction_sets.h"
#include "stream/gain.h"

namespace speed
{

namespace
{

using Source = zrk_tarn::OutputSlot::Source;

constexpr Format kFormat{"48 kHz, 32 bit", 48000, 32, false};

/// Reads the channels of a host buffer.
void read(const Stream<ZRKTarn>& from, zrk_tarn::Row* rows)
{
    zrk_tarn::SampleFaults none; // integers have no faults
    zrk_tarn::chosenOperations()
        .interleavingOf(zrk_tarn::SampleType::Int32, kFormat.slots())
        .load(reinterpret_cast<const std::byte*>(from.buffer().data()), zrk_tarn::kBlockFrames, rows, 0, none);
}

} // namespace

const zrk_tarn::RoomSettings RoomStream::kSettings = zrk_tarn::presetNamed("film")->settings;

// FL FR FC LFE BL BR
const zrk_tarn::StreamConfiguration RoomStream::kConfiguration{.sampleRateHz = kFormat.rate,
                                                               .format = zrk_tarn::SampleFormat::S32,
                                                               .outputSlots = 6,
                                                               .outputs = {{{Source::Engine, 0},
                                                                            {Source::Engine, 1},
                                                                            {Source::Engine, 2},
                                                                            {Source::Silence, 0},
                                                                            {Source::Surround, 0},
                                                                            {Source::Surround, 1}}},
                                                               .limiter = kSettings.limiter,
                                                               .bass = kSettings.bass};

RoomStream::RoomStream()
    : stream(kFormat),
      targets{.wet = 1.0f,
              .gain = zrk_tarn::gainFactor(kSettings.gainDb),
              .centre = zrk_tarn::gainFactor(kSettings.centreDb),
              .width = static_cast<float>(kSettings.width),
              .surround = zrk_tarn::gainFactor(kSettings.surroundDb.value()),
              .lfe = 1.0f,
              .bassInFronts = kSettings.bass == zrk_tarn::BassMode::Fronts,
              .limiting = kSettings.limiter},
      stage(kConfiguration, kFormat.bits)
{
    for (const int pairs : {1, 2}) {
        surrounds[pairs - 1] = std::make_unique<zrk_tarn::Surrounds>();
        zrk_tarn::configureSurrounds(*surrounds[pairs - 1], kFormat.rate, pairs);
    }
    stage.snapToTargets(targets);
}

void RoomStream::fill(std::size_t number)
{
    stream.fill(number);
    delayInput();
}

void RoomStream::fillWithSilence()
{
    stream.fillWithSilence();
    delayInput();
}

void RoomStream::run(std::size_t blocks)
{
    for (std::size_t number = 0; number < blocks; ++number) {
        fill(number);
        process();
        takeUpmixed();
        computeOutputs();
    }
}

void RoomStream::delayInput()
{
    delay.advance();
    read(stream, delay.input());
}

void RoomStream::renderSurrounds(std::size_t pairs)
{
    zrk_tarn::chosenOperations().renderSurrounds(stream.engine(), *surrounds[pairs - 1]);
}

void RoomStream::takeUpmixed()
{
    zrk_tarn::Row rows[zrk_tarn::kMaxSlots];
    read(stream, rows);
    for (std::size_t channel = 0; channel < 3; ++channel)
        std::copy_n(rows[channel], zrk_tarn::kBlockFrames, upmixed[channel]);
}

} // namespace speed
