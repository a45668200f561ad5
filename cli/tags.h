// Tags, pictures and FLAC metadata blocks of a recording.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sndfile.h>
#include <tbytevector.h>
#include <tpropertymap.h>

namespace tarn
{

/// A picture of a recording, such as an album cover.
struct Picture
{
    int kind = 0; ///< type number of ID3v2 and FLAC; 3 is a front cover
    TagLib::String mimeType;
    TagLib::String description;
    int width = 0;  ///< pixels; 0 if unknown
    int height = 0; ///< pixels; 0 if unknown
    int depth = 0;  ///< bits per pixel; 0 if unknown
    int colours = 0;
    TagLib::ByteVector data;
};

/// The kind of a picture with a type number: 0, another picture, for numbers that the formats reserve.
inline int pictureKind(unsigned type) noexcept
{
    constexpr unsigned kMaxKind = 20;
    return type <= kMaxKind ? static_cast<int>(type) : 0;
}

/// A FLAC metadata block in binary form: a cue sheet, or the four-character id and the data of an application.
struct FlacBlock
{
    bool isCueSheet = false;
    TagLib::ByteVector contents;

    /// "cue sheet", or "application block abcd".
    std::string name() const
    {
        return isCueSheet ? "cue sheet" : "application block " + std::string(contents.data(), 4);
    }
};

/// The language of a comment or of lyrics.
struct TextLanguage
{
    TagLib::ByteVector frame; ///< name of the ID3v2 frame: COMM or USLT
    TagLib::String text;
    TagLib::ByteVector language; ///< three letters (ISO 639-2)
};

/// Tags of a recording.
struct Tags
{
    TagLib::PropertyMap texts; ///< by the names of Vorbis comments: TITLE, ALBUMARTIST, MUSICBRAINZ_TRACKID, ...
    std::vector<TextLanguage> languages{}; ///< of comments and lyrics, as far as they are known
    std::vector<Picture> pictures;
    std::vector<FlacBlock> flacBlocks; ///< copied to FLAC outputs
    std::vector<std::string> leftOut;  ///< notes about tags that other formats cannot hold
    bool converted = false;            ///< texts were not UTF-8 and were read as Windows-1252
};

/// Reads the tags that stay valid for an upmix of the recording.
///
/// Reads texts from ID3v2, APE and ID3v1 tags, Vorbis comments, RIFF INFO and the text chunks of other containers; if a
/// file has several, in this order. Reads pictures from ID3v2, APE, FLAC and Vorbis comments. Ignores replay gain,
/// encoder settings and the channel mask, which describe the stereo file.
///
/// descriptor  open for reading; its position moves
/// file        the same file, opened by libsndfile; null for FLAC and MPEG audio
/// format      format code of libsndfile
Tags readTags(int descriptor, SNDFILE* file, int format);

} // namespace tarn
