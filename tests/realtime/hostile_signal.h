#pragma once

#include "host/zrk_tarn_processor.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace tests
{

/// How a stream comes and goes. What blocks of it cost is compared with what they cost in music of the same format.
struct StreamFormat
{
    std::uint32_t rateHz = 48000;
    std::uint32_t bits = 16;
    bool remap = false; ///< eight slots, four of them mixed through a full matrix; otherwise six slots

    std::uint32_t slots() const { return remap ? 8 : 6; }
    std::size_t sampleBytes() const { return (bits + 7) / 8; }

    friend auto operator<=>(const StreamFormat&, const StreamFormat&) = default;
};

std::ostream& operator<<(std::ostream& stream, const StreamFormat& format);

/// A block of a stream in a buffer of the host's, ready to be processed in place.
class HostBlock
{
public:
    explicit HostBlock(const StreamFormat& format);

    /// Puts a frame into the left and right slots; full scale, that of the container, at +-1.
    void put(std::size_t frame, double left, double right);

    void process(zrk_tarn_processor_t& processor, std::uint32_t frames);

private:
    StreamFormat format_;
    audio_channel_assignment_t assignment_{};
    std::vector<std::uint8_t> bytes_;
};

enum class Shape
{
    Tone,     ///< a cosine of pitch subbands, so that 64 is the alternation of two samples
    Square,   ///< its sign
    Noise,    ///< even between -1 and 1
    Signs,    ///< -1 or 1 at random
    Impulses, ///< a single 1, pitch frames apart
    Constant
};

/// One source of a segment.
struct Layer
{
    Shape shape;
    double pitch;
    double level; ///< dB at the start
    double slope; ///< dB per block
    double left;  ///< gain to the left slot
    double right; ///< gain to the right slot
};

/// Blocks alike: silence, or the sum of layers.
struct Segment
{
    std::uint32_t blocks;
    std::vector<Layer> layers;
};

/// A stream described in words, of whose last block the cost is of interest. As a line of text:
///
///   RATE BITS plain|remap MODE FRAMES FORMATS SEED | BLOCKS SHAPE:PITCH:LEVEL:SLOPE:LEFT:RIGHT ... | BLOCKS ...
struct HostileSignal
{
    StreamFormat format;
    std::int32_t mode = 0;
    std::uint32_t frames = 64;       ///< of the last block; those before are whole
    std::uint32_t formatChanges = 0; ///< changes of width before the stream, each of which scales the smoothing pairs
    std::uint32_t seed = 1;          ///< of its noises
    std::vector<Segment> segments;
};

std::ostream& operator<<(std::ostream& stream, const HostileSignal& signal);

/// Throws std::invalid_argument.
HostileSignal hostileSignalFrom(const std::string& line);

/// The signals of a file, one in each line that is neither empty nor begins with #. Throws std::runtime_error.
std::vector<HostileSignal> hostileSignalsIn(const std::string& file);

/// An object that has processed all of a signal but the last block, and that block.
class PlayedSignal
{
public:
    explicit PlayedSignal(const HostileSignal& signal);

    void processLastBlock() { block_.process(processor_, frames_); }

    zrk_tarn_processor_t& processor() { return processor_; }
    HostBlock& block() { return block_; }

private:
    zrk_tarn_processor_t processor_;
    HostBlock block_;
    std::uint32_t frames_;
};

/// Configures an object for a format, with a remap matrix that has no zero.
void configure(zrk_tarn_processor_t& processor, std::int32_t mode);

} // namespace tests
