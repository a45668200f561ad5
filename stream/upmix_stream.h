// A stream of buffers of any size and format through the engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream_types.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

struct tarn_stream; // the stream of the C interface (tarn.h)

namespace zrk_tarn
{

/// Upmixes a stream in buffers of any size, with one constant latency.
///
/// The engine processes blocks of 64 frames. The stream collects the frames of the host into blocks. Each call
/// returns as many frames as it receives; the output is delayed by latencyFrames(configuration). Only the constructor
/// allocates.
///
/// Threads: call process, processPlanar, drain, setRemap and reset on one thread at a time. Call setBypass, bypassed,
/// setMakeUpGain, setCentreGain, setCentreWidth, setSurroundGain, setLfeGain, setBass, setLimiting, setMode and meters
/// on any thread at any time. All are real-time safe and take no locks. In an optimised build, each needs at most 12
/// KiB of stack. Any number of streams can be created and used on any number of threads.
///
/// Results do not depend on the floating-point mode of the calling thread (rounding, flush-to-zero), which is restored.
class [[gnu::visibility("default")]] UpmixStream
{
public:
    /// Returns what is wrong with a configuration and which values are valid, as a sentence without a full stop, or
    /// null if the configuration is valid.
    static const char* problemOf(const StreamConfiguration& configuration) noexcept;

    /// Allocates everything that the stream needs.
    ///
    /// Throws std::invalid_argument with problemOf(configuration), or std::bad_alloc.
    explicit UpmixStream(const StreamConfiguration& configuration) : UpmixStream(checked(configuration)) {}

    /// Frees the stream.
    ~UpmixStream();

    /// Moves a stream. After that, the source can only be assigned to or destroyed.
    UpmixStream(UpmixStream &&) noexcept;

    /// Frees this stream and moves another one into it.
    UpmixStream& operator=(UpmixStream&&) noexcept;

    /// The delay from input to output at every rate: 960 frames of the engine and 64 of the block.
    static constexpr std::uint32_t latencyFrames() noexcept
    {
        return 1024;
    }

    /// The delay of a stream of this configuration: 64 frames more with the limiter.
    static constexpr std::uint32_t latencyFrames(const StreamConfiguration& configuration) noexcept
    {
        return configuration.limiter ? 1088 : 1024;
    }

    /// Processes interleaved frames.
    ///
    /// input   frames x input slots; null is silence
    /// output  frames x output slots; can be the memory of input if both have the same number of slots
    void process(const void* input, void* output, std::size_t frames) noexcept;

    /// Processes one buffer of floats per slot. Only for the format F32.
    ///
    /// input   [input slots], buffers of frames samples; a null buffer is silence
    /// output  [output slots], buffers of frames samples; a null buffer is not written. Can be the buffers of
    ///         input in any order
    void processPlanar(const float* const* input, float* const* output, std::size_t frames) noexcept;

    /// Writes the last frames of the stream, as many as its latency, interleaved, after its last input. If you drop as
    /// many at the start of the output, the rest then has the length of the input.
    ///
    /// Returns the number of frames written: at most frames, and at most the latency in total since the last input.
    /// Planar hosts instead call processPlanar for as many frames with null input buffers.
    std::size_t drain(void* output, std::size_t frames) noexcept;

    /// Changes the remap matrix from the next block on. Has no effect without StreamConfiguration::remap.
    void setRemap(const RemapGains& gains) noexcept;

    /// Clears the signal. Keeps all settings and the matrix.
    void reset() noexcept;

    /// Switches bypass on or off. In bypass, front left and right and Dialogue slots are the plain input, the other
    /// engine outputs, surround channels and the LFE channel are silent, and the latency is the same. Crossfades within
    /// 1024 frames; switches at once before the first frame.
    void setBypass(bool bypassed) noexcept;

    /// Whether bypass is requested.
    bool bypassed() const noexcept;

    /// Sets the gain of all outputs but input slots, a factor. It does not affect bypass.
    ///
    /// Fades to the gain within 1024 frames; changes at once before the first frame. With 1, the default, samples are
    /// exact. Clamps values to the range from 0 to kMaxMakeUpGain; NaN sets 1.
    void setMakeUpGain(float gain) noexcept;

    /// Sets the gain of the centre, a factor: louder or softer voices. Applies to the engine's centre and to Dialogue
    /// slots. Has no effect with a remap matrix.
    ///
    /// Fades to the gain within 1024 frames; changes at once before the first frame. Clamps values to the range from 0
    /// to kMaxChannelGain; NaN sets 1, the default.
    void setCentreGain(float gain) noexcept;

    /// Sets how much of the centre stays in its loudspeaker, from 1, all and the default, to 0, nothing. The rest goes
    /// to front left and front right, at the same power in all. Has no effect on Dialogue slots and with a remap
    /// matrix.
    ///
    /// Fades as the gain of the centre does. Clamps values to the range; NaN sets 1.
    void setCentreWidth(float width) noexcept;

    /// Sets the gain of the surround channels, a factor; kTypicalSurroundGain by default.
    ///
    /// Fades as the gain of the centre does. Clamps values to the range from 0 to kMaxChannelGain; NaN sets the
    /// default.
    void setSurroundGain(float gain) noexcept;

    /// Sets the gain of the LFE channel, a factor; 1 by default. Fades and clamps as the gain of the centre does.
    void setLfeGain(float gain) noexcept;

    /// Changes where the bass plays. Has no effect on Dialogue slots and with a remap matrix.
    ///
    /// Crossfades within 1024 frames; changes at once before the first frame.
    void setBass(BassMode bass) noexcept;

    /// Switches the limiter of the configuration off or on, from the next block on. Switched off, its gain returns to 1
    /// with its usual time constant, and outputs beyond full scale clip. The latency stays the same. Has no effect
    /// without StreamConfiguration::limiter.
    void setLimiting(bool limiting) noexcept;

    /// Changes the steering mode from the next block on. Keeps the signal in the engine.
    void setMode(SteeringMode mode) noexcept;

    /// Returns the meters after the last block. Values read together can be from two neighbouring blocks.
    StreamMeters meters() const noexcept;

private:
    struct Checked
    {
        const StreamConfiguration& configuration;
    };

    /// Inline, because the library itself throws only std::bad_alloc.
    static Checked checked(const StreamConfiguration& configuration)
    {
        if (const char* const problem = problemOf(configuration)) throw std::invalid_argument(problem);
        return {configuration};
    }

    explicit UpmixStream(Checked checked);
    friend tarn_stream;

    class State;
    std::unique_ptr<State> state;
};

} // namespace zrk_tarn
