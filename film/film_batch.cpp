// tarn film --output-dir: many films into one folder.
// SPDX-License-Identifier: MIT
#include "film/film_batch.h"

#include "cli/layout.h"
#include "cli/option_text.h"
#include "film/upmix_film.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace tarn
{

namespace
{

/// All options that change the output of a film, for the ledger.
std::string filmOptionText(const FilmOptions& options)
{
    return "film layout=" + options.layout + " codec=" + (options.codec.empty() ? "auto" : options.codec) +
           " bitrate=" + textOrAuto(options.bitRate) + " stream=" + textOrAuto(options.stream) +
           " language=" + options.language + " dialnorm=" + options.dialnorm + " mode=" + options.mode + " " +
           textOf(roomSettingsOf(options.room, layoutNamed(options.layout))) +
           (options.loudnessMatch ? " loudness-match" : "") + (options.replace ? " replace" : "");
}

/// Upmixes a film, unless its output exists and is to be kept: an output has its name only when it is complete.
Json upmixOrSkip(const FilmOptions& options)
{
    std::error_code ignored;
    if (options.skipExisting && !options.force && std::filesystem::is_regular_file(options.output, ignored))
        return {{"input", options.input}, {"output", options.output}, {"skipped", true}};
    return upmixFilm(options);
}

} // namespace

int runFilmBatch(const BatchOptions& options, const FilmOptions& each)
{
    Batch batch = findBatch(options, MediaKind::Films, each.layout, each.quiet);
    const auto report = [&](const Batch& all) {
        if (each.json) printJson(jsonOf(all)["files"], stdout);
        std::fflush(stdout);
    };
    const auto upmixOne = [&](const BatchFile& film, const Recorder& recorder) {
        return upmixOrSkip(optionsOf(film, each, recorder));
    };
    return runFiles(batch, options,
                    {.force = each.force,
                     .skipExisting = each.skipExisting,
                     .quiet = each.quiet,
                     .optionText = [&] { return filmOptionText(each); },
                     .report = report,
                     .upmix = upmixOne});
}

} // namespace tarn
