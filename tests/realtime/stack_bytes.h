// Measures the stack that a call needs.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>

namespace tests
{

/// What tarn.h and upmix_stream.h promise for every real-time call.
#if defined __OPTIMIZE__
inline constexpr std::size_t kMaxStackBytes = 12 * 1024;
#else
inline constexpr std::size_t kMaxStackBytes = 256 * 1024;
#endif

/// Runs a call on a thread and returns the bytes of stack that it needed, at most 512 KiB.
std::size_t stackBytesOf(const std::function<void()>& call);

/// Runs a call on a thread with a stack of 16 KiB and an unreadable page behind it. Returns false, without the call, if
/// the system has no stacks this small.
bool runsOnSmallStack(const std::function<void()>& call);

} // namespace tests
