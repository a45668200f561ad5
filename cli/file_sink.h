#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/metadata.h"
#include "cli/output_file.h"
#include "cli/stream_format.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// A kind of file that the command writes, chosen by its extension.
struct Container
{
    std::string_view extension; ///< with its dot, lower case
    int majorFormat;            ///< of libsndfile
    std::uint32_t maxBits;      ///< widest samples that it holds
};

/// The container of an output's name; throws Failure (EX_USAGE) if there is none.
const Container& containerOf(const std::string& path);

/// An audio file whose header names the layout.
class FileSink final : public AudioSink
{
public:
    /// Creates the output.
    ///
    /// Throws Failure: EX_USAGE if the container does not hold samples of this width, and what OutputFile throws.
    FileSink(const std::string& path, bool force, std::optional<FileIdentity> input, const Layout& layout,
             StreamFormat format, const Metadata& metadata = {});

    ~FileSink() override;

    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    void write(const std::uint8_t* slots, std::size_t frames) override;
    void finish() override;

    /// Does all of finish that can fail for want of room, and leaves the name for finish to give.
    void complete();

private:
    /// The descriptor as libsndfile's callbacks write it.
    struct Target
    {
        int descriptor;
        int error = 0; ///< errno of the first call that failed
    };

    static sf_count_t sizeOf(void* target);
    static sf_count_t seekIn(sf_count_t offset, int whence, void* target);
    static sf_count_t readFrom(void* to, sf_count_t count, void* target);
    static sf_count_t writeTo(const void* from, sf_count_t count, void* target);
    static sf_count_t tellOf(void* target);

    void openSndfile(const Container& container, StreamFormat format, const Metadata& metadata);
    void nameChannelsInFlac();
    void check(bool succeeded) const;

    const Layout& layout;
    std::uint32_t sampleBytes;
    OutputFile file;
    Target target;
    SNDFILE* handle = nullptr; ///< closed by finish, which has to see what closing says
    bool isFlac = false;
    FlacName placeholder{}; ///< under which a FLAC file keeps the place for the names of its channels
    std::vector<std::int32_t> samples;
};

} // namespace tarn
