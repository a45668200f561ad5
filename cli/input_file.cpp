// Opens input files; copies piped input to an unnamed temporary file.
// SPDX-License-Identifier: MIT
#include "cli/input_file.h"

#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/temporary_file.h"
#include "cli/text.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kStoreBytes = 65536;

[[noreturn]] void failToStore(const std::string& folder, int error)
{
    throw Failure(EX_IOERR, folder + ": cannot store the data of the pipe there: " + systemError(error) + "; " +
                                adviceFor(error, "set TMPDIR to a folder with free space") +
                                ", or name a file instead of the pipe");
}

/// Creates a file without a name.
Descriptor createStorage(const std::string& folder)
{
    Descriptor file = createUnnamed(folder);
    if (file.number() < 0) failToStore(folder, errno);
    return file;
}

[[noreturn]] void failToOpen(const std::string& name, int error)
{
    std::error_code isNoLink;
    const std::filesystem::path target = std::filesystem::read_symlink(name, isNoLink);
    if (error == ENOENT && !isNoLink)
        throw Failure(EX_NOINPUT, name + ": is a broken symbolic link to " + target.string() +
                                      "; restore that file, or remove the link");
    throw Failure(EX_NOINPUT, name + ": cannot be opened: " + systemError(error) + "; " +
                                  adviceFor(error, "check the name and that you may read it"));
}

/// Refuses a device, which may be endless.
[[noreturn]] void refuseDevice(const InputFile& file)
{
    char byte = 0;
    const bool isEmpty = read(file.descriptor.number(), &byte, 1) == 0; // such as /dev/null
    if (isEmpty) throw Failure(EX_DATAERR, file.name + ": is an empty device; name an audio file, or a pipe with one");
    throw Failure(EX_NOINPUT, file.name + ": is a device; name an audio file, or a pipe with one");
}

/// Copies a pipe to its end into a file.
InputFile storePipe(const InputFile& pipe)
{
    std::error_code ignored;
    std::filesystem::path folder = std::filesystem::temp_directory_path(ignored);
    if (ignored) folder = "/tmp";
    InputFile file{
        .name = pipe.name, .descriptor = createStorage(folder.string()), .identity = pipe.identity, .fromPipe = true};
    std::vector<char> bytes(kStoreBytes);
    while (true) {
        waitUntilReady(pipe.descriptor.number(), POLLIN);
        const ssize_t got = read(pipe.descriptor.number(), bytes.data(), bytes.size());
        if (got == 0) return file;
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN) continue;
            throw Failure(EX_IOERR, pipe.name + ": reading failed: " + systemError(errno));
        }
        if (const int error = writeAll(file.descriptor.number(), bytes.data(), static_cast<std::size_t>(got)))
            failToStore(folder.string(), error);
        file.bytes += static_cast<std::uint64_t>(got);
    }
}

} // namespace

InputFile openInput(const std::string& path)
{
    const bool isStandardInput = path == "-";
    InputFile file{.name = isStandardInput ? "standard input" : path, .descriptor = {}, .identity = {}};
    // Non-blocking, because opening a named pipe without a writer would block and ignore signals.
    file.descriptor = Descriptor(isStandardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                                 : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.descriptor.number() < 0) failToOpen(file.name, errno);

    struct stat status = {};
    if (fstat(file.descriptor.number(), &status) != 0) failToOpen(file.name, errno);
    file.identity = {.device = status.st_dev, .inode = status.st_ino};
    if (S_ISDIR(status.st_mode)) throw Failure(EX_NOINPUT, path + ": is a directory; name an audio file in it");
    if (isatty(file.descriptor.number()) != 0)
        throw Failure(EX_USAGE, file.name + ": is a terminal; pipe an audio file into it, or name a file");
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) refuseDevice(file);
    if (S_ISREG(status.st_mode)) {
        file.bytes = static_cast<std::uint64_t>(status.st_size);
    } else {
        file = storePipe(file);
    }
    if (file.bytes == 0)
        throw Failure(EX_DATAERR, file.name + ": is empty, 0 bytes; check " +
                                      (file.fromPipe ? "the command before the pipe" : "where it comes from"));
    return file;
}

} // namespace tarn
