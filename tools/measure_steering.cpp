// Runs the engine with given steering thresholds: on recordings, and on test scenes to measure its steering.
//
// usage: measure_steering upmix RATE THRESHOLDS
//        measure_steering jitter RATE SEED THRESHOLDS
//        measure_steering response RATE SEED LEVEL THRESHOLDS
//
//   upmix     stereo to FL FR C, interleaved 32-bit samples, from standard input to standard output
//   jitter    standard deviation of the chosen position in a diffuse field, and of a still source half way between
//             left and centre, at 0, 6 and 12 dB re the power of the field in one channel
//   response  blocks until a source of this level, in dB, has moved 90 % of the way: left to right, left to centre
//
// The thresholds are 16 fast, 16 mid and 16 slow ones.
// SPDX-License-Identifier: MIT

#include "tools/steering_field.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using design::kGroups;
using design::Scene;
using design::SteeringField;
using design::Thresholds;

constexpr std::size_t kBlock = 64;
constexpr int kSettlingBlocks = 2000;

void upmix(std::uint32_t rateHz, const Thresholds& thresholds)
{
    const auto engine = design::makeEngine(rateHz, 32, thresholds);
    std::int32_t stereo[kBlock][2];
    std::int32_t outputs[kBlock][3];
    while (const std::size_t frames = std::fread(stereo, sizeof(stereo[0]), kBlock, stdin)) {
        for (std::size_t i = 0; i < frames; ++i) std::copy_n(stereo[i], 2, outputs[i]);
        const auto slot = [&outputs](std::size_t i) { return reinterpret_cast<std::uint8_t*>(&outputs[0][i]); };
        engine->SetChannelPtrs(slot(0), slot(1), slot(2), slot(2));
        engine->ProcessCine3InterLeave(static_cast<std::uint32_t>(frames), 3);
        if (std::fwrite(outputs, sizeof(outputs[0]), frames, stdout) != frames)
            throw std::runtime_error("cannot write to standard output");
    }
}

double amplitude(double levelDb)
{
    return std::pow(10.0, levelDb / 20.0);
}

/// Standard deviation of the chosen left/right and front/back values; variances are averaged over the groups.
double jitterOf(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds, const Scene& scene)
{
    constexpr int kBlocks = 6000;
    SteeringField field(rateHz, seed, thresholds);
    for (int i = 0; i < kSettlingBlocks; ++i) field.run(scene);
    double sums[2][kGroups] = {};
    double squares[2][kGroups] = {};
    for (int i = 0; i < kBlocks; ++i) {
        field.run(scene);
        for (std::size_t g = 0; g < kGroups; ++g) {
            const double chosen[2] = {static_cast<double>(field.engine().lrSlower[g]),
                                      static_cast<double>(field.engine().fbSlower[g])};
            for (int axis = 0; axis < 2; ++axis) {
                sums[axis][g] += chosen[axis];
                squares[axis][g] += chosen[axis] * chosen[axis];
            }
        }
    }
    double variance = 0.0;
    for (int axis = 0; axis < 2; ++axis)
        for (std::size_t g = 0; g < kGroups; ++g)
            variance += squares[axis][g] / kBlocks - std::pow(sums[axis][g] / kBlocks, 2.0);
    return std::sqrt(variance / kGroups);
}

void printJitter(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds)
{
    std::printf("%.4f", jitterOf(rateHz, seed, thresholds, Scene{}));
    for (const double levelDb : {0.0, 6.0, 12.0})
        std::printf(" %.4f", jitterOf(rateHz, seed, thresholds, {.position = 0.25, .sourceGain = amplitude(levelDb)}));
    std::printf("\n");
}

double meanLeftRight(const ZRKTarn& engine)
{
    double sum = 0.0;
    for (const float lr : engine.lrSlower) sum += static_cast<double>(lr);
    return sum / kGroups;
}

/// Blocks until the image of a source that jumps from left to another position has moved 90 % of the way, by the mean
/// left/right value of the groups over several jumps.
double responseOf(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds, double sourceGain, double to)
{
    constexpr std::uint64_t kJumps = 12;
    constexpr int kHold = 4000;
    constexpr int kEnd = 1000;
    constexpr double kArrived = 0.9;
    std::vector<double> course(kHold);
    double start = 0.0;
    for (std::uint64_t jump = 0; jump < kJumps; ++jump) {
        SteeringField field(rateHz, seed + jump, thresholds);
        Scene scene{.position = 0.0, .sourceGain = sourceGain};
        for (int i = 0; i < kSettlingBlocks; ++i) field.run(scene);
        start += meanLeftRight(field.engine()) / kJumps;
        scene.position = to;
        for (double& position : course) {
            field.run(scene);
            position += meanLeftRight(field.engine()) / kJumps;
        }
    }
    double end = 0.0;
    for (int i = kHold - kEnd; i < kHold; ++i) end += course[static_cast<std::size_t>(i)] / kEnd;
    const auto arrived = std::find_if(course.begin(), course.end(), [start, end](double position) {
        return std::fabs(position - start) >= kArrived * std::fabs(end - start);
    });
    return static_cast<double>(std::min<std::ptrdiff_t>(arrived - course.begin() + 1, kHold));
}

void printResponse(std::uint32_t rateHz, std::uint64_t seed, const Thresholds& thresholds, double levelDb)
{
    for (const double to : {1.0, 0.5})
        std::printf("%.0f ", responseOf(rateHz, seed, thresholds, amplitude(levelDb), to));
    std::printf("\n");
}

Thresholds readThresholds(char** arguments)
{
    Thresholds thresholds{};
    for (float* row : {thresholds.fast, thresholds.mid, thresholds.slow})
        for (std::size_t g = 0; g < kGroups; ++g) row[g] = std::stof(*arguments++);
    return thresholds;
}

} // namespace

int main(int argc, char** argv)
try {
    constexpr int kThresholds = 3 * static_cast<int>(kGroups);
    const std::string command = argc > 2 ? argv[1] : "";
    const int numbers = argc - kThresholds - 2; // after the command: rate, seed, level
    if (!(command == "upmix" && numbers == 1) && !(command == "jitter" && numbers == 2) &&
        !(command == "response" && numbers == 3)) {
        std::fputs("usage: measure_steering upmix RATE | jitter RATE SEED | response RATE SEED LEVEL, 48 THRESHOLDS\n",
                   stderr);
        return 64;
    }
    const auto rateHz = static_cast<std::uint32_t>(std::stoul(argv[2]));
    const Thresholds thresholds = readThresholds(argv + argc - kThresholds);
    if (command == "upmix") {
        upmix(rateHz, thresholds);
    } else if (command == "jitter") {
        printJitter(rateHz, std::stoull(argv[3]), thresholds);
    } else {
        printResponse(rateHz, std::stoull(argv[3]), thresholds, std::stod(argv[4]));
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "measure_steering: %s\n", error.what());
    return 1;
}
