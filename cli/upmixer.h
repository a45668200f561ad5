// Upmixes a recording of any length with the engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "stream/presets.h"
#include "stream/upmix_stream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// Settings of the engine.
struct EngineSettings
{
    zrk_tarn::SteeringMode mode = zrk_tarn::SteeringMode::Fast;
    zrk_tarn::RemapGains remap{};  ///< for remapped layouts
    zrk_tarn::RoomSettings room{}; ///< of centre, surround channels and level; plain by default
    bool bypass = false;           ///< passes left and right through unchanged
};

/// The settings of a stream whose gain and limiter follow in a stage of their own.
inline EngineSettings atUnityGain(EngineSettings settings)
{
    settings.room.gainDb = 0.0;
    settings.room.limiter = false;
    return settings;
}

/// Upmixes a recording of any length in constant memory: stereo in, slots out.
class Upmixer
{
public:
    /// align  removes the delay of the engine from the output; otherwise the output is late by that delay and its
    ///        tail is cut off
    /// sink   receives as many frames as the input has
    Upmixer(const Layout& layout, StreamFormat format, const EngineSettings& settings, bool align, AudioSink& sink);

    /// Upmixes frames of interleaved left-justified stereo.
    void push(const std::int32_t* stereo, std::size_t frames);

    /// Writes the frames that remain after the last push.
    void finish();

    /// Frames pushed so far: the length of the output.
    std::uint64_t frames() const noexcept { return consumed; }

    /// Clipped samples and the work of the limiter, counted in whole blocks of 64 frames.
    zrk_tarn::StreamMeters meters() const noexcept { return stream.meters(); }

    /// The stream, to change its settings from any thread while others push.
    zrk_tarn::UpmixStream& live() noexcept { return stream; }

private:
    void deliver(std::size_t frames);

    StreamFormat format;
    AudioSink& sink;
    std::size_t slots;
    zrk_tarn::UpmixStream stream;
    std::vector<std::uint8_t> stereoBytes; ///< kChunkFrames of input in the engine's format
    std::vector<std::uint8_t> slotBytes;   ///< kChunkFrames of output in the engine's format
    std::vector<std::int32_t> samples;     ///< the same, left-justified
    std::uint64_t toSkip;                  ///< frames of output still to drop
    std::uint64_t consumed = 0;            ///< frames of input
    std::uint64_t delivered = 0;           ///< frames of output
};

} // namespace tarn
