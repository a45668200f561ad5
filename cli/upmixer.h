#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "host/zrk_tarn_processor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn
{

/// Frames by which the engine's output comes after its input, at every rate.
inline constexpr std::uint64_t kDelayFrames = 960;

/// Rows are the engine's outputs front left, front right and centre; signed fixed point with 28 fraction bits.
using RemapMatrix = std::array<std::array<std::uint32_t, 4>, 3>;

/// What the engine is set up with.
struct EngineSettings
{
    int mode = 1;             ///< 1 or 2
    float mixFraction = 1.0f; ///< 0 to 1
    RemapMatrix remap{};      ///< for remapped layouts
};

/// Upmixes a stream of any length in constant memory: stereo in, slots out.
///
/// The engine sees whole blocks only, whatever the lengths that come in; the last one is padded with silence.
class Upmixer
{
public:
    /// align  whether the output is shifted to the input's position, with the engine's tail flushed at the end;
    ///        otherwise it is what a live host hears, late by the delay and without the tail
    /// sink   what the output goes to, as many frames in all as the input has
    Upmixer(const Layout& layout, StreamFormat format, const EngineSettings& settings, bool align, AudioSink& sink);

    /// Upmixes frames of interleaved left-justified stereo.
    void push(const std::int32_t* stereo, std::size_t frames);

    /// Writes what is left after the last push.
    void finish();

    /// Frames pushed so far, which is the length of the output.
    std::uint64_t frames() const noexcept { return consumed; }

private:
    std::size_t append(const std::int32_t* stereo, std::size_t frames);
    void appendSilence(std::size_t frames);
    void processWholeBlocks();
    void deliver(std::size_t frames);

    const Layout& layout;
    StreamFormat format;
    bool align;
    AudioSink& sink;
    std::size_t frameBytes;
    audio_channel_assignment_t codes;
    zrk_tarn_processor_t processor;
    std::vector<std::uint8_t> slots; ///< kCapacity frames
    std::size_t filled = 0;          ///< frames of it that wait for the engine
    std::uint64_t toSkip;            ///< frames of output still to be dropped
    std::uint64_t consumed = 0;      ///< frames of input
    std::uint64_t delivered = 0;     ///< frames of output
};

} // namespace tarn
