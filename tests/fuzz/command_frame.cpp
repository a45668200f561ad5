// Runs the command inside a fuzz target.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/command_frame.h"

#include "cli/layout.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// Sets the descriptor for reports of the address and undefined behaviour sanitizers.
extern "C" [[gnu::weak]] void __sanitizer_set_report_fd(void* descriptor);

// The decoders leak memory when they fail on a damaged file: libsndfile 1.2.0 leaks a few KiB of libvorbis. The command
// exits then. Leaks of its own memory are still detected.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_options();

const char* __lsan_default_options()
{
    return "print_suppressions=0";
}

const char* __lsan_default_suppressions()
{
    return "leak:libFLAC.so\nleak:libmpg123.so\nleak:libogg.so\nleak:libopus.so\nleak:libsndfile.so\n"
           "leak:libvorbis.so\nleak:libvorbisenc.so\n";
}

namespace fuzz
{

namespace
{

/// Inputs per layout; prints them at the end.
class LayoutCounts
{
public:
    LayoutCounts()
    {
        for (const std::string& name : tarn::layoutNames()) inputs[name] = 0;
    }

    ~LayoutCounts()
    {
        for (const auto& [name, count] : inputs) std::fprintf(stderr, "layout %s: %zu inputs\n", name.c_str(), count);
    }

    LayoutCounts(const LayoutCounts&) = delete;
    LayoutCounts& operator=(const LayoutCounts&) = delete;

    void add(const std::string& layout) { ++inputs.at(layout); }

private:
    std::map<std::string, std::size_t> inputs;
};

} // namespace

int standardError()
{
    static const int kCopy = [] {
        const int copy = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        require(copy >= 0, "fcntl");
        if (__sanitizer_set_report_fd != nullptr)
            __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(copy)));
        return copy;
    }();
    return kCopy;
}

void fail(const std::string& what, const std::string& detail)
{
    dprintf(standardError(), "tarn upmix: %s: %s\n", what.c_str(), detail.c_str());
    std::abort();
}

void require(bool holds, const char* call)
{
    if (holds) return;
    std::perror(call);
    std::abort();
}

bool fitsTerminal(std::string_view message)
{
    constexpr std::size_t kLongestMessage = 1000;
    return message.size() <= kLongestMessage && std::none_of(message.begin(), message.end(), [](char c) {
               return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f;
           });
}

std::string layoutFrom(ByteReader& bytes)
{
    static const std::vector<std::string> kNames = tarn::layoutNames();
    return kNames[bytes.below(static_cast<std::uint32_t>(kNames.size()))];
}

void countLayout(const std::string& layout)
{
    static LayoutCounts counts;
    counts.add(layout);
}

MemoryFile::MemoryFile() : fd(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING))
{
    require(fd >= 0, "memfd_create");
}

void MemoryFile::hold(std::string_view bytes) const
{
    require(ftruncate(fd, 0) == 0, "ftruncate");
    require(lseek(fd, 0, SEEK_SET) == 0, "lseek");
    require(pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()), "pwrite");
}

std::string MemoryFile::content() const
{
    struct stat status = {};
    require(fstat(fd, &status) == 0, "fstat");
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    require(pread(fd, bytes.data(), bytes.size(), 0) == status.st_size, "pread");
    return bytes;
}

StandardErrorTo::StandardErrorTo(int descriptor)
{
    standardError();
    require(dup2(descriptor, STDERR_FILENO) == STDERR_FILENO, "dup2");
}

StandardErrorTo::~StandardErrorTo()
{
    dup2(standardError(), STDERR_FILENO);
}

} // namespace fuzz
