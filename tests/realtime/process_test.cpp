// Tests that process does not allocate, lock or enter the kernel after the first call.
// SPDX-License-Identifier: MIT
#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"
#include "tests/support/host_session.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

namespace tests
{

namespace
{

/// Prevents that the compiler removes an unused allocation.
void* keep(void* memory)
{
    asm volatile("" : "+r"(memory) : : "memory");
    return memory;
}

std::vector<HostCall> callsOf(std::uint64_t seed)
{
    constexpr int kCalls = 400;
    HostSession session(seed);
    std::vector<HostCall> calls;
    for (int i = 0; i < kCalls; ++i) calls.push_back(session.nextCall());
    return calls;
}

/// A processor after its first call, and the remaining calls of the session.
class StartedHost
{
public:
    explicit StartedHost(std::uint64_t seed) : calls(callsOf(seed)) { runCall(calls.front(), processor); }

    void runRest()
    {
        for (std::size_t i = 1; i < calls.size(); ++i) runCall(calls[i], processor);
    }

private:
    std::vector<HostCall> calls;
    zrk_tarn_processor_t processor;
};

class GuardedTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (TARN_INSTRUMENTED) GTEST_SKIP() << "not with sanitizers or coverage";
    }
};

} // namespace

// --- The guards ----------------------------------------------------------------------------------------------------

class CallGuard : public GuardedTest
{};

TEST_F(CallGuard, CountsAllocationsAndReleases)
{
    struct alignas(64) Wide
    {
        char bytes[64];
    };
    const std::function<void()> pairs[] = {
        [] { std::free(keep(std::malloc(100))); },
        [] { std::free(keep(std::calloc(10, 10))); },
        [] { std::free(keep(std::realloc(nullptr, 100))); },
        [] { std::free(keep(std::aligned_alloc(64, 128))); },
        [] {
            void* memory = nullptr;
            EXPECT_EQ(posix_memalign(&memory, 64, 128), 0);
            std::free(keep(memory));
        },
        [] {
            auto* const one = new int;
            keep(one);
            delete one;
        },
        [] {
            auto* const one = new Wide;
            keep(one);
            delete one;
        },
    };
    for (const auto& pair : pairs)
        EXPECT_EQ(forbiddenCallsOf(pair), (ForbiddenCalls{.allocations = 1, .releases = 1})) << &pair - pairs;
    EXPECT_EQ(forbiddenCallsOf([] {}), ForbiddenCalls{});
}

TEST_F(CallGuard, CountsLocks)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_rwlock_t sharedMutex = PTHREAD_RWLOCK_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_spinlock_t spin;
    ASSERT_EQ(pthread_spin_init(&spin, PTHREAD_PROCESS_PRIVATE), 0);
    sem_t semaphore;
    ASSERT_EQ(sem_init(&semaphore, 0, 3), 0);
    constexpr timespec kLongAgo{};

    const std::function<void()> locks[] = {
        [&] { EXPECT_EQ(pthread_mutex_lock(&mutex), 0); },
        [&] { EXPECT_NE(pthread_mutex_trylock(&mutex), 0); },
        [&] { EXPECT_NE(pthread_mutex_timedlock(&mutex, &kLongAgo), 0); },
        [&] { EXPECT_NE(pthread_cond_timedwait(&condition, &mutex, &kLongAgo), 0); },
        [&] { EXPECT_EQ(pthread_cond_signal(&condition), 0); },
        [&] { EXPECT_EQ(pthread_cond_broadcast(&condition), 0); },
        [&] { EXPECT_EQ(pthread_rwlock_rdlock(&sharedMutex), 0); },
        [&] { EXPECT_EQ(pthread_rwlock_unlock(&sharedMutex) + pthread_rwlock_wrlock(&sharedMutex), 0); },
        [&] { EXPECT_EQ(pthread_spin_lock(&spin), 0); },
        [&] { EXPECT_EQ(sem_wait(&semaphore), 0); },
        [&] { EXPECT_EQ(sem_trywait(&semaphore), 0); },
        [&] { EXPECT_EQ(sem_timedwait(&semaphore, &kLongAgo), 0); },
        [&] { EXPECT_EQ(sem_post(&semaphore), 0); },
        [&] { EXPECT_EQ(pthread_once(&once, [] {}), 0); },
    };
    for (const auto& lock : locks) EXPECT_EQ(forbiddenCallsOf(lock), ForbiddenCalls{.locks = 1}) << &lock - locks;
}

TEST_F(CallGuard, CountsTheAllocationOfTheFirstCall)
{
    std::vector<HostCall> calls = callsOf(1);
    zrk_tarn_processor_t processor;
    EXPECT_EQ(forbiddenCallsOf([&] { runCall(calls.front(), processor); }), ForbiddenCalls{.allocations = 1});
}

class KernelGuard : public GuardedTest
{};

TEST_F(KernelGuard, CountsSystemCalls)
{
    const auto none = systemCallsOf([] {});
    if (!none) GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(*none, 0u);
    EXPECT_EQ(systemCallsOf([] { syscall(SYS_getpid); }), 1u);
    EXPECT_EQ(systemCallsOf([] {
                  for (int i = 0; i < 1000; ++i) syscall(SYS_gettid);
              }),
              1000u);
    // System calls by functions of the C library.
    EXPECT_EQ(systemCallsOf([] { sched_yield(); }), 1u);
    EXPECT_GE(systemCallsOf([] { usleep(1); }), 1u);
}

TEST_F(KernelGuard, CountsPageFaults)
{
    constexpr std::size_t kPages = 16;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory = mmap(nullptr, kPages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(madvise(memory, kPages * page, MADV_NOHUGEPAGE), 0);
    auto* const bytes = static_cast<volatile char*>(memory);
    const auto touchAll = [&] {
        for (std::size_t i = 0; i < kPages; ++i) bytes[i * page] = 1;
    };
    EXPECT_GE(pageFaultsOf(touchAll), static_cast<long>(kPages));
    munmap(memory, kPages * page);
}

// --- process -------------------------------------------------------------------------------------------------------

class RealTime : public GuardedTest, public testing::WithParamInterface<int>
{
protected:
    std::uint64_t seed() const { return static_cast<std::uint64_t>(GetParam()); }
};

TEST_P(RealTime, DoesNotAllocateOrLock)
{
    StartedHost host(seed());
    EXPECT_EQ(forbiddenCallsOf([&] { host.runRest(); }), ForbiddenCalls{}) << "seed " << seed();
}

TEST_P(RealTime, MakesNoSystemCall)
{
    StartedHost host(seed());
    const auto calls = systemCallsOf([&] { host.runRest(); });
    if (!calls) GTEST_SKIP() << "the kernel has no filter of system calls";
    EXPECT_EQ(*calls, 0u) << "seed " << seed();
}

// The kernel may remove pages at any time, but hardly three times in a row.
TEST_P(RealTime, HasNoPageFaultInTouchedMemory)
{
    StartedHost(seed()).runRest();
    long fewest = 1;
    for (int turn = 0; turn < 3 && fewest > 0; ++turn) {
        StartedHost host(seed());
        const long faults = pageFaultsOf([&] { host.runRest(); });
        fewest = turn == 0 ? faults : std::min(fewest, faults);
    }
    EXPECT_EQ(fewest, 0) << "seed " << seed();
}

INSTANTIATE_TEST_SUITE_P(Seed, RealTime, testing::Range(1, 9));

} // namespace tests
