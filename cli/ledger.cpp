// Reads the ledger of an output folder and appends lines under a lock.
// SPDX-License-Identifier: MIT
#include "cli/ledger.h"

#include "cli/descriptor.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/ledger_line.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kName = "tarn-ledger.txt";

[[noreturn]] void failToAppend(const fs::path& file, int error)
{
    throw OutputFailure(EX_IOERR, file.string() + ": cannot be written: " + systemError(error) +
                                      "; the output that it would list was not kept. Free some space, or choose "
                                      "another --output-dir");
}

[[noreturn]] void refuseForeign(const fs::path& file)
{
    throw Failure(EX_CANTCREAT, file.string() + ": is not a ledger of tarn; move it away, or choose another "
                                                "--output-dir");
}

/// Locks the file until it is closed. Returns false if the file system has no locks, as some network file systems; then
/// one write of a line has to do.
bool lock(int descriptor)
{
    while (flock(descriptor, LOCK_EX) != 0) {
        if (errno != EINTR) return false;
        throwIfInterrupted();
    }
    return true;
}

/// Whether the last byte of a file is something else than a line feed.
bool isCut(int descriptor, off_t size) noexcept
{
    char last = '\n';
    return size > 0 && pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

} // namespace

Ledger::Ledger(const fs::path& folder, const std::vector<std::string>& outputs)
    : directory(folder), file(folder / kName)
{
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (opened.number() < 0 && (errno == ENOENT || errno == ENOTDIR)) return;
    if (opened.number() < 0)
        throw Failure(EX_NOINPUT,
                      file.string() + ": cannot be opened: " + systemError(errno) + "; check that you may read it");
    struct stat status = {};
    if (fstat(opened.number(), &status) != 0 || !S_ISREG(status.st_mode)) refuseForeign(file);
    for (const std::string& output : outputs) entries.try_emplace(relative(output));
    read(opened.number());
}

void Ledger::read(int descriptor)
{
    constexpr std::size_t kChunk = 1 << 20;
    std::string text; // begins with a line
    bool isFirst = true;
    while (true) {
        const std::size_t size = text.size();
        text.resize(size + kChunk);
        const ssize_t got = ::read(descriptor, text.data() + size, kChunk);
        if (got < 0 && errno != EINTR)
            throw Failure(EX_NOINPUT, file.string() + ": cannot be read: " + systemError(errno));
        text.resize(size + static_cast<std::size_t>(got > 0 ? got : 0));
        if (isFirst && !kLedgerHeader.starts_with(text.substr(0, text.find('\n')))) refuseForeign(file);
        isFirst = false;
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
            readLine(std::string_view(text).substr(begin, end - begin));
        text.erase(0, begin);
        if (got == 0) return; // a cut line is left
    }
}

/// Stores the entry of a line if it is one of those to read.
void Ledger::readLine(std::string_view line)
{
    const std::optional<std::string> output = ledgerOutput(line);
    const auto wanted = output ? entries.find(*output) : entries.end();
    if (wanted == entries.end()) return;
    auto entry = ledgerEntry(line);
    if (!entry) return;
    Lines& lines = wanted->second;
    if (lines.newest) lines.earlier.push_back(lines.newest->outputState);
    lines.newest = std::move(entry);
}

std::string Ledger::relative(const std::string& output) const
{
    return fs::path(output).lexically_relative(directory).string();
}

const LedgerEntry* Ledger::find(const std::string& output) const
{
    const auto found = entries.find(output);
    return found == entries.end() || !found->second.newest ? nullptr : &*found->second.newest;
}

bool Ledger::lists(const std::string& output, const FileState& state) const
{
    const auto found = entries.find(output);
    if (found == entries.end() || !found->second.newest) return false;
    const std::vector<FileState>& earlier = found->second.earlier;
    return found->second.newest->outputState == state ||
           std::find(earlier.begin(), earlier.end(), state) != earlier.end();
}

void Ledger::append(const LedgerEntry& entry) const
{
    const Descriptor opened(open(file.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (opened.number() < 0) failToAppend(file, errno);
    const bool isLocked = lock(opened.number());
    struct stat status = {};
    if (fstat(opened.number(), &status) != 0) failToAppend(file, errno);

    std::string text(status.st_size == 0 ? kLedgerHeader : "");
    if (status.st_size == 0 || isCut(opened.number(), status.st_size)) text += '\n';
    text += ledgerLine(entry) + "\n";
    int error = writeAll(opened.number(), text.data(), text.size());
    if (error == 0 && fdatasync(opened.number()) != 0) error = errno;
    if (error == 0) return;
    // A cut line would do no harm, but it is removed. Without the lock, lines of other processes can follow it.
    if (isLocked) static_cast<void>(ftruncate(opened.number(), status.st_size) == 0);
    failToAppend(file, error);
}

} // namespace tarn
