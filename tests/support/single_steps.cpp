// Executes code one instruction at a time.
// SPDX-License-Identifier: MIT
#include "tests/support/single_steps.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <span>

#if defined __x86_64__
#include <ucontext.h>
#include <x86intrin.h>
#endif

namespace tests
{

namespace
{

#if defined __x86_64__

constexpr unsigned long long kTrapFlag = 0x100;

// The signal handler writes these.
volatile std::size_t steps = 0;
std::span<std::uint64_t> stepAddresses;

void countStep(int /*signal*/, siginfo_t* /*info*/, void* context)
{
    if (steps < stepAddresses.size())
        stepAddresses[steps] =
            static_cast<std::uint64_t>(static_cast<const ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP]);
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
        counting.sa_flags = SA_SIGINFO;
        counting.sa_sigaction = countStep;
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
[[gnu::noinline]] std::size_t stepsThrough(const std::function<void()>& work, std::span<std::uint64_t> addresses = {})
{
    const StepHandler handler;
    steps = 0;
    stepAddresses = addresses;
    __writeeflags(__readeflags() | kTrapFlag);
    work();
    __writeeflags(__readeflags() & ~kTrapFlag);
    return steps;
}

#else

std::size_t stepsThrough(const std::function<void()>& /*work*/, std::span<std::uint64_t> /*addresses*/ = {})
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
    static const std::size_t overhead = stepsThrough([] {});
    return stepsThrough(work) - overhead;
}

std::vector<std::uint64_t> instructionAddressesOf(const std::function<void()>& work, std::size_t most)
{
    std::vector<std::uint64_t> addresses(most);
    addresses.resize(std::min(most, stepsThrough(work, addresses)));
    return addresses;
}

} // namespace tests
