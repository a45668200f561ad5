#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "stream/upmix_stream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// What the engine is set up with.
struct EngineSettings
{
    zrk_tarn::SteeringMode mode = zrk_tarn::SteeringMode::Fast;
    zrk_tarn::RemapGains remap{}; ///< for remapped layouts
    float gain = 1.0f;            ///< of the output, 0 to zrk_tarn::kMaxMakeUpGain
    bool bypass = false;          ///< left and right as they came in
};

/// Upmixes a recording of any length in constant memory: stereo in, slots out.
class Upmixer
{
public:
    /// align  whether the output is shifted to the input's position, with the engine's tail flushed at the end;
    ///        otherwise it comes late by the engine's delay and without the tail
    /// sink   what the output goes to, as many frames in all as the input has
    Upmixer(const Layout& layout, StreamFormat format, const EngineSettings& settings, bool align, AudioSink& sink);

    /// Upmixes frames of interleaved left-justified stereo.
    void push(const std::int32_t* stereo, std::size_t frames);

    /// Writes what is left after the last push.
    void finish();

    /// Frames pushed so far, which is the length of the output.
    std::uint64_t frames() const noexcept { return consumed; }

    /// Samples that the gain has driven beyond full scale, in whole blocks of 64 frames.
    std::uint64_t clipped() const noexcept { return stream.meters().saturated; }

private:
    void deliver(std::size_t frames);

    StreamFormat format;
    AudioSink& sink;
    std::size_t frameBytes; ///< of the output
    zrk_tarn::UpmixStream stream;
    std::vector<std::uint8_t> stereoBytes; ///< kChunkFrames in the engine's format
    std::vector<std::uint8_t> slots;       ///< kChunkFrames
    std::uint64_t toSkip;                  ///< frames of output still to be dropped
    std::uint64_t consumed = 0;            ///< frames of input
    std::uint64_t delivered = 0;           ///< frames of output
};

} // namespace tarn
