#pragma once

#include "engine/zrk_tarn.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace speed
{

/// One stage of the plain block operation, for all channels that it works on.
struct Stage
{
    const char* name;
    void (*run)(ZRKTarn& engine, std::uint32_t channels);
};

/// The stages in the order of the signal, which together are the plain block operation of 64 frames.
struct StageFlow
{
    const char* instructionSet;
    std::span<const Stage> stages;
};

/// The stages of an instruction set by its name.
const StageFlow& stageFlowOf(std::string_view instructionSet);

} // namespace speed
