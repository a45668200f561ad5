// Stereo from an audio file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/decoder.h"
#include "cli/file_parts.h"
#include "cli/input_file.h"
#include "cli/loss_record.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Format and length of a file.
struct FileFacts
{
    std::string container;
    std::string codec;
    std::uint32_t sampleRate = 0;        ///< Hz
    std::uint32_t bits = 0;              ///< of integer samples; 0 for floating-point and lossy formats
    std::uint32_t channels = 0;          ///< only 1 and 2 can be read
    std::optional<std::uint64_t> frames; ///< if declared
};

/// Reads stereo from an audio file in any format that libsndfile reads. Copies mono to both channels.
///
/// Reads integer formats exactly. Floating-point and lossy formats can hold samples above full scale. Either they keep
/// them in a headroom, or prepare finds the peak, and if it is above full scale, one gain scales the whole file down.
/// Reads joined files, such as chained Ogg, to the end of the last part.
class FileSource final : public AudioSource
{
public:
    /// The files that the constructor accepts.
    enum class Accept
    {
        Upmixable, ///< mono or stereo at a rate that can be converted
        AnyAudio   ///< any audio, to describe it; only mono and stereo can be read
    };

    /// Opens the file and checks its format.
    ///
    /// Throws Failure: EX_DATAERR if it is not audio, multichannel or at an unsupported rate; also what openInput
    /// throws.
    explicit FileSource(const std::string& path, Accept accept = Accept::Upmixable);

    FileFacts facts() const;

    StreamFormat format() const noexcept override;
    std::optional<std::uint64_t> expectedFrames() const noexcept override { return expected; }
    FileIdentity identity() const noexcept override { return file.identity; }
    Metadata metadata() override;

    /// Notes about values that the header declares wrongly. Included in those of prepare.
    std::vector<std::string> readingNotes() const;

    bool isSlow() const noexcept override { return compressed; }
    bool canExceedFullScale() const noexcept override;
    std::vector<std::string> prepare(bool showProgress, PeakPlan plan) override;
    int headroomBits() const noexcept override { return headroom; }
    double scale() const noexcept override { return fileScale; }
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return true; }
    void rewind() override;
    std::uint64_t clippedSamples() const noexcept override { return clipped; }
    std::optional<Loss> loss() const override;

    /// Reads frames, full scale 1. Needs no prepare and does not limit the peak.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns the number of frames; 0 at the end. Throws Failure (EX_DATAERR) for samples that are not finite.
    std::size_t readFullScale(double* stereo, std::size_t capacity);

private:
    void openParts();
    void checkFormat() const;
    void openPart(std::size_t index);
    void recordUnreadPart();
    void recordFollowingFile(std::uint64_t end);
    std::string splitAdvice(std::uint64_t begin) const;
    void addMissing(std::uint64_t missing);
    std::optional<std::uint64_t> damageOfPart(std::uint64_t frames) const;
    void endPart();
    void findPeak(bool showProgress);

    template <typename Sample>
    std::size_t decode(Sample* stereo, std::size_t capacity);

    InputFile file;
    std::vector<FilePart> parts;
    std::size_t current = 0; ///< index of the part; parts.size() at the end
    std::unique_ptr<Decoder> decoder;
    SF_INFO info{};          ///< of the first part
    bool compressed = false; ///< has a decoder other than libsndfile

    std::optional<std::uint64_t> declared;   ///< frames of all parts
    std::optional<std::uint64_t> expected;   ///< declared or estimated
    std::uint64_t position = 0;              ///< frames
    std::uint64_t partBegin = 0;             ///< position of the first frame of the part
    std::optional<std::uint64_t> errorBegin; ///< position of the first error of the MPEG decoder in the part
    LossRecord losses;
    int headroom = 0;
    double fileScale = 1.0;
    bool watchesPeak = false;  ///< read throws AboveFullScale
    double peak = 0.0;         ///< found so far
    std::uint64_t clipped = 0; ///< samples
    std::vector<double> decoded;
};

} // namespace tarn
