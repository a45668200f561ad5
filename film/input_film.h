// A film that is read, and its stereo track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_identity.h"
#include "film/av.h"
#include "film/film_loss.h"
#include "film/film_options.h"
#include "film/joined_time.h"

#include <optional>
#include <string>
#include <vector>

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

    /// Time of the first packet of all; 0 if unknown.
    double startSeconds() const noexcept;

    /// Its length at a rate; none if unknown.
    std::optional<std::uint64_t> expectedFrames(std::uint32_t rateHz) const noexcept;

    /// Leaves out the packets of all tracks but one.
    void readOnly(unsigned track) noexcept;

    /// Reads the next packet. Returns false at the end.
    ///
    /// Damaged parts are skipped as far as the container can be read further; damage() counts them.
    bool read(AVPacket& packet);

    /// Time at which the film ends, if it declares that; in seconds.
    ///
    /// MP4, ASF and Matroska as FFmpeg writes it count the length from zero; AVI and others from the first packet. Some
    /// Matroska files count it from the first packet too. Their film ends later than this if it starts late.
    std::optional<double> declaredEnd() const noexcept;

    /// The latest time at which the film can end, if it declares a length; in seconds.
    std::optional<double> latestEnd() const noexcept;

    /// Damage of the container; call it after the last packet.
    FileDamage damage(unsigned track) const;

    /// Returns the number of the stereo track to upmix: the one that was asked for, or the first one.
    ///
    /// Throws Failure (EX_DATAERR) if there is none, with the tracks that there are; or if the default audio track has
    /// more channels, unless a track was asked for or options.forceTrack is set.
    unsigned chooseTrack(const FilmOptions& options) const;

    /// The audio tracks except one that are not stereo, "track 2 (ac3, 6 channels), track 3 ..."; empty if there are
    /// none.
    std::string otherThanStereo(unsigned except) const;

private:
    void refuseSurround() const;
    std::string describe(unsigned index) const;
    std::string listOfTracks() const;
    void follow(const AVPacket& packet);

    std::string path;
    FileIdentity file{};
    InputContext format;
    bool isLengthFromZero = false; ///< if the header has a length; else FFmpeg computes it from the tracks
    int readErrors = 0;
    JoinedTime joined;
    std::vector<std::optional<double>> ends; ///< of the packets of each stream, in seconds
};

} // namespace tarn
