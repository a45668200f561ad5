// Counts executed instructions.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

namespace tests
{

/// Whether this machine supports single-stepping: x86-64, without an emulator or sanitizer.
bool canCountInstructions();

/// The exact number of instructions that work executes on this thread: the processor traps after each instruction, as
/// in a debugger, and a signal handler counts. The count is the same in every run that takes the same branches. Takes
/// one or two microseconds per instruction.
///
/// Does not count the call of work and the return, which empty work calibrates, nor instructions in the kernel.
std::uint64_t instructionsOf(const std::function<void()>& work);

} // namespace tests
