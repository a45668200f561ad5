// Examines audio files and prints what is known about them.
// SPDX-License-Identifier: MIT
#include "cli/info_command.h"

#include "cli/command_name.h"
#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/info_report.h"
#include "cli/input_search.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/progress.h"
#include "cli/read_ahead.h"
#include "cli/stereo_analysis.h"
#include "cli/text.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

Finding examine(const std::string& input, bool quiet, bool showProgress)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(input, ignored))
        throw Failure(EX_NOINPUT,
                      input + ": is a folder; type: " + commandName() + " info --recursive " + shellQuoted(input));
    FileSource source(input, FileSource::Accept::AnyAudio);
    Finding finding{.facts = source.facts()};
    if (finding.facts.channels != 1 && finding.facts.channels != 2) return finding;

    if (!quiet)
        for (const std::string& note : source.readingNotes()) printNote(input + ": " + note);
    if (finding.facts.channels == 2) finding.analysis.emplace(finding.facts.sampleRate);
    std::uint64_t read = 0; // frames; mono is read only to find damage
    Progress progress("examining", source.expectedFrames(), finding.facts.sampleRate, showProgress);
    ReadAhead<double> reading([&source](double* to, std::size_t frames) { return source.readFullScale(to, frames); },
                              true);
    for (std::span<double> stereo = reading.next(); !stereo.empty(); stereo = reading.next()) {
        throwIfInterrupted();
        const std::size_t frames = stereo.size() / 2;
        if (finding.analysis) finding.analysis->push(stereo.data(), frames);
        read += frames;
        progress.advance(frames);
    }
    finding.loss = source.loss();
    if (finding.loss) printNote(input + ": " + finding.loss->message + "; " + finding.loss->advice);
    finding.facts.frames = read;
    return finding;
}

/// Examines inputs and prints the results.
class Examination
{
public:
    Examination(const InfoOptions& infoOptions, const FoundInputs& found)
        : options(infoOptions), unreadable(found.unreadable)
    {
        std::transform(found.files.begin(), found.files.end(), std::back_inserter(inputs),
                       [](const FoundInput& input) { return input.path; });
        width = nameWidth(inputs);
        files.resize(inputs.size());
    }

    /// Examines all inputs. Throws Interrupted after the running ones have stopped.
    void run()
    {
        runInProcesses(
            inputs, options.jobs, [this](std::size_t i) { return resultOf(i); },
            [this](std::size_t i, WorkerOutcome&& outcome) { report(i, std::move(outcome)); });
    }

    /// Notes how many inputs an interrupted run has examined, if there are several.
    void printInterruption() const
    {
        if (inputs.size() == 1) return;
        printNote("interrupted: " + std::to_string(reported) + " of " + std::to_string(inputs.size()) +
                  " files examined");
    }

    void printDocument() const
    {
        Json all = Json::array();
        std::size_t notTried = 0;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            if (files[i].is_null()) ++notTried;
            all.push_back(files[i].is_null() ? Json{{"input", inputs[i]}, {"not_tried", true}} : files[i]);
        }
        Json left = Json::array();
        for (const std::string& file : unreadable) left.push_back({{"input", file}});
        printJson({{"files", all}, {"not_tried", notTried}, {"unreadable", left}}, stdout);
    }

    int exitCode() const noexcept { return failure != EX_OK ? failure : incomplete ? kExitIncomplete : EX_OK; }

private:
    /// Examines an input. Runs in a process of its own.
    Json resultOf(std::size_t i) const
    {
        const std::string& input = inputs[i];
        const Finding finding = examine(input, options.quiet, !options.quiet && inputs.size() == 1);
        Json shown = options.json      ? jsonOf(input, finding)
                     : options.verbose ? Json(tableOf(input, finding))
                                       : Json(lineOf(input, width, finding));
        return Json{{"shown", std::move(shown)}, {"incomplete", finding.isIncomplete()}};
    }

    void report(std::size_t i, WorkerOutcome&& outcome)
    {
        ++reported;
        if (outcome.exitCode != EX_OK) {
            printNote(outcome.error);
            if (failure == EX_OK) failure = outcome.exitCode;
            files[i] = {{"input", inputs[i]}, {"error", outcome.error}, {"exit_code", outcome.exitCode}};
            return;
        }
        incomplete = incomplete || outcome.result.at("incomplete").get<bool>();
        Json& shown = outcome.result.at("shown");
        if (options.json) {
            files[i] = std::move(shown);
        } else {
            std::fputs(shown.get_ref<const std::string&>().c_str(), stdout);
            std::fflush(stdout);
        }
    }

    const InfoOptions& options;
    const std::vector<std::string>& unreadable;
    std::vector<std::string> inputs;
    std::size_t width = 0; ///< of the column for names
    std::size_t reported = 0;
    std::vector<Json> files; ///< results by input; null if it was not examined
    int failure = EX_OK;     ///< of the first input that failed
    bool incomplete = false;
};

} // namespace

int runInfo(const InfoOptions& options)
{
    const FoundInputs found = inputsOf(options.inputs, options.recursive);
    if (!options.quiet)
        for (const std::string& note : found.notes()) printNote(note);
    Examination examination(options, found);
    try {
        examination.run();
    } catch (const Interrupted&) {
        examination.printInterruption();
        if (options.json) examination.printDocument();
        std::fflush(stdout);
        throw;
    }
    if (options.json) examination.printDocument();
    return examination.exitCode();
}

} // namespace tarn
