// From the engine's outputs to the slots of the host: the controls of the room, gain, limiter and bypass.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/bass_crossover.h"
#include "room/centre_control.h"
#include "room/limiter.h"
#include "room/surrounds.h"
#include "stream/block.h"
#include "stream/crossfade.h"
#include "stream/sample_rows.h"
#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace zrk_tarn
{

/// Values to which an output stage fades.
struct OutputTargets
{
    float wet;    ///< 1 for the upmix, 0 for bypass
    float gain;   ///< make-up gain
    float centre; ///< gain of the centre
    float width;  ///< of the centre
    float surround;
    float lfe;
    bool bassInFronts;
    bool limiting;
};

/// A block of a stream.
struct StageBlock
{
    const ZRKTarn& engine;
    const Row (&upmixed)[4];     ///< its outputs, or the columns of the remap matrix
    const Row* inputSlots;       ///< the stream's input slots, as late as the engine's outputs
    const Row* inputSlotsBefore; ///< the same of the block before
    Row* outputSlots;            ///< to be computed; rows of silent slots stay as they are
    SampleFaults& faults;
};

/// Computes the output slots of a stream. Allocates in its constructor only.
class OutputStage
{
public:
    /// Throws std::bad_alloc.
    ///
    /// bits  width of the samples: 16, 24 or 32
    OutputStage(const StreamConfiguration& configuration, std::uint32_t bits);

    /// Jumps to the targets without a fade.
    void snapToTargets(const OutputTargets& targets) noexcept;

    /// Computes a block of every output slot. With the limiter, the block is that of the call before.
    void process(const StageBlock& block, const OutputTargets& targets) noexcept;

    /// Clears the signal.
    void reset() noexcept;

    /// The smallest gain of the limiter in the last block.
    float limiterGain() const noexcept { return limiter == nullptr ? 1.0f : static_cast<float>(limiter->gain()); }

    /// The surround channels of the last block, before their gain; null without Surround slots.
    const Surrounds* surroundState() const noexcept { return surrounds.get(); }

private:
    template <typename Fill>
    void forEachSlotOf(OutputSlot::Source source, Fill fill) noexcept;
    template <typename WetRow>
    void put(const StageBlock& block, std::size_t slot, const WetRow& wet) noexcept;

    void fillInputSlots(const StageBlock& block) noexcept;
    void fillLoudspeakerSlots(const StageBlock& block) noexcept;
    void renderSurroundRows(const ZRKTarn& engine) noexcept;
    void fillDialogueSlots(const StageBlock& block) noexcept;
    void fillLfeSlots(const StageBlock& block) noexcept;
    void limitAndFade(const StageBlock& block) noexcept;
    bool isPlainStereo() const noexcept;
    bool isBassSteered() const noexcept { return bass == nullptr || bass->isOff(); }

    void unround(const StageBlock& block, std::size_t output, UnroundedRow& row) const noexcept;
    const Row* inputSlotsOf(const StageBlock& block) const noexcept;
    const Row* dryRow(const StageBlock& block, std::size_t slot) const noexcept;

    const StreamConfiguration configuration;
    const double fullScale;
    std::int32_t surroundPairs;
    std::size_t limitedRows = 0;         ///< rows of the limiter
    std::size_t limitedRow[kMaxSlots]{}; ///< of an output slot
    bool hasEngine = false;
    bool hasLfe = false;
    std::unique_ptr<Surrounds> surrounds; ///< null without surround channels
    std::unique_ptr<BassCrossover> bass;  ///< null with a remap matrix
    std::unique_ptr<Limiter> limiter;     ///< null without the limiter; a row for each slot whose source is limited
    Crossfade crossfade;
    CentreControl centre;
    Glide surroundGain{kTypicalSurroundGain};
    Glide lfeGain{1.0f};
    bool isLimiting = true;

    // Rows of process, which keeps them off the stack
    UnroundedRow upmixRows[4]{}; ///< outputs of the engine; scratch of the other sources
    UnroundedRow surroundRows[Surrounds::kChains]{};
};

} // namespace zrk_tarn
