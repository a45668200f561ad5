// Counts executed instructions.
// SPDX-License-Identifier: MIT
#include "tests/realtime/instruction_counter.h"

#include <csignal>
#include <cstdlib>

#if defined __x86_64__
#include <x86intrin.h>
#endif

namespace tests
{

namespace
{

volatile std::sig_atomic_t steps = 0;

#if defined __x86_64__

constexpr unsigned long long kTrapFlag = 0x100;

void countStep(int /*signal*/)
{
    steps = steps + 1;
}

/// Sets the handler of SIGTRAP for its lifetime.
class StepHandler
{
public:
    StepHandler()
    {
        struct sigaction counting
        {};
        counting.sa_handler = countStep;
        if (sigaction(SIGTRAP, &counting, &former) != 0) std::abort();
    }
    ~StepHandler() { sigaction(SIGTRAP, &former, nullptr); }
    StepHandler(const StepHandler&) = delete;
    StepHandler& operator=(const StepHandler&) = delete;

private:
    struct sigaction former
    {};
};

/// Not inlined, so that the overhead is the same for every work.
[[gnu::noinline]] int stepsThrough(const std::function<void()>& work)
{
    const StepHandler handler;
    steps = 0;
    __writeeflags(__readeflags() | kTrapFlag);
    work();
    __writeeflags(__readeflags() & ~kTrapFlag);
    return steps;
}

#else

int stepsThrough(const std::function<void()>& /*work*/)
{
    return 0;
}

#endif

} // namespace

bool canCountInstructions()
{
    static const bool can = stepsThrough([] {}) > 0;
    return can;
}

std::uint64_t instructionsOf(const std::function<void()>& work)
{
    static const int overhead = stepsThrough([] {});
    return static_cast<std::uint64_t>(stepsThrough(work) - overhead);
}

} // namespace tests
