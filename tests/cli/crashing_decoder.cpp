// A preloaded library that makes libsndfile crash on files of certain names.
// SPDX-License-Identifier: MIT
#include "tests/cli/hidden_by.h"

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

// The file name selects the crash: abort.wav, trap.wav, exit.wav or kill.wav. Other files are read normally.

namespace
{

std::string way; // name of the last file without its extension

void crashForCertainNames()
{
    if (way == "abort") std::abort();
    if (way == "trap") __builtin_trap();
    if (way == "exit") _exit(3);
    if (way == "kill") std::raise(SIGKILL);
}

} // namespace

extern "C" int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t); // the caller passes it only with certain flags
    va_end(arguments);
    // Later calls open other files, such as the null device.
    if (const std::filesystem::path name(path); name.extension() == ".wav") way = name.stem();
    return tests::hiddenBy(open, "open")(path, flags, mode);
}

extern "C" sf_count_t sf_readf_int(SNDFILE* file, int* samples, sf_count_t frames)
{
    crashForCertainNames();
    return tests::hiddenBy(sf_readf_int, "sf_readf_int")(file, samples, frames);
}

extern "C" sf_count_t sf_readf_short(SNDFILE* file, short* samples, sf_count_t frames)
{
    crashForCertainNames();
    return tests::hiddenBy(sf_readf_short, "sf_readf_short")(file, samples, frames);
}

extern "C" sf_count_t sf_readf_double(SNDFILE* file, double* samples, sf_count_t frames)
{
    crashForCertainNames();
    return tests::hiddenBy(sf_readf_double, "sf_readf_double")(file, samples, frames);
}
