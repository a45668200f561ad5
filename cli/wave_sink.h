#pragma once

#include "cli/file_sink.h"
#include "cli/output_file.h"

#include <cstdint>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// A WAVE file with an extensible header, RF64 beyond 4 GiB. Its tags are at the end: RIFF INFO and ID3v2.
class WaveSink final : public AudioSink
{
public:
    /// Throws what OutputFile throws.
    WaveSink(const std::string& path, bool force, std::optional<FileIdentity> input, const FileContents& contents);

    ~WaveSink() override;

    WaveSink(const WaveSink&) = delete;
    WaveSink& operator=(const WaveSink&) = delete;

    void write(const std::uint8_t* slots, std::size_t frames) override;
    void finish() override;
    std::vector<std::string> notes() const override { return leftOut; }

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

    void check(bool succeeded) const;

    std::uint32_t slotCount;
    std::uint32_t sampleBytes;
    Metadata metadata;
    OutputFile file;
    Target target;
    SNDFILE* handle = nullptr; ///< closed by finish, which has to see what closing says
    std::vector<std::string> leftOut;
    std::vector<std::int32_t> samples;
};

} // namespace tarn
