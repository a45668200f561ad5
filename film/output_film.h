// A film that is written.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/output_file.h"
#include "film/av.h"
#include "film/input_film.h"
#include "film/packet_times.h"
#include "film/subtitle_converter.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Writes a film: the streams of another one, packet for packet, and an upmixed track. The file appears under its name
/// when it is complete.
class OutputFilm
{
public:
    /// Creates a temporary file.
    ///
    /// hook  can be empty
    ///
    /// Throws Failure as OutputFile does; EX_USAGE if no container has the extension.
    OutputFilm(const std::string& path, bool force, const InputFilm& input, NamingHook hook);
    ~OutputFilm();

    OutputFilm(const OutputFilm&) = delete;
    OutputFilm& operator=(const OutputFilm&) = delete;

    const AVOutputFormat& container() const noexcept { return *format->oformat; }
    bool wantsGlobalHeader() const noexcept { return (format->oformat->flags & AVFMT_GLOBALHEADER) != 0; }

    /// Seconds by which all tracks and chapters are later than in the input, because it starts far below zero.
    int delaySeconds() const noexcept { return addedSeconds; }

    /// Adds all streams and writes the header. The upmixed track is the default one, in front of its original.
    ///
    /// upmixed  the encoder of the new track
    /// track    of the input that was upmixed
    /// replace  leaves the original out
    ///
    /// Returns what the container cannot hold, one sentence each.
    std::vector<std::string> begin(const AVCodecContext& upmixed, unsigned track, bool replace);

    /// Writes a packet of the input, if its stream is copied. The packet is empty afterwards.
    void copy(AVPacket& packet);

    /// Writes a packet of the upmixed track, in the time base of its encoder. The packet is empty afterwards.
    void add(AVPacket& packet);

    /// Completes the file.
    void finish();

private:
    bool isMatroska() const noexcept;
    bool isFlac() const noexcept;
    bool isMp4() const noexcept;
    bool canHold(const AVStream& stream) const;
    AVStream& addStream();
    void addStreamOf(const AVStream& from);
    void attach(const AVStream& picture);
    void addCopy(const AVStream& from);
    void describe(AVStream& stream, const AVStream& from);
    void addUpmixed(const AVCodecContext& upmixed, const AVStream& original);
    void nameHandlers();
    void copyChapters();
    void writeCopy(AVPacket& packet);
    void write(AVPacket& packet, AVRational timeBase, const AVStream& to);
    void raiseTimes(AVPacket& packet, const AVStream& to);

    static int writeBytes(void* self, std::uint8_t* bytes, int count);
    static std::int64_t seek(void* self, std::int64_t offset, int whence);

    std::string path;
    const InputFilm& input;
    OutputFile file;
    int writeError = 0;   ///< errno
    int addedSeconds = 0; ///< to all times
    AVFormatContext* format = nullptr;
    std::vector<int> outputOf; ///< stream of the output for each one of the input; -1: not copied
    std::vector<std::unique_ptr<SubtitleConverter>> converters; ///< for each stream of the input; null: it is copied
    std::vector<std::unique_ptr<PacketTimes>> times;            ///< for each stream of the input; null: they are copied
    std::vector<std::int64_t> lastTimes; ///< decoding time of the last packet of each stream of the output
    int pictures = 0;                    ///< that are attached
    int upmixedIndex = -1;
    AVRational upmixedTime{};
    std::vector<std::string> lost;
};

} // namespace tarn
