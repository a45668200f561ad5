// The block operation as a list of stages.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tests/reference/reference_engine.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace speed
{

/// One stage of the plain block operation for all its channels. Engine is ZRKTarn or reference::Engine.
template <typename Engine>
struct Stage
{
    const char* name;
    void (*run)(Engine& engine, std::uint32_t channels);
};

/// All stages of the plain block operation of 64 frames, in order.
template <typename Engine>
using StageFlow = std::span<const Stage<Engine>>;

/// The stages of an instruction set by its name.
StageFlow<ZRKTarn> stagesOf(std::string_view instructionSet);

/// The stages of the reference engine under the same names.
StageFlow<reference::Engine> referenceStages();

} // namespace speed
