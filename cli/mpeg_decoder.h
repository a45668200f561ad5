// Decoder for MP3, MP2 and MP1.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/decoder.h"
#include "cli/file_window.h"

#include <memory>
#include <string>
#include <vector>

#include <mpg123.h>

namespace tarn
{

/// Decodes MPEG audio (MP3, MP2, MP1) with libmpg123 to its last frame, even if the header declares fewer. Removes the
/// delay and the padding of the encoder.
class MpegDecoder final : public Decoder
{
public:
    MpegDecoder(int descriptor, ByteRange part);

    std::size_t read(double* samples, std::size_t frames) override;
    std::string note() const override { return indexNote; }

    /// Whether info().frames comes from an index that is valid or was repaired. Otherwise, it is an estimate.
    bool isLengthDeclared() const noexcept { return hasIndex; }

    std::string error() const override;

private:
    bool hasOtherRate() const;

    struct Closer
    {
        void operator()(mpg123_handle* opened) const noexcept { mpg123_delete(opened); }
    };

    FileWindow window;
    std::unique_ptr<mpg123_handle, Closer> handle;
    std::vector<float> decoded;
    bool hasBadFrames = false;
    bool hasIndex = false;
    std::string indexNote; ///< about a damaged index
};

} // namespace tarn
