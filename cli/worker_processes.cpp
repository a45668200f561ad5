// Forks workers, collects their results and forwards signals.
// SPDX-License-Identifier: MIT
#include "cli/worker_processes.h"

#include "cli/descriptor.h"
#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/signal_blocker.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn
{

namespace
{

/// A process that works on a file. The destructor kills it if it still runs.
class Worker
{
public:
    Worker(std::size_t fileIndex, pid_t process, Descriptor readEnd)
        : file(fileIndex), pid(process), pipe(std::move(readEnd))
    {}

    Worker(Worker&& other) noexcept
        : file(other.file),
          pid(std::exchange(other.pid, -1)),
          pipe(std::move(other.pipe)),
          message(std::move(other.message))
    {}

    Worker& operator=(Worker&& other) noexcept
    {
        std::swap(file, other.file);
        std::swap(pid, other.pid);
        std::swap(pipe, other.pipe);
        std::swap(message, other.message);
        return *this;
    }

    ~Worker()
    {
        if (pid < 0) return;
        kill(pid, SIGKILL);
        wait();
    }

    std::size_t index() const noexcept { return file; }
    int descriptor() const noexcept { return pipe.number(); }
    void signal(int signalNumber) const noexcept { kill(pid, signalNumber); }

    /// Reads from the pipe when it is readable. Returns whether more data can follow.
    bool receive()
    {
        std::array<std::uint8_t, 65536> chunk{};
        const ssize_t got = read(pipe.number(), chunk.data(), chunk.size());
        if (got > 0) message.insert(message.end(), chunk.begin(), chunk.begin() + got);
        return got > 0 || (got < 0 && errno == EINTR);
    }

    /// The outcome; call it when no more data can follow.
    WorkerOutcome finish(const std::string& name);

private:
    /// Waits for the process to end. Returns its status.
    int wait() noexcept
    {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
        return status;
    }

    std::size_t file;
    pid_t pid;
    Descriptor pipe;
    std::vector<std::uint8_t> message;
};

/// Whether a signal means a crash of the process.
bool isCrash(int signalNumber) noexcept
{
    constexpr std::array kCrashes{SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};
    return std::find(kCrashes.begin(), kCrashes.end(), signalNumber) != kCrashes.end();
}

/// The message about a process that ended before its work.
std::string crashMessage(const std::string& name, int status)
{
    const std::string others = "; the other files are not affected; ";
    if (!WIFSIGNALED(status))
        return name + ": the decoder or encoder ended the process (exit code " + std::to_string(WEXITSTATUS(status)) +
               ")" + others + "please report this file";

    const char* const description = sigdescr_np(WTERMSIG(status));
    const std::string signal =
        " (signal " + std::to_string(WTERMSIG(status)) + (description ? std::string(", ") + description : "") + ")";
    if (isCrash(WTERMSIG(status)))
        return name + ": the decoder or encoder crashed" + signal + others + "please report this file";
    return name + ": the process that worked on it was killed" + signal + others +
           "free some memory if it ran out, and try this file again";
}

WorkerOutcome Worker::finish(const std::string& name)
{
    const int status = wait();
    Json received = Json::from_cbor(message, true, false);
    if (received.is_discarded()) return {.error = crashMessage(name, status), .exitCode = EX_SOFTWARE, .crashed = true};
    if (received.contains("result")) return {.result = std::move(received["result"])};
    return {.error = received["error"].get<std::string>(),
            .exitCode = received["exit_code"].get<int>(),
            .endsRun = received.contains("ends_run")};
}

/// Runs the work and builds the message for the parent.
Json messageOf(const std::string& name, std::size_t index, const std::function<Json(std::size_t)>& work)
{
    try {
        return {{"result", work(index)}};
    } catch (const OutputFailure& failure) {
        return {{"error", failure.what()}, {"exit_code", failure.exitCode()}, {"ends_run", true}};
    } catch (const Failure& failure) {
        return {{"error", failure.what()}, {"exit_code", failure.exitCode()}};
    } catch (const std::exception& error) {
        return {{"error", name + ": internal error: " + error.what()}, {"exit_code", EX_SOFTWARE}};
    }
}

/// The running processes, seen from the parent.
class Workers
{
public:
    Workers(const std::vector<std::string>& fileNames, const std::function<Json(std::size_t)>& workOnFile)
        : names(fileNames), work(workOnFile)
    {}

    std::size_t count() const noexcept { return running.size(); }

    /// Starts a process for a file. Returns whether that succeeded; otherwise errno holds the reason.
    bool start(std::size_t index);

    /// Waits for data from the processes or for a signal, and forwards the signal once.
    void wait();

    /// Removes the finished processes and returns their outcomes.
    std::vector<std::pair<std::size_t, WorkerOutcome>> ended();

private:
    [[noreturn]] void runChild(std::size_t index, int results, pid_t parent, const SignalBlocker& signals) noexcept;

    const std::vector<std::string>& names;
    const std::function<Json(std::size_t)>& work;
    std::vector<Worker> running;
    std::vector<std::size_t> finished; ///< indices of workers whose pipes are closed
    bool signalled = false;
};

bool Workers::start(std::size_t index)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);
    running.reserve(running.size() + 1);
    // Parent and child would both write buffered text.
    std::fflush(stdout);

    const SignalBlocker signals; // until the new process can handle them
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) runChild(index, writeEnd.number(), parent, signals);
    if (pid < 0) return false;
    running.emplace_back(index, pid, std::move(readEnd));
    return true;
}

