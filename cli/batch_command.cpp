// Lists the files of a batch and upmixes them.
// SPDX-License-Identifier: MIT
#include "cli/batch_command.h"

#include "cli/batch_names.h"
#include "cli/batch_report.h"
#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/input_search.h"
#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/progress.h"
#include "cli/remap_file.h"
#include "cli/temporary_file.h"
#include "cli/text.h"
#include "cli/upmix_passes.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// Refuses names that cannot be inputs of the batch.
void checkInputs(const BatchOptions& batch)
{
    std::error_code missing;
    for (const std::string& name : batch.inputs) {
        if (name.empty()) throw Failure(EX_USAGE, "an empty file name; name files");
        if (name == "-") throw Failure(EX_USAGE, "-: a stream has no name for an output in --output-dir; name files");
        if (!fs::is_directory(name, missing)) continue;
        if (!batch.recursive)
            throw Failure(EX_USAGE, name + ": is a folder; add --recursive to upmix the audio files in it");
        if (fs::equivalent(name, batch.directory, missing))
            throw Failure(EX_USAGE, name + ": is the --output-dir itself, so outputs would be inputs of the next run; "
                                           "choose another --output-dir, for example a subfolder of it");
    }
}

/// Refuses files whose output is that of an earlier file.
void refuseSharedOutputs(std::vector<BatchFile>& files)
{
    std::map<std::string, const std::string*> inputOf;
    for (BatchFile& file : files) {
        const auto [first, isNew] = inputOf.emplace(file.options.output, &file.options.input);
        if (isNew) continue;
        file.refusal = file.options.input + ": would have the same output as " + *first->second + ", " +
                       file.options.output +
                       "; upmix it into another --output-dir, or name a folder that contains both files, with "
                       "--recursive";
    }
}

/// Lists the files to upmix.
Batch filesOf(const BatchOptions& batch, const UpmixOptions& each)
{
    checkInputs(batch);
    const FoundInputs found = findInputs(batch.inputs, batch.directory);
    const std::vector<std::string> outputs =
        nameOutputs(found.files, batch.directory, "-" + each.layout + "." + batch.format);
    refuseInputsAsOutputs(found.files, outputs);

    Batch all{.unreadable = found.unreadable};
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        UpmixOptions& options = all.files.emplace_back(BatchFile{.options = each}).options;
        options.input = found.files[i].path;
        options.output = outputs[i];
        options.inBatch = true;
        checkOptions(options);
    }
    refuseSharedOutputs(all.files);
    if (!each.quiet)
        for (const std::string& note : found.notes()) printNote(note);
    return all;
}

fs::path directoryOf(const BatchFile& file)
{
    return fs::path(file.options.output).parent_path();
}

/// Directories that this run created. The destructor removes those that are empty.
class CreatedDirectories
{
public:
    CreatedDirectories() = default;
    CreatedDirectories(const CreatedDirectories&) = delete;
    CreatedDirectories& operator=(const CreatedDirectories&) = delete;

    ~CreatedDirectories()
    {
        std::error_code ignored;
        for (const fs::path& directory : directories) fs::remove(directory, ignored); // fails if it is not empty
    }

    /// Creates a directory and those above it.
    void create(const fs::path& directory, std::error_code& error)
    {
        std::vector<fs::path> missing;
        std::error_code ignored;
        for (fs::path path = directory; !path.empty() && !fs::exists(path, ignored); path = path.parent_path())
            missing.push_back(path);
        fs::create_directories(directory, error);
        directories.insert(directories.begin(), missing.begin(), missing.end());
    }

private:
    std::vector<fs::path> directories; ///< a directory precedes the one that contains it
};

/// Creates the directories of the outputs, and removes temporary files of killed runs.
void prepareDirectories(const std::vector<BatchFile>& files, CreatedDirectories& created)
{
    std::set<fs::path> directories;
    std::transform(files.begin(), files.end(), std::inserter(directories, directories.end()), directoryOf);
    for (const fs::path& directory : directories) {
        std::error_code error;
        created.create(directory, error);
        if (error)
            throw Failure(EX_CANTCREAT, directory.string() + ": the directory cannot be created: " + error.message() +
                                            "; choose another --output-dir");
        removeStaleTemporariesOnce(directory);
    }
}

/// Prints the notes about the remap file, which all files share.
void printRemapNotes(const UpmixOptions& each)
{
    if (each.quiet || each.bypass || !layoutNamed(each.layout).remapped) return;
    for (const std::string& note : readRemapFile(each.remapFile).notes) printNote(note);
}

