// Upmixes the stereo track of a film.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"
#include "film/film_options.h"

namespace tarn
{

/// Writes the film with an upmixed track. Prints notes. Returns the report of --json.
///
/// Throws Failure or Interrupted; then no output file is left.
Json upmixFilm(const FilmOptions& options);

} // namespace tarn
