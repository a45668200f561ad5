// Stores an upmix in an unnamed temporary file.
// SPDX-License-Identifier: MIT
#include "cli/row_store.h"

#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/temporary_file.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kReplayFrames = 4096;

} // namespace

RowStore::RowStore(std::filesystem::path folder, std::size_t slots)
    : place(folder.empty() ? "." : std::move(folder)),
      frameBytes(slots * sizeof(std::int32_t)),
      file(createUnnamed(place))
{
    if (file.number() < 0) fail(EX_CANTCREAT, "create a temporary file there", errno, "choose another place");
}

void RowStore::write(const std::int32_t* samples, std::size_t frames)
{
    if (const int error = writeAll(file.number(), samples, frames * frameBytes)) failToStore(error);
    stored += frames;
}

void RowStore::replay(AudioSink& sink, Progress& progress) const
{
    std::vector<std::int32_t> samples(kReplayFrames * frameBytes / sizeof(std::int32_t));
    for (std::uint64_t frame = 0; frame < stored;) {
        throwIfInterrupted();
        const auto frames = static_cast<std::size_t>(std::min<std::uint64_t>(kReplayFrames, stored - frame));
        for (std::size_t done = 0; done < frames * frameBytes;) {
            const ssize_t got = pread(file.number(), reinterpret_cast<char*>(samples.data()) + done,
                                      frames * frameBytes - done, static_cast<off_t>(frame * frameBytes + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) failToStore(got < 0 ? errno : EIO);
            done += static_cast<std::size_t>(got);
        }
        sink.write(samples.data(), frames);
        frame += frames;
        progress.advance(frames);
    }
}

void RowStore::failToStore(int error) const
{
    fail(EX_IOERR, "store the upmix there to measure its loudness", error, "free some space, choose another place");
}

void RowStore::fail(int exitCode, const std::string& work, int error, const std::string& advice) const
{
    throw OutputFailure(exitCode, place.string() + ": cannot " + work + ": " + systemError(error) + "; " +
                                      adviceFor(error, advice) + ", or leave out --loudness-match");
}

} // namespace tarn
