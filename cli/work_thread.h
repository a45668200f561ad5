// A thread for a part of the work on one file.
// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <thread>

namespace tarn
{

/// Runs work on a thread of its own. The thread gets no signals, so the other one does.
class WorkThread
{
public:
    /// Throws std::system_error if there is no thread left.
    explicit WorkThread(std::function<void()> work);

    /// Waits until the work has returned.
    ~WorkThread();

    WorkThread(const WorkThread&) = delete;
    WorkThread& operator=(const WorkThread&) = delete;

    /// Waits until the work has returned. Rethrows what it threw. Call it once.
    void join();

private:
    std::exception_ptr problem; ///< valid after the end of the thread
    std::thread thread;
};

/// Starts a thread. Null if the process may use only one processor, or if there is no thread left.
std::unique_ptr<WorkThread> startThread(std::function<void()> work);

} // namespace tarn
