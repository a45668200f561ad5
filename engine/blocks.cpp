#include "engine/instruction_sets.h"
#include "engine/zrk_tarn.h"

using zrk_tarn::chosenOperations;

std::uint32_t ZRKTarn::ReadInputChannels(std::uint32_t frames, std::uint32_t channels) noexcept
{
    chosenOperations().readInputChannels(*this, frames, channels);
    return 0;
}

std::uint32_t ZRKTarn::ProcessCine3(std::uint32_t frames, std::uint32_t channels) noexcept
{
    chosenOperations().processCine3(*this, frames, channels);
    return 0;
}

// NOLINTNEXTLINE(readability-make-member-function-const): as declared
std::uint32_t ZRKTarn::WriteOutput(std::uint32_t frames, std::uint32_t channels) noexcept
{
    return chosenOperations().writeOutput(*this, frames, channels);
}

// NOLINTNEXTLINE(readability-make-member-function-const): as declared
std::uint32_t ZRKTarn::RemapOutput(std::uint32_t frames, std::uint32_t channels) noexcept
{
    return chosenOperations().remapOutput(*this, frames, channels);
}

std::uint32_t ZRKTarn::ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels) noexcept
{
    ProcessCine3(frames, channels);
    WriteOutput(frames, channels);
    return 0;
}

std::uint32_t ZRKTarn::ProcessCine3InterLeaveRemap(std::uint32_t frames, std::uint32_t channels) noexcept
{
    ProcessCine3(frames, channels);
    chosenOperations().convertOutput(*this, frames);
    RemapOutput(frames, channels);
    return 0;
}
