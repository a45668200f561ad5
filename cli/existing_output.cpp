#include "cli/existing_output.h"

#include "cli/failure.h"
#include "cli/layout.h"

#include <string>

#include <sys/stat.h>

namespace tarn
{

namespace
{

/// What keeps a file from being the complete output; empty if nothing does.
std::string flawOf(const std::string& path, const Layout& layout, const ExpectedOutput& expected)
{
    try {
        FileSource file(path, FileSource::Demand::Anything);
        const FileFacts facts = file.facts();
        if (facts.channels != layout.slots)
            return "it has " + std::to_string(facts.channels) + " channels instead of " + std::to_string(layout.slots);
        if (facts.sampleRate != expected.sampleRate)
            return "it runs at " + std::to_string(facts.sampleRate) + " Hz instead of " +
                   std::to_string(expected.sampleRate) + " Hz";
        if (!facts.frames) return "it does not say how long it is";
        if (expected.frames && facts.frames != expected.frames)
            return "it has " + std::to_string(*facts.frames) + " frames instead of " + std::to_string(*expected.frames);
        return file.hasLastFrame() ? "" : "its end is missing";
    } catch (const Failure&) {
        return "it is cut short, damaged or no audio file";
    }
}

} // namespace

ExpectedOutput expectedOutput(const UpmixOptions& /*options*/, const FileSource& input)
{
    const FileFacts facts = input.facts();
    return {.sampleRate = facts.sampleRate, .frames = facts.frames};
}

bool hasCompleteOutput(const UpmixOptions& options)
{
    if (options.input == "-" || options.output == "-")
        throw Failure(EX_USAGE, "--skip-existing: compares OUTPUT with INPUT, which a stream does not allow; name "
                                "files, or leave it out");
    struct stat status = {};
    if (stat(options.output.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    const FileSource input(options.input);
    if (input.identity() == FileIdentity{.device = status.st_dev, .inode = status.st_ino}) return false;

    const std::string flaw = flawOf(options.output, layoutNamed(options.layout), expectedOutput(options, input));
    if (flaw.empty()) return true;
    if (options.force) return false;
    throw Failure(EX_USAGE, options.output + ": exists and is not a complete upmix of " + options.input + ": " + flaw +
                                "; add --force to replace it, or choose another name");
}

} // namespace tarn
