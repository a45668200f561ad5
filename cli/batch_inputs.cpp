// Finds the inputs of a batch and names their outputs.
// SPDX-License-Identifier: MIT
#include "cli/batch_inputs.h"

#include "cli/checksum.h"
#include "cli/failure.h"
#include "cli/parse_number.h"
#include "cli/progress.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// Refuses names that cannot be inputs of the batch.
void checkNames(const BatchNames& names)
{
    const std::string what = names.kind == MediaKind::Films ? "films" : "audio files";
    std::error_code missing;
    for (const std::string& name : names.inputs) {
        if (name.empty()) throw Failure(EX_USAGE, "an empty file name; name files");
        if (name == "-") throw Failure(EX_USAGE, "-: a stream has no name for an output in --output-dir; name files");
        if (!fs::is_directory(name, missing)) continue;
        if (!names.recursive)
            throw Failure(EX_USAGE, name + ": is a folder; add --recursive to upmix the " + what + " in it");
        if (fs::equivalent(name, names.directory, missing))
            throw Failure(EX_USAGE, name + ": is the --output-dir itself, so outputs would be inputs of the next run; "
                                           "choose another --output-dir, for example a subfolder of it");
    }
}

/// Refuses files whose output is that of an earlier file.
void refuseSharedOutputs(std::vector<BatchInput>& files)
{
    std::map<std::string, const std::string*> inputOf;
    for (BatchInput& file : files) {
        const auto [first, isNew] = inputOf.emplace(file.output, &file.input);
        if (isNew) continue;
        file.refusal = sharedOutputRefusal(file.input, *first->second, file.output);
    }
}

/// Throws Failure (EX_USAGE) if an output is also an input. Lists all of them on standard error first.
void refuseInputsAsOutputs(const std::vector<BatchInput>& files)
{
    std::set<std::pair<dev_t, ino_t>> identities;
    struct stat status = {};
    for (const BatchInput& file : files)
        if (stat(file.input.c_str(), &status) == 0) identities.emplace(status.st_dev, status.st_ino);

    constexpr std::size_t kMaxLines = 20;
    std::size_t problems = 0;
    for (const BatchInput& file : files) {
        if (stat(file.output.c_str(), &status) != 0 || !identities.contains({status.st_dev, status.st_ino})) continue;
        if (++problems <= kMaxLines)
            printNote(file.output + ": would be the output of " + file.input + " and is an input itself");
    }
    if (problems > kMaxLines) printNote("and " + std::to_string(problems - kMaxLines) + " more");
    if (problems > 0)
        throw Failure(EX_USAGE, "outputs would replace inputs, so nothing was written; choose another --output-dir");
}

/// Keeps the files of a part.
void keepPart(std::vector<BatchInput>& files, BatchPart part, const fs::path& directory)
{
    const auto isOther = [&](const BatchInput& file) {
        const std::string name = fs::path(file.output).lexically_relative(directory).string();
        const std::uint32_t checksum = checksumOf(name);
        return (checksum ^ (checksum >> 16)) % part.count != part.number - 1;
    };
    if (part.count > 1) std::erase_if(files, isOther);
}

/// The name of an output: DIRECTORY/song.flac-5.1.wav for song.flac and the ending "-5.1.wav", below the folder in
/// which the input was found. It depends neither on other inputs nor on other files.
std::string outputOf(const FoundInput& input, const BatchNames& names)
{
    const std::string name = fs::path(input.path).filename().string();
    return (fs::path(names.directory) / input.folder / (name + names.ending)).string();
}

} // namespace

BatchPart parsePart(const std::string& text)
{
    const std::size_t slash = text.find('/');
    const std::string_view all = text;
    if (slash != std::string::npos) {
        BatchPart part;
        if (parseNumber(all.substr(0, slash), part.number) && parseNumber(all.substr(slash + 1), part.count) &&
            part.number >= 1 && part.number <= part.count)
            return part;
    }
    throw Failure(EX_USAGE, "--part " + text +
                                ": is not NUMBER/COUNT, with a number from 1 to the count; for example "
                                "--part 3/100");
}

std::string sharedOutputRefusal(const std::string& input, const std::string& other, const std::string& output)
{
    return input + ": would have the same output as " + other + ", " + output +
           "; upmix it into another --output-dir, or name a folder that contains both files, with --recursive";
}

BatchInputs findBatchInputs(const BatchNames& names)
{
    checkNames(names);
    const FoundInputs found = findInputs(names.inputs, names.directory, names.kind);
    BatchInputs all{.unreadable = found.unreadable, .notes = found.notes()};
    for (const FoundInput& input : found.files) all.files.push_back({input.path, outputOf(input, names)});
    refuseSharedOutputs(all.files);
    // The next check asks the file system about every file, which would be slow for all files of many parts.
    keepPart(all.files, names.part, names.directory);
    refuseInputsAsOutputs(all.files);
    return all;
}

} // namespace tarn
