// tarn film --output-dir: many films into one folder.
// SPDX-License-Identifier: MIT
#include "film/film_batch.h"

#include "cli/audio_source.h"
#include "cli/batch_inputs.h"
#include "cli/created_directories.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/option_text.h"
#include "cli/progress.h"
#include "cli/resume.h"
#include "cli/temporary_file.h"
#include "cli/worker_processes.h"
#include "film/upmix_film.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>

namespace tarn
{

namespace
{

/// A film of the batch and its outcome.
struct Film
{
    FilmOptions options;
    std::string refusal{};                  ///< why it cannot be upmixed in this batch; empty if it can
    std::optional<WorkerOutcome> outcome{}; ///< none if it was not tried or not finished
};

std::vector<Film> filmsOf(const FilmBatchOptions& batch, const FilmOptions& each)
{
    const BatchInputs found = findBatchInputs({.inputs = batch.inputs,
                                               .directory = batch.directory,
                                               .recursive = batch.recursive,
                                               .kind = MediaKind::Films,
                                               .ending = "-" + each.layout + "." + batch.format,
                                               .part = parsePart(batch.part)});
    std::vector<Film> films;
    for (const BatchInput& file : found.files) {
        FilmOptions& film = films.emplace_back(Film{.options = each, .refusal = file.refusal}).options;
        film.input = file.input;
        film.output = file.output;
        film.inBatch = true;
    }
    if (!each.quiet)
        for (const std::string& note : found.notes) printNote(note);
    return films;
}

template <typename Value>
std::string textOrAuto(const std::optional<Value>& value)
{
    return value ? std::to_string(*value) : "auto";
}

/// All options that change the output of a film, for the ledger.
std::string optionText(const FilmOptions& options)
{
    return "film layout=" + options.layout + " codec=" + (options.codec.empty() ? "auto" : options.codec) +
           " bitrate=" + textOrAuto(options.bitRate) + " stream=" + textOrAuto(options.stream) +
           " language=" + options.language + " dialnorm=" + options.dialnorm + " mode=" + options.mode + " " +
           textOf(roomSettingsOf(options.room, layoutNamed(options.layout))) +
           (options.loudnessMatch ? " loudness-match" : "") + (options.replace ? " replace" : "");
}

ResumeJob resumeJob(const FilmOptions& options, bool skipExisting)
{
    return {.input = options.input,
            .output = options.output,
            .options = optionText(options),
            .force = options.force,
            .skipExisting = skipExisting};
}

/// Sets the outcomes of films that are done.
void skipDone(std::vector<Film>& films, const Resume& resume, bool skipExisting)
{
    for (Film& film : films) {
        if (!film.refusal.empty()) continue;
        ResumeDecision decision = resume.decide(resumeJob(film.options, skipExisting));
        film.refusal = decision.refusal;
        film.options.force = film.options.force || decision.replaces;
        if (decision.report) {
            printKeptLoss(*decision.report);
            film.outcome = WorkerOutcome{.result = std::move(*decision.report)};
        }
    }
}

/// Sets the outcomes of films whose output exists and is not to be replaced.
void skipExisting(std::vector<Film>& films)
{
    std::error_code ignored;
    for (Film& film : films)
        if (!film.outcome && film.refusal.empty() && !film.options.force &&
            std::filesystem::is_regular_file(film.options.output, ignored))
            film.outcome = WorkerOutcome{
                .result = {{"input", film.options.input}, {"output", film.options.output}, {"skipped", true}}};
}

/// Upmixes the films without an outcome. Throws Interrupted after all processes have stopped.
///
/// resume  null without --resume
void upmixAll(std::vector<Film>& films, unsigned jobs, const Resume* resume)
{
    std::vector<Film*> pending;
    std::vector<std::string> names;
    for (Film& film : films) {
        if (film.outcome) continue;
        pending.push_back(&film);
        names.push_back(film.options.input);
    }
    const auto work = [&](std::size_t i) {
        if (!pending[i]->refusal.empty()) throw Failure(EX_USAGE, pending[i]->refusal);
        FilmOptions options = pending[i]->options;
        if (resume != nullptr) options.record = resume->recorder(resumeJob(options, false));
        return upmixFilm(options);
    };
    const auto done = [&](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.crashed) removeStaleTemporaries(std::filesystem::path(pending[i]->options.output).parent_path());
        if (outcome.exitCode != EX_OK) printNote(outcome.error);
        pending[i]->outcome = std::move(outcome);
    };
    runInProcesses(names, jobs, work, done);
}

bool isFailed(const Film& film)
{
    return film.outcome && film.outcome->exitCode != EX_OK;
}

bool isSkipped(const Film& film)
{
    return film.outcome && !isFailed(film) && film.outcome->result.contains("skipped");
}

/// Whether a second or more of the sound is missing, now or when it was upmixed.
bool isIncomplete(const Film& film)
{
    return film.outcome && !isFailed(film) && film.outcome->result.value("exit_code", EX_OK) == kExitIncomplete;
}

void printSummary(const std::vector<Film>& films)
{
    const auto isTried = [](const Film& film) { return film.outcome.has_value(); };
    const auto tried = std::count_if(films.begin(), films.end(), isTried);
    const auto skipped = std::count_if(films.begin(), films.end(), isSkipped);
    const auto failed = std::count_if(films.begin(), films.end(), isFailed);
    printNote(std::to_string(tried) + " of " + std::to_string(films.size()) + " films done" +
              (skipped > 0 ? ", " + std::to_string(skipped) + " of them before" : "") + ", " + std::to_string(failed) +
              " failed");
}

Json jsonOf(const Film& film)
{
    if (!film.outcome) return {{"input", film.options.input}, {"not_tried", true}};
    if (isFailed(film))
        return {{"input", film.options.input}, {"error", film.outcome->error}, {"exit_code", film.outcome->exitCode}};
    return film.outcome->result;
}

void report(const std::vector<Film>& films, const FilmOptions& each)
{
    if (!each.quiet) printSummary(films);
    if (!each.json) return;
    Json reports = Json::array();
    std::transform(films.begin(), films.end(), std::back_inserter(reports),
                   [](const Film& film) { return jsonOf(film); });
    printJson(reports, stdout);
    std::fflush(stdout);
}

} // namespace

int runFilmBatch(const FilmBatchOptions& batch, const FilmOptions& each)
{
    std::vector<Film> films = filmsOf(batch, each);
    std::vector<std::string> outputs;
    std::transform(films.begin(), films.end(), std::back_inserter(outputs),
                   [](const Film& film) { return film.options.output; });
    std::optional<Resume> resume;
    if (batch.resume) resume.emplace(batch.directory, outputs);
    CreatedDirectories created(batch.resume || parsePart(batch.part).count > 1);
    created.prepareFor(outputs);
    if (resume) skipDone(films, *resume, batch.skipExisting);
    if (batch.skipExisting) skipExisting(films);
    try {
        upmixAll(films, batch.jobs, resume ? &*resume : nullptr);
    } catch (const Interrupted&) {
        report(films, each);
        throw;
    }
    report(films, each);
    const auto first = std::find_if(films.begin(), films.end(), isFailed);
    if (first != films.end()) return first->outcome->exitCode;
    const bool isAnyIncomplete = std::any_of(films.begin(), films.end(), isIncomplete);
    return isAnyIncomplete ? kExitIncomplete : EX_OK;
}

} // namespace tarn
