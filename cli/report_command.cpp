// Measures every input in a process of its own and writes the page.
// SPDX-License-Identifier: MIT
#include "cli/report_command.h"

#include "cli/audio_source.h"
#include "cli/command_help.h"
#include "cli/descriptor.h"
#include "cli/extension.h"
#include "cli/failure.h"
#include "cli/help_texts.h"
#include "cli/input_search.h"
#include "cli/interrupt.h"
#include "cli/load_drawing.h"
#include "cli/option_checks.h"
#include "cli/output_file.h"
#include "cli/progress.h"
#include "cli/report_entry.h"
#include "cli/report_page.h"
#include "cli/room_options.h"
#include "cli/shared_options.h"
#include "cli/text.h"
#include "cli/upmix_options.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

bool isPage(const std::string& name)
{
    const std::string extension = extensionOf(name);
    return extension == ".html" || extension == ".htm";
}

/// Refuses a missing --output too: a page among the inputs can be the one that it should name.
void checkOutput(const ReportOptions& options)
{
    if (options.output.empty()) {
        const std::string& last = options.inputs.back();
        throw Failure(EX_USAGE, "--output is required; write -o " + (isPage(last) ? shellQuoted(last) : "report.html"));
    }
    if (!isPage(options.output))
        throw Failure(EX_USAGE, "--output: " + options.output + " is not a page; end the name in .html");
}

void refuseFolders(const ReportOptions& options)
{
    std::error_code ignored;
    for (const std::string& input : options.inputs)
        if (std::filesystem::is_directory(input, ignored))
            throw Failure(EX_NOINPUT, input + ": is a folder; add --recursive to include the audio files below it");
}

/// The files of the report.
std::vector<std::string> filesOf(const ReportOptions& options)
{
    if (std::any_of(options.inputs.begin(), options.inputs.end(), isStream))
        throw Failure(EX_USAGE, "-: a report reads files only; write the stream into a file first");
    if (!options.recursive) refuseFolders(options);
    const FoundInputs found = inputsOf(options.inputs, options.recursive);
    if (!options.quiet)
        for (const std::string& note : found.notes()) printNote(note);
    std::vector<std::string> inputs;
    std::transform(found.files.begin(), found.files.end(), std::back_inserter(inputs),
                   [](const FoundInput& input) { return input.path; });
    return inputs;
}

/// Refuses a page in the place of an input, also under another name of the same file.
void keepInputs(const std::vector<std::string>& inputs, const std::string& output)
{
    for (const std::string& input : inputs) {
        std::error_code ignored;
        if (std::filesystem::equivalent(input, output, ignored))
            throw Failure(EX_USAGE, output + ": is the input file " + input + "; choose another name for the page");
    }
}

/// The preset and the other options of the sound that were given: "the preset film, --centre 6, --no-limiter".
std::string settingsOf(const RoomOptions& room)
{
    std::string text = "the preset " + room.preset.value_or(std::string(zrk_tarn::kPresets[0].name));
    const auto addNumber = [&text](const char* option, const std::optional<double>& value) {
        if (value) text += ", " + (option + formatted(" %g", *value));
    };
    const auto addWord = [&text](const char* option, const std::optional<std::string>& value) {
        if (value) text += ", " + (option + (" " + *value));
    };
    addNumber("--centre", room.centreDb);
    addNumber("--width", room.width);
    addWord("--surrounds", room.surrounds);
    addWord("--bass", room.bass);
    addNumber("--gain", room.gainDb);
    addWord("--lfe", room.lfe);
    if (room.limiter) text += ", --limiter";
    if (room.noLimiter) text += ", --no-limiter";
    return text;
}

/// Shows which of several inputs is upmixed.
void showInput(const std::vector<std::string>& inputs, std::size_t i)
{
    constexpr std::size_t kMaxCharacters = 50;
    showStatus("upmixing " + std::to_string(i + 1) + " of " + std::to_string(inputs.size()) + ": " +
               lastCharacters(printable(inputs[i]), kMaxCharacters));
}

