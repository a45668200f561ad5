// Variables of the environment.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <string_view>

namespace tarn
{

/// The value of a variable; empty without one. No thread of the command changes the environment.
inline std::string_view environmentVariable(const char* name) noexcept
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): see above
    return value == nullptr ? "" : value;
}

} // namespace tarn
