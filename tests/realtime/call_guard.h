#pragma once

#include <functional>
#include <ostream>

namespace tests
{

/// Calls that a real-time thread must not make.
struct ForbiddenCalls
{
    unsigned allocations = 0; ///< malloc and its kin, through which operator new goes too
    unsigned releases = 0;    ///< free of anything, through which operator delete goes too
    unsigned locks = 0;       ///< locking, trying to lock, waiting and waking: mutexes, conditions, semaphores

    friend bool operator==(const ForbiddenCalls&, const ForbiddenCalls&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const ForbiddenCalls& calls)
    {
        return stream << calls.allocations << " allocations, " << calls.releases << " releases, " << calls.locks
                      << " locks";
    }
};

/// Counts them on this thread while work runs. The program's own definitions of these functions stand in front of the
/// C library's and count; so they see whatever any library of the process calls.
///
/// Not in a program that a sanitizer has instrumented: it has definitions of its own.
ForbiddenCalls forbiddenCallsOf(const std::function<void()>& work);

} // namespace tests
