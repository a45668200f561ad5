// A film that is read, and its stereo track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_identity.h"
#include "film/av.h"
#include "film/film_options.h"

#include <optional>
#include <string>

namespace tarn
{

/// An open film.
class InputFilm
{
public:
    /// Opens a film and finds its tracks. Throws Failure: EX_NOINPUT if the file cannot be opened, EX_DATAERR if it is
    /// not a film or an audio file.
    explicit InputFilm(const std::string& path);

    AVFormatContext& context() const noexcept { return *format; }
    AVStream& stream(unsigned index) const noexcept { return *format->streams[index]; }
    const std::string& name() const noexcept { return path; }
    FileIdentity identity() const noexcept { return file; }

    /// Seconds; none if unknown.
    std::optional<double> duration() const noexcept;

    /// Reads the next packet. Returns false at the end.
    ///
    /// Damaged parts are skipped as far as the container can be read further; errors() counts them.
    bool read(AVPacket& packet);

    /// Errors of the container so far.
    int errors() const noexcept { return readErrors; }

    /// Returns the number of the stereo track to upmix: the one that was asked for, or the default one, or the first.
    ///
    /// Throws Failure (EX_DATAERR) if there is none, with the tracks that there are; or if the film has a default track
    /// with more channels, unless options.forceTrack is set.
    unsigned chooseTrack(const FilmOptions& options) const;

private:
    std::string listOfTracks() const;

    std::string path;
    FileIdentity file{};
    InputContext format;
    int readErrors = 0;
};

} // namespace tarn
