// Decoder for FLAC and Ogg FLAC.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/decoder.h"
#include "cli/file_bytes.h"
#include "cli/file_window.h"
#include "cli/ogg_pages.h"

#include <cstdint>
#include <optional>
#include <vector>

#include <FLAC++/decoder.h>

namespace tarn
{

/// Decodes FLAC and Ogg FLAC with libFLAC. Damaged frames become silence, so that later audio keeps its time.
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
    std::string error() const override;

private:
    /// libFLAC's decoder on a window of a file. Stores the samples of the last frame.
    class Stream final : public FLAC::Decoder::Stream
    {
    public:
        explicit Stream(const FileWindow& fileWindow) : window(fileWindow) {}

        FileWindow window;
        std::vector<std::int32_t> samples; ///< interleaved, left-justified
        std::uint64_t firstFrame = 0;      ///< frame number of the first of them in the stream
        SF_INFO facts{};                   ///< from the first metadata block
        std::uint32_t frameRate = 0;       ///< of the first good frame, Hz
        bool lostSync = false;             ///< since the last good frame
        bool followsDamage = false;        ///< sync was lost before the last good frame

    private:
        FLAC__StreamDecoderReadStatus read_callback(FLAC__byte bytes[], std::size_t* count) override;
        FLAC__StreamDecoderTellStatus tell_callback(FLAC__uint64* bytePosition) override;
        FLAC__StreamDecoderWriteStatus write_callback(const FLAC__Frame* frame,
                                                      const FLAC__int32* const channels[]) override;
        void metadata_callback(const FLAC__StreamMetadata* block) override;
        void error_callback(FLAC__StreamDecoderErrorStatus status) override;
    };

    void readStreamInfo();
    bool decodeFrame();
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
};

} // namespace tarn
