#pragma once

#include <functional>
#include <optional>

namespace tests
{

/// The system calls that work makes, counted by the kernel itself: work runs in a child process in which every system
/// call traps instead of being carried out. Nothing where the kernel offers no such filter, as under an emulator.
///
/// What enters the kernel without being a system call is not counted: page faults, interrupts, and the clock where it
/// is read from memory that the kernel shares.
std::optional<unsigned long> systemCallsOf(const std::function<void()>& work);

/// The page faults, with and without input, that work takes on this thread.
long pageFaultsOf(const std::function<void()>& work);

} // namespace tests