/// Adds the outcomes of all inputs to a page. Returns the exit code.
int measureAll(const std::vector<std::string>& inputs, const ReportOptions& options, ReportPage& page)
{
    const ReportStyle style{.layout = options.layout, .theme = options.theme, .room = options.room};
    const bool isSingle = inputs.size() == 1;
    int failure = EX_OK;
    bool isIncomplete = false;
    const auto measure = [&](std::size_t i) {
        if (!isSingle && !options.quiet) showInput(inputs, i);
        return measureEntry(inputs[i], style, isSingle, options.quiet);
    };
    const auto done = [&](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.exitCode != EX_OK) {
            printNote(outcome.error);
            page.failures.push_back(outcome.error);
            if (failure == EX_OK) failure = outcome.exitCode;
            return;
        }
        const Json& upmix = outcome.result.at("upmix");
        if (upmix.contains("loss")) printNote(inputs[i] + ": " + upmix.at("loss").at("message").get<std::string>());
        isIncomplete = isIncomplete || (upmix.contains("exit_code") && upmix.at("exit_code") == kExitIncomplete);
        page.entries.push_back(std::move(outcome.result));
    };
    try {
        runInProcesses(inputs, options.jobs, measure, done);
    } catch (const Interrupted&) {
        // The note erases the status line too.
        if (!isSingle)
            printNote("interrupted: " + std::to_string(page.entries.size() + page.failures.size()) + " of " +
                      std::to_string(inputs.size()) + " files upmixed; " + options.output + " is not written");
        throw;
    }
    return failure != EX_OK ? failure : isIncomplete ? kExitIncomplete : EX_OK;
}

} // namespace

CLI::App* addReport(CLI::App& app, ReportOptions& options)
{
    CLI::App* const report = app.add_subcommand("report", "Show upmixes of recordings on one HTML page");
    report->add_option("INPUT", options.inputs, "Audio files, and folders with --recursive")->type_name("")->required();
    report->add_option("-o,--output", options.output, "Page to write (.html)")->type_name("FILE");
    report->add_flag("-r,--recursive", options.recursive, "Include every audio file below an INPUT that is a\nfolder");
    report->add_option("-j,--jobs", options.jobs, "Parallel jobs, 1 (default) to 64")
        ->type_name("N")
        ->check(numberFrom(1, 64, "--jobs 4"));
    addLayoutOption(*report, options.layout, "Outputs to show");
    addRoomOptions(*report, options.room);
    addThemeOption(*report, options.theme);
    report->add_option("--title", options.title, "Title of the page")->type_name("TEXT");
    report->add_flag("--force", options.force, "Replace the page if it exists");
    report->add_flag("--quiet", options.quiet, "Print only errors and warnings about lost audio");
    setHelp(*report, kReportHelp, "man tarn-report describes the page.");
    return report;
}

int runReport(const ReportOptions& options)
{
    checkOutput(options);
    const Layout& layout = layoutNamed(options.layout);
    checkRoomOptions(options.room, layout, false);
    const std::vector<std::string> inputs = filesOf(options);
    keepInputs(inputs, options.output);
    if (!options.quiet && keepsStereo(layout, roomSettingsOf(options.room, layout)))
        printNote("--layout " + options.layout + ": " + kUnchangedStereo);
    ReportPage page{.title = options.title ? printable(*options.title) : "Upmix report",
                    .theme = options.theme,
                    .layout = std::string(layout.name) + " (" + std::string(layout.slotNames) + ")",
                    .settings = settingsOf(options.room)};
    loadDrawing(); // once for all processes
    OutputFile file(options.output, options.force, std::nullopt);
    const int exitCode = measureAll(inputs, options, page);
    if (page.entries.empty())
        throw Failure(exitCode, options.output + ": not written, because no input could be upmixed");
    writePage(page, [&file](const std::string& part) {
        if (const int error = writeAll(file.descriptor(), part.data(), part.size())) file.failToWrite(error, "");
    });
    file.commit();
    if (!options.quiet)
        printNote(options.output + ": " + std::to_string(page.entries.size()) +
                  (page.entries.size() == 1 ? " recording" : " recordings") +
                  (page.failures.empty() ? "" : ", " + std::to_string(page.failures.size()) + " not upmixed"));
    return exitCode;
}

} // namespace tarn
