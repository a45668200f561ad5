// Runs the command inside a fuzz target.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/fuzz/byte_reader.h"

#include <string>
#include <string_view>

namespace fuzz
{

/// A copy of standard error that stays open while StandardErrorTo redirects it.
int standardError();

/// Reports a fault of the command and aborts.
[[noreturn]] void fail(const std::string& what, const std::string& detail);

/// Aborts if a system call has failed; errno has the reason.
void require(bool holds, const char* call);

/// Whether a message can go to a terminal: at most 1000 bytes, without control characters.
bool fitsTerminal(std::string_view message);

/// A layout of the command, chosen by a byte.
std::string layoutFrom(ByteReader& bytes);

/// Counts an input with this layout. At the end of the process, standard error gets a line for each layout, such as
/// "layout 5.1: 40 inputs".
void countLayout(const std::string& layout);

/// A valid matrix for --remap.
inline constexpr std::string_view kMatrix = "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n";

/// A file in memory that can be opened by name.
class MemoryFile
{
public:
    MemoryFile();

    int descriptor() const { return fd; }
    std::string name() const { return "/proc/self/fd/" + std::to_string(fd); }

    void hold(std::string_view bytes) const;
    std::string content() const;

private:
    int fd;
};

/// Redirects standard error to a descriptor during its lifetime.
class StandardErrorTo
{
public:
    explicit StandardErrorTo(int descriptor);
    ~StandardErrorTo();
    StandardErrorTo(const StandardErrorTo&) = delete;
    StandardErrorTo& operator=(const StandardErrorTo&) = delete;
};

} // namespace fuzz
