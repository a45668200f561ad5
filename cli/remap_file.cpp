// Reads slot names and gains from a remap file.
// SPDX-License-Identifier: MIT
#include "cli/remap_file.h"

#include "cli/descriptor.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/text.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kRows = 3;
constexpr std::size_t kMaxBytes = 65536;
constexpr double kUnity = 0x1p28;
constexpr double kLimit = 0x1p31;

/// File and line for messages.
std::string placeOf(const std::string& path, std::size_t line)
{
    return path + ": line " + std::to_string(line);
}

/// A word of the file for messages: truncated, without control characters.
std::string shown(const std::string& word)
{
    constexpr std::size_t kMaxCharacters = 32;
    std::string text = word.substr(0, kMaxCharacters);
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return word.size() > kMaxCharacters ? text + "..." : text;
}

/// Parses a gain to fixed point.
std::uint32_t parseGain(const std::string& place, const std::string& word)
{
    // from_chars does not accept a plus sign.
    const bool hasPlus = word.starts_with('+') && !word.starts_with("+-");
    const char* const end = word.data() + word.size();
    double gain = 0.0;
    const auto [stop, error] = std::from_chars(word.data() + (hasPlus ? 1 : 0), end, gain);
    if (stop != end || error == std::errc::invalid_argument || (error == std::errc{} && !std::isfinite(gain)))
        throw Failure(EX_DATAERR, place + ": '" + shown(word) + "' is not a decimal number; write gains like 0.7071");

    const double fixed = std::round(gain * kUnity);
    if (error != std::errc{} || fixed < -kLimit || fixed >= kLimit)
        throw Failure(EX_DATAERR, place + ": gain " + shown(word) + " is out of range; use -8 to just below 8");
    return std::bit_cast<std::uint32_t>(static_cast<std::int32_t>(fixed));
}

/// The words of a line, without its comment.
std::vector<std::string> wordsOf(const std::string& line)
{
    std::istringstream text(line.substr(0, line.find('#')));
    std::vector<std::string> words;
    for (std::string word; text >> word;) words.push_back(word);
    return words;
}

[[noreturn]] void failToRead(const std::string& path, int error)
{
    throw Failure(EX_NOINPUT, path + ": the remap file cannot be read: " + systemError(error));
}

/// Reads a file or a pipe and refuses a long or binary one. Throws Interrupted.
std::string contentsOf(const std::string& path)
{
    // Non-blocking, because opening a named pipe without a writer would block and ignore signals.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number() < 0)
        throw Failure(EX_NOINPUT, path + ": the remap file cannot be opened: " + systemError(errno) +
                                      "; check the name and that you may read it");
    std::string contents(kMaxBytes + 1, '\0');
    std::size_t size = 0;
    while (size < contents.size()) {
        waitUntilReady(file.number(), POLLIN);
        const ssize_t got = read(file.number(), contents.data() + size, contents.size() - size);
        if (got == 0) break;
        if (got < 0 && errno != EINTR && errno != EAGAIN) failToRead(path, errno);
        size += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    contents.resize(size);
    if (contents.size() > kMaxBytes || contents.find('\0') != std::string::npos)
        throw Failure(EX_DATAERR, path + ": is not a remap file, which is a short text; man tarn-upmix shows one");
    // Some editors write a byte-order mark before UTF-8.
    if (contents.starts_with("\xef\xbb\xbf")) contents.erase(0, 3);
    return contents;
}

std::vector<std::string> wrapNotes(const std::string& path, const RemapFile& remap)
{
    std::vector<std::string> notes;
    for (std::size_t c = 0; c < kRemapColumns; ++c) {
        double sum = 0.0;
        for (const auto& row : remap.matrix.gain) sum += std::abs(std::bit_cast<std::int32_t>(row[c]) / kUnity);
        if (sum > 1.0)
            notes.push_back(path + ": the gains of column " + std::to_string(c + 1) + " (" + remap.slots[c] +
                            ") sum to " + formatted("%.4g", sum) +
                            " in magnitude: above 1, loud passages can wrap around");
    }
    return notes;
}

const Layout& remappedLayout()
{
    return layoutNamed(kRemapLayout);
}

/// Whether a line names slots: gains do not begin with a letter.
bool namesSlots(const std::vector<std::string>& words)
{
    return std::isalpha(static_cast<unsigned char>(words.front().front())) != 0;
}

std::string inCapitals(std::string word)
{
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return word;
}

RemapSlots parseSlots(const std::string& place, const std::vector<std::string>& words)
{
    const std::string slotNames(remappedLayout().slotNames);
    if (words.size() != kRemapColumns)
        throw Failure(EX_DATAERR, place + ": " + std::to_string(words.size()) + " slots; name 4 of " + slotNames +
                                      ", separated by spaces");
    RemapSlots slots;
    for (std::size_t c = 0; c < kRemapColumns; ++c) {
        const std::string name = inCapitals(words[c]);
        if (!slotNamed(remappedLayout(), name))
            throw Failure(EX_DATAERR,
                          place + ": '" + shown(words[c]) + "' is not the name of a slot; name 4 of " + slotNames);
        if (std::find(slots.begin(), slots.end(), name) != slots.end())
            throw Failure(EX_DATAERR, place + ": " + name + " is named twice; name 4 different slots");
        slots[c] = name;
    }
    return slots;
}

/// Parses a row of gains.
void parseRow(const std::string& place, const std::vector<std::string>& words, const RemapSlots& slots,
              std::uint32_t (&row)[kRemapColumns])
{
    if (slotNamed(remappedLayout(), inCapitals(words.front())))
        throw Failure(EX_DATAERR, place + ": names slots after the first line; move this line before the gains");
    if (words.size() != kRemapColumns)
        throw Failure(EX_DATAERR, place + ": " + std::to_string(words.size()) + " gains; a row has 4, one each for " +
                                      slots[0] + ", " + slots[1] + ", " + slots[2] + ", " + slots[3] +
                                      ", separated by spaces");
    for (std::size_t c = 0; c < kRemapColumns; ++c) row[c] = parseGain(place, words[c]);
}

} // namespace

RemapFile readRemapFile(const std::string& path)
{
    std::istringstream file(contentsOf(path));
    RemapFile remap;
    std::size_t rows = 0;
    std::size_t lineNumber = 0;
    bool isFirst = true;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        const std::vector<std::string> words = wordsOf(line);
        if (words.empty()) continue;
        const std::string place = placeOf(path, lineNumber);
        if (isFirst && namesSlots(words)) {
            remap.slots = parseSlots(place, words);
        } else {
            if (rows == kRows) throw Failure(EX_DATAERR, place + ": a fourth row; a matrix has 3 (FL, FR, centre)");
            parseRow(place, words, remap.slots, remap.matrix.gain[rows]);
            ++rows;
        }
        isFirst = false;
    }
    if (rows != kRows)
        throw Failure(EX_DATAERR, path + ": ends after " + std::to_string(rows) + (rows == 1 ? " row" : " rows") +
                                      "; a matrix has 3 (FL, FR, centre)");
    remap.notes = wrapNotes(path, remap);
    return remap;
}

} // namespace tarn
