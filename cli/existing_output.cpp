// Compares an existing output with the length, rate and channels expected from the input.
// SPDX-License-Identifier: MIT
#include "cli/existing_output.h"

#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/layout.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <sndfile.h>
#include <sys/stat.h>

namespace tarn
{

namespace
{

/// Whether the last frame of a WAV or FLAC file can be read.
bool hasLastFrame(const std::string& path, std::uint64_t frames)
{
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    if (file == nullptr || frames == 0) return false;
    std::vector<double> frame(static_cast<std::size_t>(info.channels));
    return sf_seek(file.get(), static_cast<sf_count_t>(frames) - 1, SEEK_SET) >= 0 &&
           sf_readf_double(file.get(), frame.data(), 1) == 1 && sf_error(file.get()) == SF_ERR_NO_ERROR;
}

/// Counts the frames of an input that can be decoded.
std::uint64_t framesIn(FileSource& input)
{
    std::vector<std::int32_t> stereo(2 * 4096);
    std::uint64_t frames = 0;
    while (const std::size_t count = input.read(stereo.data(), stereo.size() / 2)) {
        throwIfInterrupted();
        frames += count;
    }
    return frames;
}

/// The reason why a file is not the complete output; empty if it is.
std::string flawOf(const std::string& path, const Layout& layout, const ExpectedOutput& expected)
{
    try {
        const FileFacts facts = FileSource(path, FileSource::Accept::AnyAudio).facts();
        if (facts.channels != layout.slots)
            return "it has " + std::to_string(facts.channels) + " channels instead of " + std::to_string(layout.slots);
        if (facts.sampleRate != expected.sampleRate)
            return "it has a rate of " + std::to_string(facts.sampleRate) + " Hz instead of " +
                   std::to_string(expected.sampleRate) + " Hz";
        if (!facts.frames) return "it does not declare its length";
        if (expected.frames && *facts.frames != *expected.frames)
            return "it has " + std::to_string(*facts.frames) + " frames instead of " + std::to_string(*expected.frames);
        return hasLastFrame(path, *facts.frames) ? "" : "its end is missing";
    } catch (const Failure&) {
        return "it is cut short, damaged or not an audio file";
    }
}

} // namespace

ExpectedOutput expectedOutput(const UpmixOptions& options, const FileSource& input)
{
    const FileFacts facts = input.facts();
    ExpectedOutput expected{.sampleRate = options.rate.value_or(engineRateFor(facts.sampleRate)), .frames = {}};
    if (facts.frames) expected.frames = framesAtRate(*facts.frames, facts.sampleRate, expected.sampleRate);
    return expected;
}

ExistingOutput findExistingOutput(const UpmixOptions& options)
{
    std::error_code ignored;
    if (std::filesystem::is_fifo(options.input, ignored) || options.input == "-" || options.output == "-")
        throw Failure(EX_USAGE, "--skip-existing: compares OUTPUT with INPUT, which a stream does not allow; name "
                                "files, or leave it out");
    struct stat status = {};
    if (stat(options.output.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    FileSource input(options.input);
    if (input.identity() == FileIdentity{.device = status.st_dev, .inode = status.st_ino}) return {};

    const Layout& layout = layoutNamed(options.layout);
    ExpectedOutput expected = expectedOutput(options, input);
    std::string flaw = flawOf(options.output, layout, expected);
    std::optional<Loss> loss;
    if (options.strict || !expected.frames || !flaw.empty()) {
        // The declared length can be inexact, and a damaged input has fewer frames.
        expected.frames = framesAtRate(framesIn(input), input.format().sampleRate, expected.sampleRate);
        loss = input.loss();
        flaw = flawOf(options.output, layout, expected);
    }
    if (flaw.empty()) return {.isComplete = true, .loss = loss};
    if (options.force) return {};
    throw Failure(EX_USAGE, options.output + ": exists and is not a complete upmix of " + options.input + ": " + flaw +
                                "; add --force to replace it, or choose another name");
}

} // namespace tarn
