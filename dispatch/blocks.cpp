// The engine's operations on blocks, forwarded to the chosen instruction set.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "engine/zrk_tarn.h"
#include "lanes/float_environment.h"

// Every operation runs in the default floating-point environment. The work is called through pointers, so that no
// compiler moves arithmetic across the change of environment.

using zrk_tarn::BlockOperations;
using zrk_tarn::chosenOperations;
using zrk_tarn::DefaultFloatEnvironment;

namespace
{

/// Reads a block and upmixes it.
void readAndUpmix(const BlockOperations& operations, ZRKTarn& engine, std::uint32_t frames,
                  std::uint32_t channels) noexcept
{
    operations.readInputChannels(engine, frames, channels);
    operations.processCine3(engine);
}

} // namespace

std::uint32_t ZRKTarn::ReadInputChannels(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    chosenOperations().readInputChannels(*this, frames, channels);
    return 0;
}

std::uint32_t ZRKTarn::ProcessCine3(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    readAndUpmix(chosenOperations(), *this, frames, channels);
    return 0;
}

// NOLINTNEXTLINE(readability-make-member-function-const): as declared
std::uint32_t ZRKTarn::WriteOutput(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    return chosenOperations().writeOutput(*this, frames, channels);
}

// NOLINTNEXTLINE(readability-make-member-function-const): as declared
std::uint32_t ZRKTarn::RemapOutput(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    return chosenOperations().remapOutput(*this, frames, channels);
}

std::uint32_t ZRKTarn::ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    const BlockOperations& operations = chosenOperations();
    readAndUpmix(operations, *this, frames, channels);
    operations.writeOutput(*this, frames, channels);
    return 0;
}

std::uint32_t ZRKTarn::ProcessCine3InterLeaveRemap(std::uint32_t frames, std::uint32_t channels) noexcept
{
    const DefaultFloatEnvironment environment;
    const BlockOperations& operations = chosenOperations();
    readAndUpmix(operations, *this, frames, channels);
    operations.convertOutput(*this, frames);
    operations.remapOutput(*this, frames, channels);
    return 0;
}