/// Says so if the layout leaves the stereo of all files as it is.
void printStereoNote(const UpmixOptions& each)
{
    const Layout& layout = layoutNamed(each.layout);
    if (!each.quiet && !each.bypass && keepsStereo(layout, roomSettingsOf(each.room, layout)))
        printNote("--layout " + each.layout + ": " + kUnchangedStereo);
}

/// Shows the number and the name of the current file.
///
/// work  what happens to it, with a space at the end; can be empty
void showCurrentFile(const std::vector<BatchFile>& files, std::size_t index, const std::string& work)
{
    constexpr std::size_t kMaxCharacters = 50;
    const std::string name = lastCharacters(printable(files[index].options.input), kMaxCharacters);
    showStatus(work + std::to_string(index + 1) + " of " + std::to_string(files.size()) + ": " + name);
}

std::vector<std::string> inputsOf(const std::vector<BatchFile>& files)
{
    std::vector<std::string> names;
    std::transform(files.begin(), files.end(), std::back_inserter(names),
                   [](const BatchFile& file) { return file.options.input; });
    return names;
}

/// Measures all files and sets their common level. Upmixing reports the files that fail. Throws Interrupted, or Failure
/// (EX_DATAERR) if the gain is too large.
void setAlbumLevel(std::vector<BatchFile>& files, unsigned jobs)
{
    std::vector<AlbumPart> parts;
    const auto work = [&files](std::size_t i) {
        if (!files[i].options.quiet) showCurrentFile(files, i, "measuring ");
        return measureForAlbum(files[i].options).json();
    };
    const auto done = [&parts](std::size_t /*index*/, const WorkerOutcome& outcome) {
        if (outcome.exitCode == EX_OK) parts.push_back(AlbumPart::from(outcome.result));
    };
    runInProcesses(inputsOf(files), jobs, work, done);

    const AlbumLevel level = albumLevelOf(parts);
    checkMatchingGain("--album", level.gainDb);
    for (BatchFile& file : files) file.options.album = level;
}

/// Prints the common level.
void printAlbumLevel(const UpmixOptions& options)
{
    if (options.quiet || !options.album) return;
    if (options.album->input)
        printNote(formatted("--album: a gain of %+.2f dB for all files", options.album->gainDb) +
                  formatted(", whose loudness is %.1f LUFS", *options.album->input));
    if (options.album->peak > 1.0)
        printNote("--album: the highest peak is " + formatted("%.2f dB", decibels(options.album->peak)) +
                  " above full scale: floating-point, lossy and converted files are scaled down by it");
}

/// Upmixes the files with this many processes. Throws Interrupted after all have stopped.
void upmixAll(std::vector<BatchFile>& files, unsigned jobs)
{
    const auto work = [&files](std::size_t i) {
        const UpmixOptions& options = files[i].options;
        if (!files[i].refusal.empty()) throw Failure(EX_USAGE, files[i].refusal);
        if (!options.quiet) showCurrentFile(files, i, "");
        return jsonOf(options, upmix(options));
    };
    const auto done = [&files](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.crashed) removeStaleTemporaries(directoryOf(files[i]));
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        files[i].outcome = std::move(outcome);
    };
    runInProcesses(inputsOf(files), jobs, work, done);
}

} // namespace

int runBatch(const BatchOptions& options, const UpmixOptions& each)
{
    Batch batch = filesOf(options, each);
    printRemapNotes(each);
    printStereoNote(each);
    const bool isMeasured = options.album && hasGainPerFile(each);
    if (options.album && !isMeasured && !each.quiet)
        printNote(
            "--album: has no effect here: with the limiter and without --loudness-match, all files get the same gain "
            "anyway");
    CreatedDirectories created;
    prepareDirectories(batch.files, created);
    try {
        if (isMeasured) setAlbumLevel(batch.files, options.jobs);
        if (isMeasured && !batch.files.empty()) printAlbumLevel(batch.files.front().options);
        upmixAll(batch.files, options.jobs);
    } catch (const Interrupted&) {
        printEarlyEnd(batch, "interrupted");
        if (each.json) printJson(jsonOf(batch), stdout);
        std::fflush(stdout);
        throw;
    }

    if (!each.quiet) printSummary(batch, options.directory);
    if (!batch.isFinished()) printEarlyEnd(batch, "stopped, because no output can be written");
    if (each.json) printJson(jsonOf(batch), stdout);
    return batch.exitCode();
}

} // namespace tarn
