#pragma once

#include "cli/audio_source.h"
#include "cli/descriptor.h"

#include <memory>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// Closes what libsndfile has opened.
struct SndfileCloser
{
    void operator()(SNDFILE* file) const noexcept { sf_close(file); }
};

using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/// What a file says of itself.
struct FileFacts
{
    std::string container;
    std::string codec;
    std::uint32_t sampleRate = 0;        ///< Hz
    std::uint32_t bits = 0;              ///< of integer samples; 0 for floating-point and lossy ones
    std::uint32_t channels = 0;          ///< 2 where the file can be read
    std::optional<std::uint64_t> frames; ///< if that is known before the file is read
};

/// Stereo from an audio file, in any format that libsndfile reads.
///
/// Integer formats are read exactly. Floating-point and lossy ones, which can hold samples above full scale, are read
/// twice: prepare finds the peak, and if that is above full scale the whole file is scaled down by one gain.
class FileSource final : public AudioSource
{
public:
    enum class Demand
    {
        Upmixable, ///< stereo at a rate of the engine
        Anything   ///< any audio; what is not stereo can be described, but not read
    };

    /// Opens the file and checks that it is what is demanded.
    ///
    /// Throws Failure: EX_NOINPUT if it cannot be opened; EX_DATAERR if it is no audio, cut short, not stereo or not
    /// at a rate of the engine.
    explicit FileSource(const std::string& path, Demand demand = Demand::Upmixable);

    FileFacts facts() const;

    StreamFormat format() const noexcept override;
    std::optional<std::uint64_t> expectedFrames() const noexcept override { return expected; }
    FileIdentity identity() const noexcept override { return identityOf(file.number()); }
    Metadata metadata() const override { return readMetadata(handle.get()); }
    std::string prepare(bool showProgress) override;
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    void rewind() override { openSndfile(); }
    void verifyEnd() const override;

    /// Reads frames in units of full scale, without prepare and whatever their peak.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns how many; 0 at the end. Throws Failure (EX_DATAERR) for samples that are not finite.
    std::size_t readFullScale(double* stereo, std::size_t capacity);

    /// Whether the last frame that the header promises can be read. Reading goes on behind it.
    bool hasLastFrame();

private:
    void openDescriptor();
    void openSndfile();
    void checkFormat() const;
    void checkLength();
    double findPeak(bool showProgress);

    std::size_t decode(double* stereo, std::size_t capacity);

    std::string path;
    Descriptor file;
    SF_INFO info{};
    SndfileHandle handle;
    std::optional<std::uint64_t> promised; ///< frames that the file says it has
    std::optional<std::uint64_t> expected; ///< the same or an estimate
    std::uint64_t position = 0;
    double gain = 1.0;
    std::vector<double> decoded;
};

} // namespace tarn
