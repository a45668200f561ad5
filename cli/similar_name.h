// Finds the name that a mistyped one probably stands for.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace tarn
{

/// The name that is most similar to a typed one: one or two letters differ, or it begins with it. Empty if there is
/// none.
std::string similarName(const std::string& typed, const std::vector<std::string>& names);

} // namespace tarn
