// Decoder for FLAC and Ogg FLAC.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/decoder.h"
#include "cli/file_bytes.h"
#include "cli/file_window.h"
#include "cli/ogg_pages.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <FLAC++/decoder.h>

namespace tarn
{

/// Decodes FLAC and Ogg FLAC with libFLAC. Damaged frames become silence, so that later audio keeps its time.
///
/// Rate, channels and width come from the first good frame, whose header has a checksum; that of the file has none.
class FlacDecoder final : public Decoder
{
public:
    FlacDecoder(int descriptor, ByteRange part);

    /// serial  serial number of the stream in an Ogg file
    FlacDecoder(int descriptor, ByteRange part, int serial);

    std::size_t read(std::int32_t* samples, std::size_t frames) override;
    std::size_t read(double* samples, std::size_t frames) override;
    std::uint64_t silencedFrames() const override { return silenced; }
    std::uint64_t skippedFrames() const override { return skipped; }
    std::uint64_t endPosition() const override { return oggEnd ? 0 : begin + frameEnd; }
    std::string note() const override { return headerNote; }
    bool hasWrongChecksum() const override;
    std::string error() const override;

private:
    /// libFLAC's decoder on a window of a file. Stores the samples of the last frame.
    class Stream final : public FLAC::Decoder::Stream
    {
    public:
        Stream(const FileWindow& fileWindow, bool isOggStream) : window(fileWindow), isOgg(isOggStream) {}

        bool decodeFrame();

        FileWindow window;
        std::vector<std::int32_t> samples; ///< interleaved, left-justified
        std::uint64_t firstFrame = 0;      ///< frame number of the first of them in the stream
        SF_INFO facts{};                   ///< from the first metadata block, then from the first good frame
        std::uint32_t bits = 0;            ///< of a sample, from the same source
        bool lostSync = false;             ///< since the last good frame
        bool followsDamage = false;        ///< sync was lost before the last good frame
        bool isCutFrame = false;           ///< sync was lost only at the end of the file
        bool isHidden = false;             ///< libFLAC delivered silence instead of the last good frame

    private:
        bool decodeOnce();
        void setFormat(std::uint32_t rate, std::uint32_t channels, std::uint32_t sampleBits);

        FLAC__StreamDecoderReadStatus read_callback(FLAC__byte bytes[], std::size_t* count) override;
        FLAC__StreamDecoderTellStatus tell_callback(FLAC__uint64* bytePosition) override;
        FLAC__StreamDecoderSeekStatus seek_callback(FLAC__uint64 bytePosition) override;
        FLAC__StreamDecoderWriteStatus write_callback(const FLAC__Frame* frame,
                                                      const FLAC__int32* const channels[]) override;
        void metadata_callback(const FLAC__StreamMetadata* block) override;
        void error_callback(FLAC__StreamDecoderErrorStatus status) override;

        const bool isOgg;
        bool hasFrame = false;   ///< a good frame was decoded
        bool reachedEnd = false; ///< of the file, since the last good frame
        int delivered = 0;       ///< frames that the current call of libFLAC delivered
    };

    void readFormat();
    bool decodeFrame();
    void finish();
    bool isFollowedByFile() const;
    void fillGap();
    bool isCut() const;

    Stream stream;
    FileBytes partBytes;          ///< of the part
    std::uint64_t begin;          ///< of the part in the file
    std::optional<OggEnd> oggEnd; ///< only in an Ogg file
    std::size_t used = 0;         ///< samples of the stream already read
    std::uint64_t toSilence = 0;  ///< frames of silence before them
    std::uint64_t position = 0;   ///< frame number in the stream after the last good frame
    std::uint64_t silenced = 0;   ///< frames
    std::uint64_t skipped = 0;    ///< frames
    std::uint64_t frameEnd = 0;   ///< position in bytes after the last good frame, from there
    std::string headerNote;       ///< about wrong values of the header
    bool isFirstReady = false;    ///< the first frame was decoded and not yet read
    bool isJoined = false;        ///< libFLAC decoded frames of a following file
    bool isChecksumWrong = false; ///< of all samples, known at the end
};

} // namespace tarn
