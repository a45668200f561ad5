// Output to a FLAC file.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_sink.h"

#include <cstdint>
#include <memory>
#include <vector>

#include <FLAC++/encoder.h>
#include <FLAC++/metadata.h>

namespace tarn
{

/// Writes a FLAC file. A comment holds the channel mask, because players may otherwise play the surrounds of 5.1 as
/// side channels.
class FlacSink final : public AudioSink
{
public:
    /// Throws what OutputFile throws.
    FlacSink(const std::string& path, bool force, std::optional<FileIdentity> input, const FileContents& contents);

    void write(const std::int32_t* interleaved, std::size_t frames) override;
    void finish() override;
    std::vector<std::string> notes() const override { return leftOut; }

private:
    /// libFLAC's encoder on a descriptor.
    class Encoder final : public FLAC::Encoder::Stream
    {
    public:
        explicit Encoder(int outputDescriptor) : descriptor(outputDescriptor) {}

        /// Finishes here, because the destructor of the base cannot call the overridden callbacks.
        ~Encoder() override { static_cast<void>(finish()); }

        Encoder(const Encoder&) = delete;
        Encoder& operator=(const Encoder&) = delete;

        int error = 0; ///< errno of the first call that failed

    private:
        FLAC__StreamEncoderWriteStatus write_callback(const FLAC__byte bytes[], std::size_t count,
                                                      std::uint32_t samples, std::uint32_t currentFrame) override;
        FLAC__StreamEncoderSeekStatus seek_callback(FLAC__uint64 position) override;
        FLAC__StreamEncoderTellStatus tell_callback(FLAC__uint64* position) override;

        int descriptor;
    };

    void addComments(const Layout& layout, const Tags& tags);
    void addBlocks(const std::vector<FlacBlock>& inputBlocks);
    void addPictures(const std::vector<Picture>& pictures);
    void check(bool succeeded) const;

    std::uint32_t slots;
    std::uint32_t bits;
    OutputFile file;
    std::vector<std::unique_ptr<FLAC::Metadata::Prototype>>
        blocks; ///< the encoder refers to them until it has finished
    std::vector<std::string> leftOut;
    Encoder encoder;
    std::vector<std::int32_t> samples; ///< right-justified
};

} // namespace tarn
