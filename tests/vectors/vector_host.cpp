// A host that runs the lines of host-sessions.txt.
// SPDX-License-Identifier: MIT
#include "tests/vectors/vector_host.h"

#include <algorithm>
#include <bit>
#include <istream>
#include <stdexcept>

namespace tests
{

namespace
{

constexpr std::int64_t kFull = std::int64_t{1} << 31;
constexpr std::int64_t kTop = kFull - 1;
constexpr std::int64_t kBottom = -kFull;

std::uint64_t checksumOf(const std::vector<std::uint8_t>& bytes)
{
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const std::uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001b3u;
    return hash;
}

/// An integer sine with a period of 2^32: two parabolas, corrected by their own square.
std::int64_t sine(std::uint32_t phase)
{
    const std::int64_t position = static_cast<std::int32_t>(phase);
    const std::int64_t arc = (position * (kFull - std::abs(position))) >> 29;
    const std::int64_t bend = (arc * (std::abs(arc) - kFull)) >> 31;
    return std::clamp(arc + ((bend * 483183821) >> 31), kBottom, kTop);
}

/// Alternates between full scale and minus full scale every `frames` frames.
std::int64_t square(std::uint32_t time, std::uint32_t frames)
{
    return time / frames % 2 == 0 ? kTop : kBottom;
}

} // namespace

std::optional<Checksums> VectorHost::runLine(std::istream& words)
{
    std::string command;
    words >> command;
    std::optional<Checksums> checksums;
    if (command == "session") {
        beginSession(words);
    } else if (command == "setup") {
        setup(words);
    } else if (command == "gains") {
        setGains(words);
    } else if (command == "format") {
        words >> rateHz >> bits;
    } else if (command == "slots") {
        setSlots(words);
    } else if (command == "buffer") {
        checksums = process(words);
    } else if (command == "null") {
        std::uint32_t frames = 0;
        words >> frames;
        call(nullptr, frames);
    } else {
        throw std::invalid_argument("command " + command);
    }
    if (words.fail()) throw std::invalid_argument("words of " + command);
    return checksums;
}

void VectorHost::beginSession(std::istream& words)
{
    std::uint64_t seed = 0;
    words >> name >> seed;
    bufferCount = 0;
    processor = std::make_unique<zrk_tarn_processor_t>();
    random = SplitMix(seed);
    nextTime = 0;
}

void VectorHost::setup(std::istream& words)
{
    std::int32_t mode = 0;
    std::int32_t option = 0;
    std::uint32_t mixFraction = 0;
    words >> mode >> option >> std::hex >> mixFraction;
    processor->setup(mode, option, std::bit_cast<float>(mixFraction));
}

void VectorHost::setGains(std::istream& words)
{
    unsigned gains[3][4]{};
    for (auto& row : gains)
        for (unsigned& gain : row) words >> std::hex >> gain;
    processor->set_remap_coeff(gains);
}

void VectorHost::setSlots(std::istream& words)
{
    words >> slots;
    assignment = {};
    isAssigned = true;
    for (std::uint32_t i = 0; isAssigned && i < std::min(slots, 8u); ++i) {
        std::string code;
        words >> code;
        isAssigned = code != "null";
        if (isAssigned) assignment.code[i] = static_cast<std::uint32_t>(std::stoul(code, nullptr, 16));
    }
}

Checksums VectorHost::process(std::istream& words)
{
    std::uint32_t frames = 0;
    std::string signal;
    std::uint32_t shift = 0;
    words >> frames >> signal >> shift;

    // Exactly as large as the samples, so that a sanitizer detects the first byte beyond them.
    std::vector<std::uint8_t> buffer(std::size_t{frames} * slots * ((bits + 7) / 8));
    fill(buffer, frames, signal, shift);
    Checksums checksums{};
    checksums.input = checksumOf(buffer);
    call(buffer.data(), frames);
    checksums.output = checksumOf(buffer);
    ++bufferCount;
    return checksums;
}

std::uint32_t VectorHost::call(void* buffer, std::uint32_t frames)
{
    return processor->process(buffer, frames, slots, rateHz, bits, isAssigned ? &assignment : nullptr);
}

VectorHost::Frame VectorHost::nextFrame(const std::string& signal)
{
    const std::uint32_t time = nextTime++;
    if (signal == "silence") return {0, 0};
    if (signal == "noise" || signal == "raw") {
        const std::int64_t left = draw();
        return {left, draw()};
    }
    if (signal == "centre") {
        const std::int64_t both = draw();
        return {both, both};
    }
    if (signal == "opposite") {
        const std::int64_t left = draw();
        return {left, -1 - left};
    }
    if (signal == "left") return {draw(), 0};
    if (signal == "right") return {0, draw()};
    if (signal == "moving") {
        const std::int64_t position = time / 512 % 9;
        const std::int64_t source = draw();
        const std::int64_t ambience = draw() >> 5;
        return {((source * (8 - position)) >> 4) + ambience, ((source * position) >> 4) - (ambience >> 1)};
    }
    if (signal == "low") {
        const std::int64_t both = sine(13421773u * time);
        return {both, both};
    }
    if (signal == "mid") {
        const std::int64_t left = sine(312055071u * time);
        return {left, left >> 2};
    }
    if (signal == "high") return {0, sine(1862270976u * time)};
    if (signal == "steady") {
        const std::int64_t lower = sine(201326592u * time);
        const std::int64_t upper = sine(1006632960u * time);
        return {(lower >> 1) + (upper >> 3), (lower >> 2) + (upper >> 2)};
    }
    if (signal == "impulses") return {time % 301 == 0 ? kTop : 0, time % 301 == 150 ? kBottom : 0};
    if (signal == "square") return {square(time, 50), square(time, 77)};
    if (signal == "rails") {
        const std::int64_t both = draw() < 0 ? kBottom : kTop;
        return {both, both};
    }
    throw std::invalid_argument("signal " + signal);
}

void VectorHost::fill(std::vector<std::uint8_t>& buffer, std::uint32_t frames, const std::string& signal,
                      std::uint32_t shift)
{
    const std::uint32_t bytes = (bits + 7) / 8;
    const std::uint32_t totalShift = signal == "raw" ? 0 : std::min(shift + 32 - std::min(bits, 32u), 63u);
    auto position = buffer.begin();
    for (std::uint32_t i = 0; i < frames; ++i) {
        const Frame frame = nextFrame(signal);
        for (std::uint32_t slot = 0; slot < slots; ++slot) {
            const std::uint32_t code = slot < 8 ? assignment.code[slot] : 0;
            const bool left = code == 0x2000 || code == 0x8000;
            const bool right = code == 0x4000 || code == 0x10000;
            const std::int64_t sample = (left ? frame.left : right ? frame.right : draw()) >> totalShift;
            for (std::uint32_t j = 0; j < bytes; ++j)
                *position++ = static_cast<std::uint8_t>(static_cast<std::uint64_t>(sample) >> (8 * j));
        }
    }
}

} // namespace tests
