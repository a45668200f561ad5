// Counts calls that a real-time thread must not make.
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <ostream>

namespace tests
{

/// Calls that a real-time thread must not make.
struct ForbiddenCalls
{
    unsigned allocations = 0; ///< malloc and related functions; operator new calls them
    unsigned releases = 0;    ///< free; operator delete calls it
    unsigned locks = 0;       ///< lock, try to lock, wait and wake: mutexes, conditions, semaphores

    friend bool operator==(const ForbiddenCalls&, const ForbiddenCalls&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const ForbiddenCalls& calls)
    {
        return stream << calls.allocations << " allocations, " << calls.releases << " releases, " << calls.locks
                      << " locks";
    }
};

/// Counts such calls on this thread while work runs. The program defines these functions itself, so calls of all
/// libraries are counted.
///
/// Not available with sanitizers, which define the functions too.
ForbiddenCalls forbiddenCallsOf(const std::function<void()>& work);

} // namespace tests
