// Temporary files: locking and removal of stale ones.
// SPDX-License-Identifier: MIT
#include "cli/temporary_file.h"

#include "tests/cli/command.h"

#include <atomic>
#include <thread>

#include <unistd.h>

namespace tarn_cli
{

class TemporaryFiles : public CommandTest
{};

TEST_F(TemporaryFiles, AreLockedUntilTheLockIsClosed)
{
    tarn::TemporaryFile temporary = tarn::createNamedTemporary(directory, "out.wav");
    tarn::removeStaleTemporaries(directory);
    EXPECT_EQ(files().size(), 1u);
    // The state of a complete file just before it is renamed.
    EXPECT_TRUE(temporary.file.close());
    tarn::removeStaleTemporaries(directory);
    EXPECT_EQ(files().size(), 1u);
    EXPECT_TRUE(temporary.lock.close());
    tarn::removeStaleTemporaries(directory);
    EXPECT_EQ(files().size(), 0u);
}

TEST_F(TemporaryFiles, SurviveConcurrentRemovalOfStaleOnes)
{
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done) tarn::removeStaleTemporaries(directory);
    });
    for (int i = 0; i < 20000; ++i) {
        const tarn::TemporaryFile temporary = tarn::createNamedTemporary(directory, "out.wav");
        EXPECT_EQ(unlink(temporary.path.c_str()), 0) << i;
    }
    done = true;
    other.join();
}

TEST_F(TemporaryFiles, StaleOnesAreSearchedOncePerDirectory)
{
    // Runs in another process because the searched directories are remembered per process.
    const auto look = [this] {
        writeBytes(at(".a.tarn-temporary-1-abcdef"), "");
        tarn::removeStaleTemporariesOnce(directory);
        if (!files().empty()) _exit(1);
        writeBytes(at(".b.tarn-temporary-1-abcdef"), "");
        tarn::removeStaleTemporariesOnce(directory / ".");
        _exit(files().size() == 1 ? 0 : 2);
    };
    EXPECT_EXIT(look(), testing::ExitedWithCode(0), "");
}

} // namespace tarn_cli
