// The figures of `tarn info` for every instruction set, against a plain form of its filters.
// SPDX-License-Identifier: MIT
#include "cli/stereo_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace tarn_cli
{

using tarn::StereoRecord;

namespace
{

constexpr int kBands = StereoRecord::kBands;
constexpr std::size_t kFrames = 5000;

StereoRecord filters(unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    StereoRecord record{};
    record.highPassPole = 0.999;
    for (int s = 0; s < StereoRecord::kSections; ++s) {
        for (int b = 0; b < kBands; ++b) {
            // The poles are inside the unit circle.
            const double radius = 0.9 + 0.09 * value(engine);
            record.gain[s][b] = 0.5 + 0.4 * value(engine);
            record.a1[s][b] = -2.0 * radius * value(engine);
            record.a2[s][b] = radius * radius;
        }
    }
    return record;
}

std::vector<double> noise(unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<double> stereo(2 * kFrames);
    std::generate(stereo.begin(), stereo.end(), [&] { return value(engine); });
    return stereo;
}

/// Runs the filters one by one, frame by frame.
void measureReference(StereoRecord& record, const double* stereo, std::size_t frames)
{
    for (std::size_t i = 0; i < frames; ++i) {
        const double* const frame = stereo + 2 * i;
        for (int b = 0; b < kBands; ++b) {
            double x[2] = {frame[0], frame[1]};
            for (int side = 0; side < 2; ++side) {
                for (int s = 0; s < StereoRecord::kSections; ++s) {
                    double& state1 = record.state1[side][s][b];
                    double& state2 = record.state2[side][s][b];
                    const double in = record.gain[s][b] * x[side];
                    x[side] = in - state1;
                    state1 = state2 + record.a1[s][b] * x[side];
                    state2 = in + record.a2[s][b] * x[side];
                }
            }
            record.bandSums[0][b] += x[0] * x[0];
            record.bandSums[1][b] += x[1] * x[1];
            record.bandSums[2][b] += (x[0] + x[1]) * (x[0] + x[1]);
            record.bandSums[3][b] += (x[0] - x[1]) * (x[0] - x[1]);
        }
        double* const h = record.highPass;
        for (int side = 0; side < 2; ++side) {
            h[side] = record.highPassPole * h[side] + frame[side] - record.previous[side];
            record.previous[side] = frame[side];
            record.largest = std::max(record.largest, std::abs(frame[side]));
        }
        record.totalSums[0] += h[0] * h[0];
        record.totalSums[1] += h[1] * h[1];
        record.totalSums[2] += (h[0] + h[1]) * (h[0] + h[1]);
        record.totalSums[3] += (h[0] - h[1]) * (h[0] - h[1]);
    }
}

} // namespace

TEST(StereoRecord, FiguresAreTheSameForEveryInstructionSet)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const std::vector<double> stereo = noise(seed);
        StereoRecord plain = filters(seed);
        measureReference(plain, stereo.data(), kFrames);
        EXPECT_GT(plain.bandSums[3][kBands - 1], 0.0);
        ASSERT_FALSE(tarn::usableVariants().empty());
        for (const auto& [instructionSet, measure] : tarn::usableVariants()) {
            // The sizes of the pieces must not matter.
            StereoRecord record = filters(seed);
            std::size_t done = 0;
            for (const std::size_t piece : {std::size_t{1}, std::size_t{0}, std::size_t{2}, std::size_t{700}}) {
                measure(record, stereo.data() + 2 * done, piece);
                done += piece;
            }
            measure(record, stereo.data() + 2 * done, kFrames - done);
            EXPECT_EQ(std::memcmp(&record, &plain, sizeof record), 0) << instructionSet << ", seed " << seed;
        }
    }
}

} // namespace tarn_cli
