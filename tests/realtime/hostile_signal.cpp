// Signals whose blocks are expensive, and how to process them.
// SPDX-License-Identifier: MIT
#include "tests/realtime/hostile_signal.h"

#include "tests/support/random.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <numbers>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace tests
{

namespace
{

constexpr std::size_t kBlockFrames = 64;
constexpr std::array<std::string_view, 6> kShapeNames = {"tone", "square", "noise", "signs", "impulses", "constant"};

Shape shapeNamed(std::string_view name)
{
    const auto found = std::find(kShapeNames.begin(), kShapeNames.end(), name);
    if (found == kShapeNames.end()) throw std::invalid_argument("no shape " + std::string(name));
    return static_cast<Shape>(found - kShapeNames.begin());
}

/// The value of a shape at a time in frames from the start of its segment.
double valueOf(const Layer& layer, std::uint64_t time, Random& random)
{
    const double cosine = std::cos(std::numbers::pi * layer.pitch / 64.0 * static_cast<double>(time));
    switch (layer.shape) {
    case Shape::Tone:
        return cosine;
    case Shape::Square:
        return cosine < 0.0 ? -1.0 : 1.0;
    case Shape::Noise:
        return random.uniform();
    case Shape::Signs:
        return random.chance(2) ? 1.0 : -1.0;
    case Shape::Impulses:
        return time % std::max<std::uint64_t>(1, static_cast<std::uint64_t>(layer.pitch)) == 0 ? 1.0 : 0.0;
    case Shape::Constant:
        return 1.0;
    }
    return 0.0;
}

void fill(HostBlock& block, const Segment& segment, std::uint32_t number, Random& random)
{
    std::array<double, kBlockFrames> left{};
    std::array<double, kBlockFrames> right{};
    for (const Layer& layer : segment.layers) {
        const double gain = std::pow(10.0, (layer.level + layer.slope * number) / 20.0);
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
            const double value = gain * valueOf(layer, number * kBlockFrames + i, random);
            left[i] += layer.left * value;
            right[i] += layer.right * value;
        }
    }
    for (std::size_t i = 0; i < kBlockFrames; ++i) block.put(i, left[i], right[i]);
}

/// The non-empty words between separators.
std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);)
        if (!word.empty()) words.push_back(word);
    return words;
}

std::uint32_t numberFrom(const std::string& word)
{
    std::size_t length = 0;
    const unsigned long value = std::stoul(word, &length);
    if (length != word.size()) throw std::invalid_argument(word);
    return static_cast<std::uint32_t>(value);
}

Segment segmentFrom(const std::string& text)
{
    const auto words = split(text, ' ');
    if (words.empty()) throw std::invalid_argument("a segment without a length");
    Segment segment{numberFrom(words[0]), {}};
    for (std::size_t w = 1; w < words.size(); ++w) {
        const auto f = split(words[w], ':');
        if (f.size() != 6) throw std::invalid_argument(words[w]);
        segment.layers.push_back(
            {shapeNamed(f[0]), std::stod(f[1]), std::stod(f[2]), std::stod(f[3]), std::stod(f[4]), std::stod(f[5])});
    }
    return segment;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const StreamFormat& format)
{
    return stream << format.rateHz << ' ' << format.bits << ' ' << (format.remap ? "remap" : "plain");
}

HostBlock::HostBlock(const StreamFormat& format)
    : streamFormat(format),
      assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0x40000, 0x80000}},
      storage(kBlockFrames * format.slots() * format.sampleBytes())
{}

void HostBlock::put(std::size_t frame, double left, double right)
{
    const std::size_t bytes = streamFormat.sampleBytes();
    const double top = std::ldexp(1.0, static_cast<int>(8 * bytes) - 1);
    std::uint8_t* position = storage.data() + frame * streamFormat.slots() * bytes;
    for (const double value : {left, right}) {
        const auto sample = static_cast<std::int64_t>(std::clamp(std::nearbyint(value * top), -top, top - 1.0));
        for (std::size_t j = 0; j < bytes; ++j) *position++ = static_cast<std::uint8_t>(sample >> (8 * j));
    }
}

void HostBlock::process(zrk_tarn_processor_t& processor, std::uint32_t frames)
{
    processor.process(storage.data(), frames, streamFormat.slots(), streamFormat.rateHz, streamFormat.bits,
                      &assignment);
}

std::ostream& operator<<(std::ostream& stream, const HostileSignal& signal)
{
    stream << signal.format << ' ' << signal.mode << ' ' << signal.frames << ' ' << signal.formatChanges << ' '
           << signal.seed;
    for (const Segment& segment : signal.segments) {
        stream << " | " << segment.blocks;
        for (const Layer& layer : segment.layers)
            stream << ' ' << kShapeNames[static_cast<std::size_t>(layer.shape)] << ':' << layer.pitch << ':'
                   << layer.level << ':' << layer.slope << ':' << layer.left << ':' << layer.right;
    }
    return stream;
}

HostileSignal hostileSignalFrom(const std::string& line)
{
    const auto parts = split(line, '|');
    const auto head = parts.empty() ? parts : split(parts[0], ' ');
    if (parts.size() < 2 || head.size() != 7 || (head[2] != "plain" && head[2] != "remap"))
        throw std::invalid_argument(line);

    HostileSignal signal;
    signal.format = {numberFrom(head[0]), numberFrom(head[1]), head[2] == "remap"};
    signal.mode = static_cast<std::int32_t>(numberFrom(head[3]));
    signal.frames = numberFrom(head[4]);
    signal.formatChanges = numberFrom(head[5]);
    signal.seed = numberFrom(head[6]);
    if (signal.frames > kBlockFrames) throw std::invalid_argument(line);
    for (std::size_t p = 1; p < parts.size(); ++p) signal.segments.push_back(segmentFrom(parts[p]));
    return signal;
}

std::vector<HostileSignal> hostileSignalsIn(const std::string& file)
{
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("cannot read " + file);
    std::vector<HostileSignal> signals;
    for (std::string line; std::getline(stream, line);)
        if (!line.empty() && line[0] != '#') signals.push_back(hostileSignalFrom(line));
    return signals;
}

void configure(zrk_tarn_processor_t& processor, std::int32_t mode)
{
    unsigned gains[3][4];
    for (auto& row : gains)
        for (unsigned& gain : row) gain = 0x04000000;
    processor.set_remap_coeff(gains);
    processor.setup(mode, 0, 1.0f);
}

PlayedSignal::PlayedSignal(const HostileSignal& signal) : lastBlock(signal.format), lastFrames(signal.frames)
{
    configure(hostObject, signal.mode);
    for (std::uint32_t i = 0; i < signal.formatChanges; ++i)
        hostObject.process(nullptr, 0, 0, signal.format.rateHz, i % 2 == 0 ? 16 : 24, nullptr);
    lastBlock.process(hostObject, 0); // sets the format, also for a stream of one block

    Random random(signal.seed);
    for (std::size_t s = 0; s < signal.segments.size(); ++s) {
        const Segment& segment = signal.segments[s];
        for (std::uint32_t b = 0; b < segment.blocks; ++b) {
            fill(lastBlock, segment, b, random);
            const bool last = s + 1 == signal.segments.size() && b + 1 == segment.blocks;
            if (!last) lastBlock.process(hostObject, kBlockFrames);
        }
    }
}

} // namespace tests
