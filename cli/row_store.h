// Stores an upmix in an unnamed temporary file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/descriptor.h"
#include "cli/progress.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace tarn
{

/// Stores the samples of an upmix, which can be read any number of times. The file has no name and disappears with the
/// process.
class RowStore final : public AudioSink
{
public:
    /// folder  of the file
    /// slots   per frame
    /// Throws OutputFailure (EX_CANTCREAT).
    RowStore(std::filesystem::path folder, std::size_t slots);

    /// Throws OutputFailure (EX_IOERR) if the disk is full.
    void write(const std::int32_t* samples, std::size_t frames) override;
    void finish() override {}

    /// Writes all frames to a sink. Throws OutputFailure (EX_IOERR), and Interrupted after a signal.
    void replay(AudioSink& sink, Progress& progress) const;

    /// Number of frames.
    std::uint64_t frames() const noexcept { return stored; }

private:
    [[noreturn]] void failToStore(int error) const;
    [[noreturn]] void fail(int exitCode, const std::string& work, int error, const std::string& advice) const;

    std::filesystem::path place;
    std::size_t frameBytes;
    Descriptor file;
    std::uint64_t stored = 0; ///< frames
};

} // namespace tarn
