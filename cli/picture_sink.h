// Collects a picture of samples on their way to an output.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/upmixer.h"
#include "picture/analysis.h"

#include <cstdint>

namespace tarn
{

/// Analyses the outputs of an upmix for a picture and passes them on.
class PictureSink final : public AudioSink
{
public:
    /// next  gets the samples; can be null
    PictureSink(const Layout& layout, const EngineSettings& settings, std::uint32_t sampleRate, AudioSink* next);

    void write(const std::int32_t* samples, std::size_t frames) override;

    /// Completes the next sink.
    void finish() override;

    /// Analyses the last frames.
    void finishPicture() { collected.finish(); }

    const PictureAnalysis& analysis() const noexcept { return collected; }

private:
    PictureAnalysis collected;
    AudioSink* sink;
};

} // namespace tarn
