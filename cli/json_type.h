// The type of JSON documents, without its definition, which takes long to compile.
// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace tarn
{

/// JSON that keeps the insertion order of its members. Complete with cli/json.h.
using Json = nlohmann::ordered_json;

} // namespace tarn
