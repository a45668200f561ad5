// Executes code one instruction at a time.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace tests
{

/// Whether this machine supports single-stepping: x86-64, without an emulator or sanitizer.
bool canCountInstructions();

/// The exact number of instructions that work executes on this thread: the processor traps after each instruction, as
/// in a debugger, and a signal handler counts. The count is the same in every run that takes the same branches. Takes
/// one or two microseconds per instruction. Works for every instruction of the processor; valgrind knows no AVX-512.
///
/// Does not count the call of work and the return, which empty work calibrates, nor instructions in the kernel.
std::uint64_t instructionsOf(const std::function<void()>& work);

/// The addresses of these instructions in the order of execution, with those of the call and the return: the first
/// `most` of them.
std::vector<std::uint64_t> instructionAddressesOf(const std::function<void()>& work, std::size_t most);

} // namespace tests
