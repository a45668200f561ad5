// The functions that preloaded libraries of the tests override.
// SPDX-License-Identifier: MIT
#pragma once

#include <dlfcn.h>

namespace tests
{

/// The original function that a preloaded library overrides.
///
/// ours  the function with the same name, for its type
template <typename Function>
Function* hiddenBy(Function* /*ours*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace tests
