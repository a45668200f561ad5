#pragma once

#include <cstdint>
#include <functional>

namespace tests
{

/// Whether this machine lets a program step through itself: x86-64, and neither an emulator nor a sanitizer between.
bool canCountInstructions();

/// The instructions that work executes on this thread, exactly: the processor traps after each one, as for a debugger,
/// and a signal handler counts. The count is of what was compiled, so the same in every run and on every machine that
/// takes the same way through it; a microsecond or two per instruction.
///
/// The call into work and the return from it are left out; what stands around them is calibrated with empty work. Work
/// that enters the kernel is counted without what the kernel does.
std::uint64_t instructionsOf(const std::function<void()>& work);

} // namespace tests
