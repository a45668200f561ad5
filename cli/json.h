// JSON documents and their output.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>

namespace tarn
{

/// A number; null for infinity and NaN, which JSON cannot represent.
inline Json finiteOrNull(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

/// Prints a document. Escapes characters that are not safe for a terminal.
///
/// Replaces bytes that are not UTF-8 with the replacement character. For such a file name in a member "input" or
/// "output", adds a member "input_percent" or "output_percent" with its exact bytes, percent-encoded.
void printJson(const Json& json, std::FILE* stream);

} // namespace tarn
