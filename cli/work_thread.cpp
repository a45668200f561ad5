// Starts threads without signals and collects what they throw.
// SPDX-License-Identifier: MIT
#include "cli/work_thread.h"

#include "cli/signal_blocker.h"

#include <system_error>
#include <utility>

#include <sched.h>

namespace tarn
{

namespace
{

/// Whether the process may use only one processor.
bool hasOneProcessor() noexcept
{
    cpu_set_t usable;
    CPU_ZERO(&usable);
    return sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) == 1;
}

} // namespace

WorkThread::WorkThread(std::function<void()> work)
{
    const SignalBlocker inherited;
    thread = std::thread([this, run = std::move(work)] {
        try {
            run();
        } catch (...) {
            problem = std::current_exception();
        }
    });
}

WorkThread::~WorkThread()
{
    if (thread.joinable()) thread.join();
}

void WorkThread::join()
{
    thread.join();
    if (problem) std::rethrow_exception(problem);
}

std::unique_ptr<WorkThread> startThread(std::function<void()> work)
{
    if (hasOneProcessor()) return nullptr;
    try {
        return std::make_unique<WorkThread>(std::move(work));
    } catch (const std::system_error&) {
        return nullptr;
    }
}

} // namespace tarn
