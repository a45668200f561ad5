// Signals whose blocks are expensive, and how to process them.
// SPDX-License-Identifier: MIT
#pragma once

#include "host/zrk_tarn_processor.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace tests
{

/// The format of a stream. The cost of blocks is compared with that of music in the same format.
struct StreamFormat
{
    std::uint32_t rateHz = 48000;
    std::uint32_t bits = 16;
    bool remap = false; ///< eight slots with a full remap matrix; otherwise six slots

    std::uint32_t slots() const { return remap ? 8 : 6; }
    std::size_t sampleBytes() const { return (bits + 7) / 8; }

    friend auto operator<=>(const StreamFormat&, const StreamFormat&) = default;
};

std::ostream& operator<<(std::ostream& stream, const StreamFormat& format);

/// A host buffer of one block.
class HostBlock
{
public:
    explicit HostBlock(const StreamFormat& format);

    /// Writes a frame to the left and right slots; +-1 is full scale of the container.
    void put(std::size_t frame, double left, double right);

    void process(zrk_tarn_processor_t& processor, std::uint32_t frames);

private:
    StreamFormat streamFormat;
    audio_channel_assignment_t assignment{};
    std::vector<std::uint8_t> storage;
};

enum class Shape
{
    Tone,     ///< a cosine; pitch is its frequency in subbands, 64 is Nyquist
    Square,   ///< its sign
    Noise,    ///< uniform between -1 and 1
    Signs,    ///< -1 or 1 at random
    Impulses, ///< 1 every pitch frames, else 0
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

/// Blocks with the same layers; silence without layers.
struct Segment
{
    std::uint32_t blocks;
    std::vector<Layer> layers;
};

/// The description of a stream whose last block is measured. As a line of text:
///
///   RATE BITS plain|remap MODE FRAMES FORMATS SEED | BLOCKS SHAPE:PITCH:LEVEL:SLOPE:LEFT:RIGHT ... | BLOCKS ...
struct HostileSignal
{
    StreamFormat format;
    std::int32_t mode = 0;
    std::uint32_t frames = 64;       ///< of the last block; the others have 64
    std::uint32_t formatChanges = 0; ///< changes of width before the stream, each of which scales the smoothing pairs
    std::uint32_t seed = 1;          ///< of its noises
    std::vector<Segment> segments;
};

std::ostream& operator<<(std::ostream& stream, const HostileSignal& signal);

/// Throws std::invalid_argument.
HostileSignal hostileSignalFrom(const std::string& line);

/// The signals of a file, one per line; skips empty lines and lines that start with #. Throws std::runtime_error.
std::vector<HostileSignal> hostileSignalsIn(const std::string& file);

/// A processor that has processed all blocks of a signal except the last, and the last block.
class PlayedSignal
{
public:
    explicit PlayedSignal(const HostileSignal& signal);

    void processLastBlock() { lastBlock.process(hostObject, lastFrames); }

    zrk_tarn_processor_t& processor() { return hostObject; }
    HostBlock& block() { return lastBlock; }

private:
    zrk_tarn_processor_t hostObject;
    HostBlock lastBlock;
    std::uint32_t lastFrames;
};

/// Configures a processor, with a remap matrix without zeros.
void configure(zrk_tarn_processor_t& processor, std::int32_t mode);

} // namespace tests
