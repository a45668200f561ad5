// tarn film --output-dir: many films into one folder.
// SPDX-License-Identifier: MIT
#include "film/film_batch.h"

#include "cli/audio_source.h"
#include "cli/batch_names.h"
#include "cli/failure.h"
#include "cli/json.h"
#include "cli/progress.h"
#include "cli/temporary_file.h"
#include "cli/worker_processes.h"
#include "film/upmix_film.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// The films with their outputs. Throws Failure (EX_USAGE) for names that cannot be films of a batch.
std::vector<FilmOptions> filmsOf(const FilmBatchOptions& batch, const FilmOptions& each)
{
    std::vector<FoundInput> inputs;
    for (const std::string& name : batch.inputs) {
        std::error_code missing;
        if (fs::is_directory(name, missing)) throw Failure(EX_USAGE, name + ": is a folder; name films");
        inputs.push_back({.path = name, .folder = {}});
    }
    const std::vector<std::string> outputs =
        nameOutputs(inputs, batch.directory, "-" + each.layout + "." + batch.format);
    refuseInputsAsOutputs(inputs, outputs);

    std::vector<FilmOptions> films;
    std::set<std::string> taken;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (!taken.insert(outputs[i]).second)
            throw Failure(EX_USAGE, inputs[i].path + ": another film would have the same output, " + outputs[i] +
                                        "; upmix it into another --output-dir");
        FilmOptions& film = films.emplace_back(each);
        film.input = inputs[i].path;
        film.output = outputs[i];
        film.inBatch = true;
    }
    return films;
}

Json upmixOrSkip(const FilmOptions& film, bool skipExisting)
{
    std::error_code ignored;
    if (skipExisting && fs::is_regular_file(film.output, ignored))
        return {{"input", film.input}, {"output", film.output}, {"skipped", true}};
    return upmixFilm(film);
}

} // namespace

int runFilmBatch(const FilmBatchOptions& batch, const FilmOptions& each)
{
    const std::vector<FilmOptions> films = filmsOf(batch, each);
    std::error_code error;
    fs::create_directories(batch.directory, error);
    if (error)
        throw Failure(EX_CANTCREAT, batch.directory + ": the directory cannot be created: " + error.message() +
                                        "; choose another --output-dir");
    std::vector<std::string> names;
    std::transform(films.begin(), films.end(), std::back_inserter(names),
                   [](const FilmOptions& film) { return film.input; });

    std::vector<WorkerOutcome> outcomes;
    const auto work = [&](std::size_t i) { return upmixOrSkip(films[i], batch.skipExisting); };
    const auto done = [&](std::size_t /*i*/, WorkerOutcome&& outcome) {
        if (outcome.crashed) removeStaleTemporaries(batch.directory);
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        outcomes.push_back(std::move(outcome));
    };
    runInProcesses(names, batch.jobs, work, done);

    const auto isFailed = [](const WorkerOutcome& outcome) { return outcome.exitCode != EX_OK; };
    const auto failed = std::count_if(outcomes.begin(), outcomes.end(), isFailed);
    if (!each.quiet)
        printNote(std::to_string(outcomes.size()) + " of " + std::to_string(films.size()) + " films done, " +
                  std::to_string(failed) + " failed");
    if (each.json) {
        Json report = Json::array();
        for (std::size_t i = 0; i < outcomes.size(); ++i)
            report.push_back(
                isFailed(outcomes[i])
                    ? Json{{"input", films[i].input}, {"error", outcomes[i].error}, {"exit_code", outcomes[i].exitCode}}
                    : outcomes[i].result);
        printJson(report, stdout);
    }
    const auto first = std::find_if(outcomes.begin(), outcomes.end(), isFailed);
    if (first != outcomes.end()) return first->exitCode;
    const bool isIncomplete = std::any_of(outcomes.begin(), outcomes.end(), [](const WorkerOutcome& outcome) {
        return outcome.result.value("exit_code", EX_OK) == kExitIncomplete;
    });
    return isIncomplete ? kExitIncomplete : EX_OK;
}

} // namespace tarn
