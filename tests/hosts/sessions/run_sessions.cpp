// Runs random sessions with a plug-in, and names the session in which something fails.
// SPDX-License-Identifier: MIT
#include "run_sessions.h"

#include <atomic>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#if defined __has_feature
#if __has_feature(address_sanitizer)
#define TARN_ADDRESS_SANITIZER
#include <sanitizer/common_interface_defs.h>
#endif
#endif

namespace tests
{

namespace
{

char** programArguments = nullptr;
std::atomic<std::uint64_t> runningSeed = 0; ///< 0 outside the sessions

void printSeed()
{
    if (runningSeed == 0) return;
    std::fprintf(stderr, "sessions: failed; again with: %s %s 1 %" PRIu64 "\n", programArguments[0],
                 programArguments[1], runningSeed.load());
}

/// Prints the seed before a crash, or a report of a sanitizer, ends the program.
void printSeedAtDeath()
{
#ifdef TARN_ADDRESS_SANITIZER
    __sanitizer_set_death_callback(printSeed);
#else
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV})
        std::signal(signal, [](int caught) {
            printSeed();
            std::signal(caught, SIG_DFL);
            std::raise(caught);
        });
#endif
}

std::uint64_t numberFrom(const char* text)
{
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(text, &end, 10);
    require(*end == '\0' && number > 0, "numbers are 1 or more");
    return number;
}

} // namespace

void runSessions(int count, char** arguments, const std::function<void(std::uint64_t seed)>& session)
{
    programArguments = arguments;
    const std::uint64_t sessions = count > 2 ? numberFrom(arguments[2]) : 1000;
    const std::uint64_t first = count > 3 ? numberFrom(arguments[3]) : 1;
    printSeedAtDeath();
    for (std::uint64_t i = 0; i < sessions; ++i) {
        runningSeed = first + i;
        session(runningSeed);
    }
    runningSeed = 0;
    std::printf("%s: %" PRIu64 " sessions without a finding\n", arguments[1], sessions);
}

void failSession(const char* message)
{
    std::fprintf(stderr, "sessions: %s\n", message);
    printSeed();
    std::_Exit(1);
}

} // namespace tests
