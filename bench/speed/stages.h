#pragma once

#include "engine/zrk_tarn.h"
#include "tests/reference/reference_engine.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace speed
{

/// One stage of the plain block operation, for all channels that it works on. Engine is ZRKTarn or reference::Engine.
template <typename Engine>
struct Stage
{
    const char* name;
    void (*run)(Engine& engine, std::uint32_t channels);
};

/// The stages in the order of the signal, which together are the plain block operation of 64 frames.
template <typename Engine>
using StageFlow = std::span<const Stage<Engine>>;

/// The stages of an instruction set by its name.
StageFlow<ZRKTarn> stagesOf(std::string_view instructionSet);

/// The stages of the reference engine under the same names, each with the moves that the other's does in passing.
StageFlow<reference::Engine> referenceStages();

} // namespace speed
