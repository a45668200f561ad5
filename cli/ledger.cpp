// Reads the ledger of an output folder and appends lines under a lock.
// SPDX-License-Identifier: MIT
#include "cli/ledger.h"

#include "cli/descriptor.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/ledger_line.h"
#include "cli/text.h"

#include <cerrno>
#include <cstddef>
#include <string_view>
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

std::string textOf(const fs::path& file, int descriptor)
{
    constexpr std::size_t kChunk = 1 << 20;
    std::string text;
    while (true) {
        const std::size_t size = text.size();
        text.resize(size + kChunk);
        const ssize_t got = ::read(descriptor, text.data() + size, kChunk);
        if (got < 0 && errno != EINTR)
            throw Failure(EX_NOINPUT, file.string() + ": cannot be read: " + systemError(errno));
        text.resize(size + static_cast<std::size_t>(got > 0 ? got : 0));
        if (got == 0) return text;
    }
}

/// Locks the file until it is closed. Without locks, as on some network file systems, one write of a line has to do.
void lock(int descriptor)
{
    while (flock(descriptor, LOCK_EX) != 0 && errno == EINTR) throwIfInterrupted();
}

/// Whether the last byte of a file is something else than a line feed.
bool isCut(int descriptor, off_t size) noexcept
{
    char last = '\n';
    return size > 0 && pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

} // namespace

Ledger::Ledger(const fs::path& folder) : directory(folder), file(folder / kName)
{
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (opened.number() < 0 && (errno == ENOENT || errno == ENOTDIR)) return;
    if (opened.number() < 0)
        throw Failure(EX_NOINPUT,
                      file.string() + ": cannot be opened: " + systemError(errno) + "; check that you may read it");
    struct stat status = {};
    if (fstat(opened.number(), &status) != 0 || !S_ISREG(status.st_mode)) refuseForeign(file);
    read(textOf(file, opened.number()));
}

void Ledger::read(const std::string& text)
{
    const std::string_view all = text;
    if (!kLedgerHeader.starts_with(all.substr(0, all.find('\n')))) refuseForeign(file);
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = all.find('\n', begin);
        if (end == std::string_view::npos) return;
        if (auto entry = ledgerEntry(all.substr(begin, end - begin))) {
            std::string output = entry->output;
            entries.insert_or_assign(std::move(output), std::move(*entry));
        }
        begin = end + 1;
    }
}

std::string Ledger::relative(const std::string& output) const
{
    return fs::path(output).lexically_relative(directory).string();
}

const LedgerEntry* Ledger::find(const std::string& output) const
{
    const auto found = entries.find(output);
    return found == entries.end() ? nullptr : &found->second;
}

void Ledger::append(const LedgerEntry& entry) const
{
    const Descriptor opened(open(file.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (opened.number() < 0) failToAppend(file, errno);
    lock(opened.number());
    struct stat status = {};
    if (fstat(opened.number(), &status) != 0) failToAppend(file, errno);

    std::string text(status.st_size == 0 ? kLedgerHeader : "");
    if (status.st_size == 0 || isCut(opened.number(), status.st_size)) text += '\n';
    text += ledgerLine(entry) + "\n";
    int error = writeAll(opened.number(), text.data(), text.size());
    if (error == 0 && fdatasync(opened.number()) != 0) error = errno;
    if (error == 0) return;
    // A cut line would do no harm, but it stays away if that is possible.
    static_cast<void>(ftruncate(opened.number(), status.st_size) == 0);
    failToAppend(file, error);
}

} // namespace tarn
