// Decoder for all formats that only libsndfile reads.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/decoder.h"
#include "cli/file_bytes.h"
#include "cli/file_window.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <sndfile.h>

namespace tarn
{

/// Decodes with libsndfile.
class SndfileDecoder final : public Decoder
{
public:
    SndfileDecoder(int descriptor, ByteRange part);

    std::size_t read(std::int32_t* samples, std::size_t frames) override;
    std::size_t read(double* samples, std::size_t frames) override;
    std::string error() const override;

    /// For access to metadata.
    SNDFILE* handle() const noexcept { return file.get(); }

private:
    void hideLargeTexts(const FileBytes& bytes);

    struct Closer
    {
        void operator()(SNDFILE* opened) const noexcept { sf_close(opened); }
    };

    FileWindow window;
    std::unique_ptr<SNDFILE, Closer> file;
    std::vector<std::int16_t> shorts{}; ///< samples of 16 bits, which libsndfile reads as they are
};

} // namespace tarn
