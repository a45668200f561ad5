// Prints JSON with file names that survive without UTF-8.
// SPDX-License-Identifier: MIT
#include "cli/json.h"

#include "cli/character.h"
#include "cli/text.h"

#include <cstdio>
#include <string>
#include <string_view>

namespace tarn
{

namespace
{

/// Percent-encodes all bytes except slashes and the unreserved characters of RFC 3986.
std::string percentEncoded(const std::string& name)
{
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (kPlain.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            encoded.append({'%', kDigits[byte / 16], kDigits[byte % 16]});
        }
    }
    return encoded;
}

bool isFileName(const std::string& key, const Json& value)
{
    return (key == "input" || key == "output") && value.is_string();
}

/// Copies the document and adds the exact bytes of every file name that is not UTF-8.
Json withExactNames(const Json& json)
{
    if (!json.is_structured()) return json;
    if (json.is_array()) {
        Json exact = Json::array();
        for (const Json& element : json) exact.push_back(withExactNames(element));
        return exact;
    }
    Json exact = Json::object();
    for (const auto& [key, value] : json.items()) {
        exact[key] = withExactNames(value);
        if (isFileName(key, value) && !isUtf8(value.get_ref<const std::string&>()))
            exact[key + "_percent"] = percentEncoded(value.get_ref<const std::string&>());
    }
    return exact;
}

/// Appends \uXXXX.
void appendEscaped(std::string& text, char32_t unit)
{
    char escaped[12]; // the compiler assumes 32 bits
    std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(unit));
    text += escaped;
}

/// Escapes all characters of a document that are not printable, except the line feeds between its members.
std::string withEscapes(std::string_view document)
{
    std::string text;
    while (!document.empty()) {
        const Character character = firstCharacter(document);
        if (character.isPrintable() || document[0] == '\n') {
            text += document.substr(0, character.bytes);
        } else if (character.code < 0x10000) {
            appendEscaped(text, character.code);
        } else {
            appendEscaped(text, 0xd7c0 + (character.code >> 10));
            appendEscaped(text, 0xdc00 + (character.code & 0x3ff));
        }
        document.remove_prefix(character.bytes);
    }
    return text;
}

} // namespace

void printJson(const Json& json, std::FILE* stream)
{
    const std::string text = withEscapes(withExactNames(json).dump(2, ' ', false, Json::error_handler_t::replace));
    std::fprintf(stream, "%s\n", text.c_str());
}

} // namespace tarn
