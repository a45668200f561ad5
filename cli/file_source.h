#pragma once

#include "cli/audio_source.h"
#include "cli/decoder.h"
#include "cli/input_file.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// What a file says of itself.
struct FileFacts
{
    std::string container;
    std::string codec;
    std::uint32_t sampleRate = 0;        ///< Hz
    std::uint32_t bits = 0;              ///< of integer samples; 0 for floating-point and lossy ones
    std::uint32_t channels = 0;          ///< 1 or 2 where the file can be read
    std::optional<std::uint64_t> frames; ///< if that is known before the file is read
};

/// Stereo from an audio file, in any format that libsndfile reads; mono comes on both channels.
///
/// Integer formats are read exactly. Floating-point and lossy ones, which can hold samples above full scale, are read
/// twice: prepare finds the peak, and if that is above full scale the whole file is scaled down by one gain. Joined
/// files, such as chained Ogg, are read to the end of the last one.
class FileSource final : public AudioSource
{
public:
    enum class Demand
    {
        Upmixable, ///< mono or stereo at a rate that can be converted
        Anything   ///< any audio; what is not stereo can be described, but not read
    };

    /// Opens the file and checks that it is what is demanded.
    ///
    /// Throws Failure: EX_DATAERR if it is no audio, multichannel or at a rate that cannot be; what openInput throws.
    explicit FileSource(const std::string& path, Demand demand = Demand::Upmixable);

    FileFacts facts() const;

    StreamFormat format() const noexcept override;
    std::optional<std::uint64_t> expectedFrames() const noexcept override { return expected; }
    FileIdentity identity() const noexcept override { return file.identity; }
    Metadata metadata() override;
    std::vector<std::string> prepare(bool showProgress) override;
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return true; }
    void rewind() override;
    std::optional<Loss> loss() const override;

    /// Reads frames in units of full scale, without prepare and however high their peak is.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns how many; 0 at the end. Throws Failure (EX_DATAERR) for samples that are not finite.
    std::size_t readFullScale(double* stereo, std::size_t capacity);

private:
    /// One of the streams that were joined to the file.
    struct Part
    {
        ByteRange bytes;
        std::optional<std::uint64_t> declared; ///< frames
        int rate = 0;                          ///< Hz
        bool hasDamagedPages = false;          ///< of Ogg, which libsndfile passes over
        bool lacksEnd = false;                 ///< what marks the end of the stream is not there
        bool leftOut = false; ///< it has another rate, width or number of channels than the first, or no audio
    };

    void openParts();
    Part partOf(const Decoder& opened, ByteRange bytes) const;
    void checkFormat() const;
    void openPart(std::size_t index);
    void noteDamage(std::uint64_t frame) noexcept;
    void endPart();
    double findPeak(bool showProgress);

    template <typename Sample>
    std::size_t decode(Sample* stereo, std::size_t capacity);

    InputFile file;
    std::vector<Part> parts;
    std::size_t current = 0; ///< part; the number of parts at the end
    std::unique_ptr<Decoder> decoder;
    SF_INFO info{}; ///< of the first part

    std::optional<std::uint64_t> declared;    ///< frames of all parts
    std::optional<std::uint64_t> expected;    ///< the same or an estimate
    std::uint64_t position = 0;               ///< frames
    std::uint64_t partBegin = 0;              ///< position of the first frame of the part
    std::uint64_t missing = 0;                ///< frames that ended parts declare and do not have
    std::uint64_t silenced = 0;               ///< frames of ended parts that could not be decoded and are silent
    bool missesUnknown = false;               ///< the end is missing as well, nobody knows how much
    bool losesUnknown = false;                ///< something else is missing, nobody knows how much
    std::optional<std::uint64_t> damageBegin; ///< frame at which the first damage was found
    std::string reason;                       ///< why, if the decoder said so
    double gain = 1.0;
    std::vector<double> decoded;
};

} // namespace tarn
