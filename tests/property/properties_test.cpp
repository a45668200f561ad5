// Tests of properties of the upmix: delay, position of sources, splitting of buffers.
// SPDX-License-Identifier: MIT
#include "host/zrk_tarn_processor.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tests
{

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::size_t kDelayFrames = 960;

/// Three slots of 24 bits: a stereo signal in, front left, front right and centre out.
class Upmix
{
public:
    Upmix(std::uint32_t rateHz, std::size_t frames) : sampleRateHz(rateHz), frameCount(frames), samples(frames, 3, 24)
    {}

    void set(std::size_t frame, double left, double right)
    {
        samples.set(frame, 0, sampleOf(left, 24));
        samples.set(frame, 1, sampleOf(right, 24));
    }

    /// Runs the buffer in pieces of a number of frames.
    void run(std::size_t pieceFrames)
    {
        zrk_tarn_processor_t processor;
        audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200}};
        for (std::size_t done = 0; done < frameCount; done += pieceFrames)
            processor.process(samples.data() + done * 9,
                              static_cast<std::uint32_t>(std::min(pieceFrames, frameCount - done)), 3, sampleRateHz, 24,
                              &assignment);
        EXPECT_TRUE(samples.guardsIntact());
    }

    std::int32_t get(std::size_t frame, std::size_t slot) const { return samples.get(frame, slot); }

    /// Mean square of a slot from a frame on.
    double power(std::size_t slot, std::size_t from) const
    {
        double sum = 0.0;
        for (std::size_t i = from; i < frameCount; ++i) sum += std::pow(static_cast<double>(samples.get(i, slot)), 2);
        return sum / static_cast<double>(frameCount - from);
    }

    const GuardedBuffer& buffer() const { return samples; }

private:
    std::uint32_t sampleRateHz;
    std::size_t frameCount;
    GuardedBuffer samples;
};

Upmix upmixed(Signal signal, std::size_t frames, std::size_t pieceFrames, std::uint32_t rateHz = 48000)
{
    Random random(3);
    Upmix upmix(rateHz, frames);
    for (std::size_t i = 0; i < frames; ++i) {
        const Frame frame = frameOf(signal, i, random);
        upmix.set(i, frame.left, frame.right);
    }
    upmix.run(pieceFrames);
    return upmix;
}

/// Shares of the output power in front left, front right and centre once the steering has settled.
struct Shares
{
    double left;
    double right;
    double centre;
};

Shares sharesOf(Signal signal)
{
    const Upmix upmix = upmixed(signal, 96000, 96000);
    const double total = upmix.power(0, 48000) + upmix.power(1, 48000) + upmix.power(2, 48000);
    return {upmix.power(0, 48000) / total, upmix.power(1, 48000) / total, upmix.power(2, 48000) / total};
}

} // namespace

TEST(Delay, Is960FramesAtEveryRate)
{
    for (const std::uint32_t rateHz : kRatesHz) {
        for (const std::size_t at : {64u, 100u, 127u}) {
            Upmix upmix(rateHz, 4096);
            upmix.set(at, 0.5, 0.5);
            upmix.run(4096);
            for (std::size_t slot = 0; slot < 3; ++slot) {
                std::size_t peak = 0;
                for (std::size_t i = 0; i < 4096; ++i)
                    if (std::abs(upmix.get(i, slot)) > std::abs(upmix.get(peak, slot))) peak = i;
                EXPECT_EQ(peak, at + kDelayFrames) << rateHz << " Hz, slot " << slot;
            }
        }
    }
}

TEST(Position, CentredSourceGoesToTheCentre)
{
    EXPECT_GT(sharesOf(Signal::CentredNoise).centre, 0.95);
}

TEST(Position, LeftSourceGoesToFrontLeft)
{
    const Shares shares = sharesOf(Signal::LeftNoise);
    EXPECT_GT(shares.left, 0.95);
    EXPECT_LT(shares.right, 0.001);
}

TEST(Position, DiffuseFieldStaysWide)
{
    const Shares shares = sharesOf(Signal::DiffuseNoise);
    EXPECT_GT(shares.left, 0.3);
    EXPECT_GT(shares.right, 0.3);
    EXPECT_NEAR(shares.left / shares.right, 1.0, 0.05);
}

TEST(Split, AtBlockBoundariesDoesNotChangeTheOutput)
{
    for (const Signal signal : {Signal::TravellingSource, Signal::SteadyTones, Signal::Bursts}) {
        const Upmix whole = upmixed(signal, 6400, 6400);
        for (const std::size_t piece : {64u, 128u, 192u, 1024u, 4096u})
            EXPECT_EQ(upmixed(signal, 6400, piece).buffer(), whole.buffer()) << signal << " in pieces of " << piece;
    }
}

TEST(Split, InsideABlockChangesTheOutput)
{
    EXPECT_NE(upmixed(Signal::DiffuseNoise, 6400, 100).buffer(), upmixed(Signal::DiffuseNoise, 6400, 6400).buffer());
}

TEST(Mirror, SwappedInputsSwapTheFronts)
{
    // Not exact: the interpolations left and right of the middle are equivalent but round differently.
    constexpr double kRounding = 1e-5 * 8388608.0;

    constexpr std::size_t kFrames = 48000;
    Random random(5);
    Upmix upmix(48000, kFrames);
    Upmix mirrored(48000, kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        const Frame frame = frameOf(Signal::TravellingSource, i, random);
        upmix.set(i, frame.left, frame.right);
        mirrored.set(i, frame.right, frame.left);
    }
    upmix.run(kFrames);
    mirrored.run(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        ASSERT_NEAR(upmix.get(i, 0), mirrored.get(i, 1), kRounding) << "frame " << i;
        ASSERT_NEAR(upmix.get(i, 1), mirrored.get(i, 0), kRounding) << "frame " << i;
        ASSERT_NEAR(upmix.get(i, 2), mirrored.get(i, 2), kRounding) << "frame " << i;
    }
}

} // namespace tests
