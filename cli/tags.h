#pragma once

#include <string>
#include <vector>

#include <sndfile.h>
#include <tbytevector.h>
#include <tpropertymap.h>

namespace tarn
{

/// A picture that belongs to a recording, such as the cover of its album.
struct Picture
{
    int kind = 0; ///< number of ID3v2 and FLAC; 3 is a front cover
    TagLib::String mimeType;
    TagLib::String description;
    int width = 0;  ///< pixels; 0 if unknown
    int height = 0; ///< pixels; 0 if unknown
    int depth = 0;  ///< bits of a pixel; 0 if unknown
    int colours = 0;
    TagLib::ByteVector data;
};

/// A metadata block of FLAC, as it is in the file: a cue sheet, or the data of an application behind its four
/// characters.
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

/// What a file says about its recording.
struct Tags
{
    TagLib::PropertyMap texts; ///< by the names of Vorbis comments: TITLE, ALBUMARTIST, MUSICBRAINZ_TRACKID, ...
    std::vector<Picture> pictures;
    std::vector<FlacBlock> flacBlocks; ///< for another FLAC file
    std::vector<std::string> leftOut;  ///< sentences about what has no name in other formats
    bool converted = false;            ///< texts were not UTF-8 where they should be, and were read as Windows-1252
};

/// Reads the tags that still hold for an upmix of the recording.
///
/// Texts come from ID3v2, APE and ID3v1 tags, Vorbis comments, RIFF INFO and the text chunks of other containers, in
/// this order where a file has several; pictures from ID3v2, FLAC and Vorbis comments. Replay gain, the name and the
/// settings of the encoder and the channel mask describe the stereo file and are left out.
///
/// descriptor  open for reading; its position moves
/// file        the same file as libsndfile has opened it; null if it is FLAC or MPEG audio
/// format      of that file, in the numbers of libsndfile
Tags readTags(int descriptor, SNDFILE* file, int format);

} // namespace tarn
