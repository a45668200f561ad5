#pragma once

#include "stream_types.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

struct tarn_stream; // of the C interface, tarn.h

namespace zrk_tarn
{

/// A stream of any buffer sizes through the engine, with one constant latency.
///
/// The engine works on blocks of 64 frames; hosts hand over 37, 100 or 1024. The stream collects frames into blocks and
/// gives out as many frames as it takes, latencyFrames() later. Nothing is allocated after construction.
///
/// process, processPlanar, drain, setRemap and reset belong to one thread at a time and are real-time safe. setBypass,
/// setMakeUpGain, setMode, bypassed and meters may be called from any thread at any time; they take no locks. Any
/// number of streams may be made and in use on any number of threads. Results depend on nothing but the calls: the
/// default floating-point environment is set inside and the caller's put back.
class [[gnu::visibility("default")]] UpmixStream
{
public:
    /// What is wrong with a configuration and what would be right, as a sentence without its full stop; null if nothing
    /// is.
    static const char* problemOf(const StreamConfiguration& configuration) noexcept;

    /// Allocates all that the stream will ever need.
    ///
    /// Throws std::invalid_argument with the problem of the configuration, if there is one; std::bad_alloc.
    explicit UpmixStream(const StreamConfiguration& configuration) : UpmixStream(checked(configuration)) {}

    /// Frees all that it holds.
    ~UpmixStream();

    /// Takes the other stream over, which can then only be assigned to or destroyed.
    UpmixStream(UpmixStream &&) noexcept;

    /// Takes the other stream over in place of this one.
    UpmixStream& operator=(UpmixStream&&) noexcept;

    /// Frames by which the output comes after the input, at every rate: 960 of the engine and 64 of the block.
    static constexpr std::uint32_t latencyFrames() noexcept
    {
        return 1024;
    }

    /// Takes and gives interleaved frames.
    ///
    /// input   frames x input slots; null is silence
    /// output  frames x output slots. May be the input's memory where both have as many slots
    void process(const void* input, void* output, std::size_t frames) noexcept;

    /// Takes and gives one row of floats per slot; only for F32.
    ///
    /// input   [input slots], each of frames samples; a null row is silence
    /// output  [output slots], each of frames samples; a null row is not written. May be the input's rows in any order
    void processPlanar(const float* const* input, float* const* output, std::size_t frames) noexcept;

    /// Gives what is left of the stream's tail, so that the output, without its first latencyFrames(), becomes as long
    /// as the input. Interleaved; a planar host gives null rows for latencyFrames() instead.
    ///
    /// Returns the frames written: as many as asked for, until latencyFrames() were given since the last input.
    std::size_t drain(void* output, std::size_t frames) noexcept;

    /// Changes the remap matrix, from the next block on; of streams that were made with one. Belongs to the thread that
    /// processes.
    void setRemap(const RemapGains& gains) noexcept;

    /// Makes the stream as new: silent. Mode, bypass, make-up gain and matrix stay.
    void reset() noexcept;

    /// Changes between the upmix and the plain input: left and right as they came in, the other outputs of the engine
    /// silent, the latency the same. Crossfades within 1024 frames; before the first frame of a new stream, changes at
    /// once.
    void setBypass(bool bypassed) noexcept;

    /// Whether the plain input was asked for last.
    bool bypassed() const noexcept;

    /// Multiplies the engine's outputs, but not what passes or is bypassed, by a gain of 0 to 8, reached within 1024
    /// frames; before the first frame of a new stream, at once. Values outside, or NaN, are taken as the nearest
    /// within, or 1. At 1, the default, samples stay as the engine gives them.
    void setMakeUpGain(float gain) noexcept;

    /// Changes how fast steering is followed, from the next block on, keeping the signal that is on its way.
    void setMode(SteeringMode mode) noexcept;

    /// The state after the last block. Single values are never torn; together they may come from neighbouring blocks.
    StreamMeters meters() const noexcept;

private:
    struct Checked
    {
        const StreamConfiguration& configuration;
    };

    /// In the header, because the library throws nothing of its own.
    static Checked checked(const StreamConfiguration& configuration)
    {
        if (const char* const problem = problemOf(configuration)) throw std::invalid_argument(problem);
        return {configuration};
    }

    explicit UpmixStream(Checked checked);
    friend tarn_stream;

    class State;
    std::unique_ptr<State> state_;
};

} // namespace zrk_tarn