void Workers::runChild(std::size_t index, int results, pid_t parent, const SignalBlocker& signals) noexcept
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(EX_SOFTWARE);
    for (const Worker& other : running) ::close(other.descriptor());
    try {
        catchInterrupts();
        signals.release();
        const std::vector<std::uint8_t> message = Json::to_cbor(messageOf(names[index], index, work));
        // If the parent is gone, nobody reads the message.
        static_cast<void>(writeAll(results, message.data(), message.size()));
    } catch (const Interrupted& interrupted) {
        dieBySignal(interrupted.signalNumber);
    }
    // Skips exit handlers and buffers, which belong to the parent.
    _exit(EX_OK);
}

void Workers::wait()
{
    std::vector<pollfd> waits;
    for (const Worker& worker : running) waits.push_back({worker.descriptor(), POLLIN, 0});
    if (!signalled) waits.push_back({interruptDescriptor(), POLLIN, 0});
    if (poll(waits.data(), waits.size(), -1) < 0) waits.clear();

    for (std::size_t place = 0; place < std::min(waits.size(), running.size()); ++place)
        if (waits[place].revents != 0 && !running[place].receive()) finished.push_back(place);
    if (const int signalNumber = arrivedSignal(); signalNumber != 0 && !signalled) {
        signalled = true;
        for (const Worker& worker : running) worker.signal(signalNumber);
    }
}

std::vector<std::pair<std::size_t, WorkerOutcome>> Workers::ended()
{
    std::vector<std::pair<std::size_t, WorkerOutcome>> outcomes;
    std::for_each(finished.rbegin(), finished.rend(), [&](std::size_t place) {
        Worker& worker = running[place];
        outcomes.emplace_back(worker.index(), worker.finish(names[worker.index()]));
        running.erase(running.begin() + static_cast<std::ptrdiff_t>(place));
    });
    finished.clear();
    return outcomes;
}

} // namespace

void runInProcesses(const std::vector<std::string>& names, unsigned jobs, const std::function<Json(std::size_t)>& work,
                    const std::function<void(std::size_t, WorkerOutcome&&)>& done)
{
    // If the parent ignores SIGCHLD, waitpid would fail.
    std::signal(SIGCHLD, SIG_DFL);

    Workers workers(names, work);
    std::map<std::size_t, WorkerOutcome> waiting; // outcomes of files after one that still runs
    std::size_t next = 0;
    std::size_t end = names.size();
    std::size_t reported = 0;
    while (true) {
        while (arrivedSignal() == 0 && next < end && workers.count() < jobs) {
            if (workers.start(next)) {
                ++next;
            } else if (workers.count() > 0) {
                break;
            } else {
                const int error = errno;
                throw Failure(EX_SOFTWARE, names[next] + ": cannot start a process: " + systemError(error) + "; " +
                                               adviceFor(error, "end some programs, or raise the limit of processes"));
            }
        }
        if (workers.count() == 0) break;
        workers.wait();
        for (auto& [index, outcome] : workers.ended()) {
            if (outcome.endsRun) end = next;
            waiting.emplace(index, std::move(outcome));
        }
        for (; arrivedSignal() == 0 && waiting.contains(reported); ++reported)
            done(reported, std::move(waiting.extract(reported).mapped()));
    }
    // A process that the signal ended counts as crashed.
    for (auto& [index, outcome] : waiting)
        if (!outcome.crashed) done(index, std::move(outcome));
    throwIfInterrupted();
}

} // namespace tarn
