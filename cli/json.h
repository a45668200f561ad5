#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <string>

namespace tarn
{

/// JSON whose members keep the order in which they were put in.
using Json = nlohmann::ordered_json;

/// A number, or null for what JSON has no number for.
inline Json finiteOrNull(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

/// Prints a document. Bytes of file names that are not UTF-8 become the replacement character.
inline void printJson(const Json& json, std::FILE* stream)
{
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace);
    std::fprintf(stream, "%s\n", text.c_str());
}

} // namespace tarn
