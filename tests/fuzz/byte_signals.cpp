// Signals from a fuzzer's bytes.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/byte_signals.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace fuzz
{

namespace
{

constexpr std::int32_t kCeiling = 0x7fffffff;

/// A hash of two numbers.
std::uint32_t scrambled(std::uint64_t time, std::uint32_t seed)
{
    std::uint64_t x = (time + 1) * 0x9e3779b97f4a7c15 ^ std::uint64_t{seed} << 32;
    x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
    x = (x ^ x >> 27) * 0x94d049bb133111eb;
    return static_cast<std::uint32_t>(x >> 32);
}

/// A sine with a number of periods per 256 frames.
std::int32_t toneAt(std::uint64_t time, std::uint32_t periods)
{
    constexpr double kRound = 2.0 * std::numbers::pi / 256.0;
    static const auto kSine = [] {
        std::array<std::int32_t, 256> sine{};
        for (std::size_t i = 0; i < sine.size(); ++i)
            sine[i] = static_cast<std::int32_t>(std::lround(kCeiling * std::sin(kRound * static_cast<double>(i))));
        return sine;
    }();
    return kSine[time * periods % 256];
}

} // namespace

ByteSignal::ByteSignal(ByteReader& bytes)
{
    constexpr std::uint32_t kKinds = 10;
    kind = static_cast<Kind>(bytes.below(kKinds));
    if (kind == Kind::Silence) return;
    if (kind == Kind::Bytes) {
        pattern = bytes.bytes(bytes.below(64));
        return;
    }
    // Both levels in one byte; most are loud.
    constexpr std::uint8_t kShifts[] = {0, 0, 0, 1, 1, 2, 3, 5, 8, 11, 14, 15, 16, 20, 24, 31};
    const std::uint8_t levels = bytes.byte();
    shift[0] = kShifts[levels % 16];
    shift[1] = kShifts[levels / 16];
    for (std::uint8_t& value : detail) value = bytes.byte();
}

ByteSignal::Frame ByteSignal::frameAt(std::uint64_t time) const
{
    switch (kind) {
    case Kind::DiffuseNoise:
        return {static_cast<std::int32_t>(scrambled(time, detail[0])),
                static_cast<std::int32_t>(scrambled(time, 256u + detail[1]))};
    case Kind::CentredNoise: {
        const auto both = static_cast<std::int32_t>(scrambled(time, detail[0]));
        return {both, both};
    }
    case Kind::OppositeNoise: {
        const auto left = static_cast<std::int32_t>(scrambled(time, detail[0]));
        return {left, ~left};
    }
    case Kind::Tone: {
        const std::int32_t both = toneAt(time, detail[0]);
        return {both, both};
    }
    case Kind::TwoTones:
        return {toneAt(time, detail[0]), toneAt(time, detail[1])};
    case Kind::Steps:
        return {time / (detail[0] + 1u) % 2 == 0 ? kCeiling : ~kCeiling,
                time / (detail[1] + 1u) % 2 == 0 ? kCeiling : ~kCeiling};
    case Kind::Impulses:
        return {time % (detail[0] + 1u) == 0 ? kCeiling : 0, time % (detail[1] + 1u) == 0 ? ~kCeiling : 0};
    default:
        return {(detail[0] - 128) * 0x1000000, (detail[1] - 128) * 0x1000000};
    }
}

void ByteSignal::writeBytes(HostBuffer& buffer) const
{
    if (pattern.empty()) return;
    for (std::size_t i = 0; i < buffer.size(); ++i) buffer.data()[i] = pattern[i % pattern.size()];
}

void ByteSignal::write(HostBuffer& buffer, std::uint64_t time, std::uint32_t frames, std::uint32_t slots,
                       std::uint32_t bitsPerSample) const
{
    if (kind == Kind::Silence) return;
    if (kind == Kind::Bytes) return writeBytes(buffer);

    // Right-justified in little-endian containers; nothing for unsupported widths.
    const std::uint64_t bytes = (std::uint64_t{bitsPerSample} + 7) / 8;
    if (bytes < 2 || bytes > 4) return;
    const auto unused = static_cast<int>(32 - bitsPerSample);
    std::uint8_t* position = buffer.data();
    for (std::uint32_t i = 0; i < frames; ++i) {
        const Frame frame = frameAt(time + i);
        const std::int32_t sides[2] = {frame.left >> shift[0] >> unused, frame.right >> shift[1] >> unused};
        for (std::uint32_t slot = 0; slot < slots; ++slot)
            for (std::uint32_t j = 0; j < bytes; ++j)
                *position++ = static_cast<std::uint8_t>(sides[slot % 2] >> (8 * j));
    }
}

} // namespace fuzz
