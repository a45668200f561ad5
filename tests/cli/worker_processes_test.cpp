// Worker processes: results, order, failures.
// SPDX-License-Identifier: MIT
#include "cli/worker_processes.h"

#include "cli/failure.h"
#include "cli/interrupt.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace tarn_cli
{

using tarn::Json;
using tarn::WorkerOutcome;

class WorkerProcesses : public testing::Test
{
protected:
    void SetUp() override
    {
        for (int i = 1; i <= SIGRTMAX; ++i) sigaction(i, nullptr, &actions[static_cast<std::size_t>(i)]);
        tarn::catchInterrupts();
    }

    void TearDown() override
    {
        for (int i = 1; i <= SIGRTMAX; ++i) sigaction(i, &actions[static_cast<std::size_t>(i)], nullptr);
        EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a process still runs";
    }

    /// Runs a number of work items and returns their results, which must arrive in order.
    static std::vector<WorkerOutcome> outcomes(std::size_t count, unsigned jobs,
                                               const std::function<Json(std::size_t)>& work)
    {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < count; ++i) names.push_back("file" + std::to_string(i));
        std::vector<WorkerOutcome> all;
        tarn::runInProcesses(names, jobs, work, [&all](std::size_t i, WorkerOutcome&& outcome) {
            EXPECT_EQ(i, all.size());
            all.push_back(std::move(outcome));
        });
        return all;
    }

private:
    std::array<struct sigaction, 65> actions{}; ///< before the test
};

TEST_F(WorkerProcesses, ReturnResultsOfAnySizeInOrder)
{
    // The results exceed the capacity of a pipe, and the first takes longest.
    const auto work = [](std::size_t i) {
        if (i == 0) usleep(200000);
        return Json{{"index", i}, {"process", getpid()}, {"text", std::string(3'000'000 + i, 'x')}, {"double", 0.1}};
    };
    for (const unsigned jobs : {1u, 3u, 64u}) {
        const std::vector<WorkerOutcome> all = outcomes(7, jobs, work);
        ASSERT_EQ(all.size(), 7u);
        std::set<int> processes{getpid()};
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i].exitCode, EX_OK);
            EXPECT_EQ(all[i].error, "");
            EXPECT_EQ(all[i].result["index"], i);
            EXPECT_EQ(all[i].result["text"].get_ref<const std::string&>().size(), 3'000'000 + i);
            EXPECT_EQ(all[i].result["double"], 0.1);
            EXPECT_TRUE(processes.insert(all[i].result["process"].get<int>()).second);
        }
    }
}

TEST_F(WorkerProcesses, NamesOfAnyBytesAreKept)
{
    const std::string name = "\xff\n\x1b[31m\xc3\xa4";
    EXPECT_EQ(outcomes(1, 1, [&](std::size_t) { return Json(name); })[0].result.get<std::string>(), name);
}

TEST_F(WorkerProcesses, ReportHowTheWorkFailed)
{
    const auto work = [](std::size_t i) -> Json {
        if (i == 0) throw tarn::Failure(EX_NOINPUT, "file0: is missing");
        if (i == 1) throw std::runtime_error("broken");
        if (i == 2) std::abort();
        if (i == 3) std::raise(SIGKILL);
        if (i == 4) _exit(0);
        return nullptr;
    };
    const std::vector<WorkerOutcome> all = outcomes(6, 2, work);
    ASSERT_EQ(all.size(), 6u);
    const std::string others = "; the other files are not affected; ";
    EXPECT_EQ(all[0].error, "file0: is missing");
    EXPECT_EQ(all[0].exitCode, EX_NOINPUT);
    EXPECT_EQ(all[1].error, "file1: internal error: broken");
    EXPECT_EQ(all[2].error,
              "file2: the decoder or encoder crashed (signal 6, Aborted)" + others + "please report this file");
    EXPECT_EQ(all[3].error, "file3: the process that worked on it was killed (signal 9, Killed)" + others +
                                "free some memory if it ran out, and try this file again");
    EXPECT_EQ(all[4].error,
              "file4: the decoder or encoder ended the process (exit code 0)" + others + "please report this file");
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].crashed, i >= 2 && i <= 4);
        if (i > 0 && i < 5) {
            EXPECT_EQ(all[i].exitCode, EX_SOFTWARE);
        }
    }
    EXPECT_EQ(all[5].exitCode, EX_OK);
    EXPECT_TRUE(all[5].result.is_null());
}

TEST_F(WorkerProcesses, StopStartingAfterAWriteFailure)
{
    const auto work = [](std::size_t i) -> Json {
        if (i == 2) throw tarn::OutputFailure(EX_IOERR, "file2: no room");
        return i;
    };
    const std::vector<WorkerOutcome> all = outcomes(6, 1, work);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_FALSE(all[1].endsRun);
    EXPECT_TRUE(all[2].endsRun);
    EXPECT_EQ(all[2].error, "file2: no room");
    EXPECT_EQ(all[2].exitCode, EX_IOERR);
}

TEST_F(WorkerProcesses, NeverExceedTheNumberOfJobs)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const auto work = [&ends](std::size_t) -> Json {
        EXPECT_EQ(write(ends[1], "+", 1), 1);
        usleep(20000);
        EXPECT_EQ(write(ends[1], "-", 1), 1);
        return nullptr;
    };
    outcomes(12, 3, work);
    std::string events(24, ' ');
    ASSERT_EQ(read(ends[0], events.data(), events.size()), 24);
    int working = 0;
    int most = 0;
    for (const char event : events) {
        working += event == '+' ? 1 : -1;
        most = std::max(most, working);
    }
    EXPECT_LE(most, 3);
    EXPECT_GE(most, 2) << "no processes ran at the same time: " << events;
    for (const int end : ends) close(end);
}

TEST_F(WorkerProcesses, EndWhenAnOutcomeCannotBeReceived)
{
    const std::vector<std::string> names{"a", "b", "c"};
    const auto work = [](std::size_t i) -> Json {
        if (i > 0) sleep(100);
        return nullptr;
    };
    const auto refuse = [](std::size_t, const WorkerOutcome&) { throw std::runtime_error("full"); };
    EXPECT_THROW(tarn::runInProcesses(names, 3, work, refuse), std::runtime_error);
}

TEST_F(WorkerProcesses, AreWaitedForWhenSigchldIsIgnored)
{
    std::signal(SIGCHLD, SIG_IGN);
    const std::vector<WorkerOutcome> all = outcomes(3, 2, [](std::size_t i) -> Json {
        if (i == 1) std::abort();
        return i;
    });
    ASSERT_EQ(all.size(), 3u);
    EXPECT_NE(all[1].error.find("signal 6"), std::string::npos);
    EXPECT_EQ(all[2].result, 2);
    std::signal(SIGCHLD, SIG_DFL);
}

} // namespace tarn_cli
