// A stream in parts: the engine, and what comes after it.
// SPDX-License-Identifier: MIT
#pragma once

#include "bench/speed/stream.h"
#include "room/surrounds.h"
#include "stream/block_delay.h"
#include "stream/output_stage.h"
#include "stream/presets.h"

#include <cstddef>
#include <memory>

namespace speed
{

/// A stream of the preset film in 5.1 at 48 kHz and 32 bits, in parts that can be measured alone.
///
/// For each block: fill, process, then computeOutputs.
class RoomStream
{
public:
    static const zrk_tarn::StreamConfiguration kConfiguration;
    static const zrk_tarn::RoomSettings kSettings;

    RoomStream();

    /// Takes block `number` of the music as input.
    void fill(std::size_t number);

    void fillWithSilence();

    /// Processes the block with the engine.
    void process() { stream.process(); }

    /// Renders the surround channels of the block with a state of their own. computeOutputs does so too.
    ///
    /// pairs  1 or 2
    void renderSurrounds(std::size_t pairs);

    /// Takes the outputs of the engine for computeOutputs.
    void takeUpmixed();

    /// Computes the output slots.
    void computeOutputs()
    {
        stage.process({stream.engine(), upmixed, delay.delayed(), delay.delayedBefore(), outputs, faults}, targets);
    }

    /// Computes blocks of music from its start.
    void run(std::size_t blocks);

    /// The samples of an output slot.
    const zrk_tarn::Row& output(std::size_t slot) const { return outputs[slot]; }

private:
    void delayInput();

    Stream<ZRKTarn> stream;
    zrk_tarn::BlockDelay delay;
    std::unique_ptr<zrk_tarn::Surrounds> surrounds[2];
    zrk_tarn::OutputTargets targets;
    zrk_tarn::OutputStage stage;
    zrk_tarn::Row upmixed[4]{};
    zrk_tarn::Row outputs[zrk_tarn::kMaxSlots]{};
    zrk_tarn::SampleFaults faults;
};

} // namespace speed
