// Writes and parses the lines of a ledger.
// SPDX-License-Identifier: MIT
#include "cli/ledger_line.h"

#include "cli/checksum.h"
#include "cli/parse_number.h"
#include "cli/text.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace tarn
{

namespace
{

constexpr std::size_t kFields = 8; ///< before the checksum
constexpr std::size_t kChecksumDigits = 8;
constexpr std::size_t kNanosecondDigits = 9;

/// Whether a byte would break a line, or is the mark of an encoded byte.
bool isEncoded(char c, bool isText) noexcept
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f || c == '%' || (!isText && byte >= 0x80);
}

std::string encoded(const std::string& name)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const bool isText = isUtf8(name);
    std::string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (isEncoded(c, isText)) {
            text.append({'%', kDigits[byte / 16], kDigits[byte % 16]});
        } else {
            text += c;
        }
    }
    return text;
}

std::optional<std::string> decoded(std::string_view text)
{
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (text[i] == '%') {
            if (!parseNumber(text.substr(i + 1, 2), byte, 16)) return std::nullopt;
            i += 2;
        }
        name += static_cast<char>(byte);
    }
    return name;
}

/// The checksum of a line as hexadecimal digits.
std::string digitsOf(std::string_view line)
{
    char digits[kChecksumDigits + 1];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(checksumOf(line)));
    return digits;
}

/// Size and time as two fields.
std::string fieldsOf(const FileState& state)
{
    char fraction[24];
    std::snprintf(fraction, sizeof fraction, "%09lld", static_cast<long long>(state.nanoseconds));
    return std::to_string(state.bytes) + "\t" + std::to_string(state.seconds) + "." + fraction;
}

bool parse(std::string_view bytes, std::string_view time, FileState& state)
{
    const std::size_t point = time.find('.');
    if (point == std::string_view::npos || time.size() != point + 1 + kNanosecondDigits) return false;
    return parseNumber(bytes, state.bytes) && parseNumber(time.substr(0, point), state.seconds) &&
           parseNumber(time.substr(point + 1), state.nanoseconds);
}

} // namespace

std::string ledgerLine(const LedgerEntry& entry)
{
    const std::string line = encoded(entry.output) + "\t" + fieldsOf(entry.outputState) + "\t" + encoded(entry.input) +
                             "\t" + fieldsOf(entry.inputState) + "\t" + encoded(entry.options) + "\t" +
                             encoded(entry.result) + "\t";
    return line + digitsOf(line);
}

std::optional<std::string> ledgerOutput(std::string_view line)
{
    const std::size_t end = line.find('\t');
    if (end == std::string_view::npos) return std::nullopt;
    return decoded(line.substr(0, end));
}

std::optional<LedgerEntry> ledgerEntry(std::string_view line)
{
    if (line.size() < kChecksumDigits) return std::nullopt;
    const std::string_view content = line.substr(0, line.size() - kChecksumDigits);
    if (digitsOf(content) != line.substr(content.size())) return std::nullopt;

    std::array<std::string_view, kFields> fields;
    std::size_t begin = 0;
    for (std::string_view& field : fields) {
        const std::size_t end = content.find('\t', begin);
        if (end == std::string_view::npos) return std::nullopt;
        field = content.substr(begin, end - begin);
        begin = end + 1;
    }
    LedgerEntry entry;
    const auto output = decoded(fields[0]);
    const auto input = decoded(fields[3]);
    const auto options = decoded(fields[6]);
    const auto result = decoded(fields[7]);
    if (begin != content.size() || !output || !input || !options || !result) return std::nullopt;
    if (!parse(fields[1], fields[2], entry.outputState) || !parse(fields[4], fields[5], entry.inputState))
        return std::nullopt;
    entry.output = *output;
    entry.input = *input;
    entry.options = *options;
    entry.result = *result;
    return entry;
}

} // namespace tarn
