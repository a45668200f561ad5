// Output to a WAV file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_sink.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// Writes a WAVE file with an extensible header, or RF64 above 4 GiB. RIFF INFO and ID3v2 tags follow the audio.
class WaveSink final : public AudioSink
{
public:
    /// Throws what OutputFile throws.
    WaveSink(const std::string& path, bool force, std::optional<FileIdentity> input, const FileContents& contents);

    WaveSink(const WaveSink&) = delete;
    WaveSink& operator=(const WaveSink&) = delete;

    void write(const std::int32_t* samples, std::size_t frames) override;
    void finish() override;
    std::vector<std::string> notes() const override { return leftOut; }

private:
    /// The file that libsndfile's callbacks access.
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
    std::uint32_t bits;                 ///< of a sample
    std::vector<std::int16_t> shorts{}; ///< samples of 16 bits, which libsndfile writes as they are
    Metadata metadata;
    OutputFile file;
    Target target;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> handle{nullptr, sf_close}; ///< finish checks the result of closing
    std::vector<std::string> leftOut;
};

} // namespace tarn
