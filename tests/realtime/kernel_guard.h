// Counts system calls and page faults.
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>

namespace tests
{

/// The number of system calls of work, which runs in a child process where every system call traps instead. Empty if
/// the kernel has no such filter, as under an emulator.
///
/// Does not count page faults, interrupts, and clock reads without a system call.
std::optional<unsigned long> systemCallsOf(const std::function<void()>& work);

/// The minor and major page faults of work on this thread.
long pageFaultsOf(const std::function<void()>& work);

} // namespace tests
