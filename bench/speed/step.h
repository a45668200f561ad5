// Executes blocks one instruction at a time.
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace speed
{

/// Runs work and writes the address of each of its instructions to standard output, in the order of execution: 64-bit
/// integers, as in the program's file. Prints and returns false if that failed.
bool printInstructionAddresses(const std::function<void()>& work);

} // namespace speed
