// Measures the stack that a call needs.
// SPDX-License-Identifier: MIT
#include "tests/realtime/stack_bytes.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace tests
{

namespace
{

constexpr std::size_t kThreadBytes = 512 * 1024;
constexpr std::size_t kSmallThreadBytes = 16 * 1024;
constexpr std::byte kPaint{0xa5};

/// A call on a thread, and where its stack begins.
struct Job
{
    const std::function<void()>& call;
    std::byte* top = nullptr;
};

void* runJob(void* argument)
{
    auto& job = *static_cast<Job*>(argument);
    job.top = static_cast<std::byte*>(__builtin_frame_address(0));
    job.call();
    return nullptr;
}

} // namespace

/// Paints the stack of the thread and returns the bytes down to the deepest changed one.
std::size_t stackBytesOf(const std::function<void()>& call)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::unique_ptr<std::byte, decltype(&std::free)> stack(
        static_cast<std::byte*>(std::aligned_alloc(page, kThreadBytes)), std::free);
    std::fill_n(stack.get(), kThreadBytes, kPaint);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstack(&attributes, stack.get(), kThreadBytes), 0);
    Job job{call};
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, &attributes, runJob, &job), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const std::byte* const deepest =
        std::find_if(stack.get(), stack.get() + kThreadBytes, [](std::byte b) { return b != kPaint; });
    return static_cast<std::size_t>(job.top - deepest);
}

bool runsOnSmallStack(const std::function<void()>& call)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const bool canBeSmall = pthread_attr_setstacksize(&attributes, kSmallThreadBytes) == 0;
    if (canBeSmall) {
        Job job{call};
        pthread_t thread{};
        EXPECT_EQ(pthread_create(&thread, &attributes, runJob, &job), 0);
        pthread_join(thread, nullptr);
    }
    pthread_attr_destroy(&attributes);
    return canBeSmall;
}

} // namespace tests
