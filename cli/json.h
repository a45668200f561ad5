#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>

namespace tarn
{

/// JSON whose members keep the order in which they were put in.
using Json = nlohmann::ordered_json;

/// A number, or null for what JSON has no number for.
inline Json finiteOrNull(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

/// Prints a document.
///
/// Bytes of strings that are not UTF-8 become the replacement character. A file name, which is the string of a member
/// "input" or "output", then has its exact bytes beside it, percent-encoded, as "input_percent" or "output_percent".
void printJson(const Json& json, std::FILE* stream);

} // namespace tarn
