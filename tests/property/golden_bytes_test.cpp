#include "host/zrk_tarn_processor.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>

// One checksum per stream, the same for every compiler, optimisation level and way of linking. The inputs are integers
// from a standardised generator, so that nothing but the library decides the bytes.

namespace tests
{

namespace
{

struct Stream
{
    std::uint32_t rateHz;
    std::uint32_t bits;
    std::int32_t mode;
    std::uint32_t slots;
    std::uint64_t checksum;
};

std::ostream& operator<<(std::ostream& stream, const Stream& golden)
{
    return stream << golden.rateHz << " Hz, " << golden.bits << " bits, mode " << golden.mode << ", " << golden.slots
                  << " slots";
}

constexpr std::uint32_t kFrames = 1000;

/// Noise whose place and level change from buffer to buffer, in whole numbers.
void fillWithMovingNoise(GuardedBuffer& buffer, const Stream& stream, std::uint32_t turn, Random& random)
{
    for (std::uint32_t i = 0; i < kFrames; ++i) {
        const auto source = static_cast<std::int32_t>(random.bits());
        const auto ambience = static_cast<std::int32_t>(random.bits()) >> 6;
        const int place = static_cast<int>(turn % 5); // 0 left ... 4 right
        const auto left = (static_cast<std::int64_t>(source) * (4 - place)) / 8 + ambience;
        const auto right = (static_cast<std::int64_t>(source) * place) / 8 - ambience / 2;
        const int level = static_cast<int>(turn % 3);
        for (std::uint32_t slot = 0; slot < stream.slots; ++slot)
            buffer.set(i, slot, (slot == 0 ? left : right) >> (32 - stream.bits) >> (4 * level));
    }
}

std::uint64_t checksumOf(const Stream& stream)
{
    zrk_tarn_processor_t processor;
    processor.setup(stream.mode, 0, 1.0f);
    unsigned gains[3][4] = {
        {0x10000000, 0, 0x08000000, 0}, {0, 0x10000000, 0, 0x08000000}, {0x0b504f33, 0x0b504f33, 0, 0}};
    processor.set_remap_coeff(gains);
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0x40000, 0x80000}};

    std::uint64_t hash = 0xcbf29ce484222325u;
    Random random(stream.rateHz + stream.bits);
    for (std::uint32_t turn = 0; turn < 30; ++turn) {
        GuardedBuffer buffer(kFrames, stream.slots, stream.bits);
        fillWithMovingNoise(buffer, stream, turn, random);
        processor.process(buffer.data(), kFrames, stream.slots, stream.rateHz, stream.bits, &assignment);
        EXPECT_TRUE(buffer.guardsIntact());
        for (std::size_t i = 0; i < buffer.size(); ++i) hash = (hash ^ buffer.data()[i]) * 0x100000001b3u;
    }
    return hash;
}

constexpr Stream kStreams[] = {
    {32000, 16, 0, 3, 0x6901f920d58623cbu},  {44100, 16, 0, 6, 0x8dd849e52b55827au},
    {48000, 16, 0, 6, 0xc9210c366da2ecacu},  {48000, 24, 1, 3, 0x3ed9e0a3dd9ce60fu},
    {48000, 32, 0, 8, 0x3e8640cd8a26bbabu},  {64000, 20, 0, 4, 0xf2e2377c22be0756u},
    {88200, 24, 0, 8, 0x6c538168ecbc4a6bu},  {96000, 24, 1, 6, 0xa2aa994b8d6c7d07u},
    {192000, 32, 0, 3, 0x8d44fb8f03e3eb37u}, {192000, 16, 1, 8, 0x4dc3d895acfb01d3u},
};

} // namespace

class GoldenBytes : public testing::TestWithParam<Stream>
{};

TEST_P(GoldenBytes, AreTheSameForEveryBuild)
{
    const std::uint64_t checksum = checksumOf(GetParam());
    EXPECT_EQ(checksum, GetParam().checksum) << std::hex << "0x" << checksum;
}

INSTANTIATE_TEST_SUITE_P(, GoldenBytes, testing::ValuesIn(kStreams));

} // namespace tests
