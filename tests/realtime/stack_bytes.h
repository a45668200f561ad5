// Measures the stack that a call needs.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>

namespace tests
{

/// What tarn.h and upmix_stream.h promise for every real-time call of an optimised build.
inline constexpr std::size_t kMaxStackBytes = 12 * 1024;

/// Runs a call on a thread and returns the bytes of stack that it needed, at most 512 KiB.
std::size_t stackBytesOf(const std::function<void()>& call);

} // namespace tests
