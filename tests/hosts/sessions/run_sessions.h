// Runs random sessions with a plug-in, and names the session in which something fails.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

namespace tests
{

/// Runs session(seed) for consecutive seeds. The arguments of the program are FILE [SESSIONS [FIRST_SEED]].
///
/// After a failed requirement, a report of a sanitizer or a crash, the program prints the seed of the session and ends.
void runSessions(int count, char** arguments, const std::function<void(std::uint64_t seed)>& session);

/// Ends the program with a message. Can be called on any thread.
[[noreturn]] void failSession(const char* message);

inline void require(bool condition, const char* message)
{
    if (!condition) failSession(message);
}

} // namespace tests
