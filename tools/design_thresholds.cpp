// Designs the steering thresholds as constant-false-alarm detection, and measures what they do.
//
// The stronger the steering of a group, the faster the group follows it. In a diffuse field, which has no source, all
// steering is a false alarm. The thresholds are the steering magnitudes that a diffuse field exceeds at given rates, so
// that its image stays stable and stronger steering is followed at once.
//
// usage: design_thresholds table | rates | sweep
//
//   table   prints engine/thresholds.cpp
//   rates   false-alarm rates of the engine's thresholds at every sample rate
//   sweep   image jitter against response over the three rates
//
// H. Rohling, Radar CFAR thresholding in clutter and multiple target situations, IEEE Trans. AES-19, 1983.
// SPDX-License-Identifier: MIT

#include "tools/steering_field.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace
{

using design::Scene;
using design::SteeringField;
using design::Thresholds;

constexpr std::size_t kGroups = 16;
constexpr int kSettlingBlocks = 2000;

/// How often steering may exceed a threshold in a diffuse field.
struct FalseAlarmRates
{
    double fast;
    double mid;
    double slow;
};

constexpr FalseAlarmRates kOperatingPoint = {0.01, 0.10, 0.50};

double steeringOf(const ZRKTarn& engine, std::size_t group)
{
    return static_cast<double>(std::max(std::fabs(engine.steerLR[group]), std::fabs(engine.steerFB[group])));
}

/// Histograms of the steering magnitudes of every group, from 0 to 1, accurate to the third decimal.
class Distribution
{
public:
    /// Runs a diffuse field for a number of blocks after it has settled.
    Distribution(SteeringField& field, int blocks)
    {
        for (int i = 0; i < kSettlingBlocks; ++i) field.run(Scene{});
        for (int i = 0; i < blocks; ++i) {
            field.run(Scene{});
            for (std::size_t g = 0; g < kGroups; ++g) ++counts[g][binOf(steeringOf(field.engine(), g))];
        }
    }

    void add(const Distribution& other)
    {
        for (std::size_t g = 0; g < kGroups; ++g)
            for (std::size_t bin = 0; bin < kBins; ++bin) counts[g][bin] += other.counts[g][bin];
    }

    /// The magnitude that the given share of blocks reaches.
    double quantile(std::size_t group, double rate) const
    {
        const double allowed = rate * total(group);
        double above = 0.0;
        std::size_t bin = kBins;
        while (bin > 0 && above + counts[group][bin - 1] <= allowed) above += counts[group][--bin];
        return static_cast<double>(bin) / kBins;
    }

    /// The share of blocks that reach a magnitude.
    double rateAbove(std::size_t group, double magnitude) const
    {
        double above = 0.0;
        for (std::size_t bin = binOf(magnitude); bin < kBins; ++bin) above += counts[group][bin];
        return above / total(group);
    }

private:
    static constexpr std::size_t kBins = 20000;

    static std::size_t binOf(double magnitude)
    {
        return std::min(static_cast<std::size_t>(magnitude * kBins), kBins - 1);
    }

    // cppcheck-suppress unusedPrivateFunction ; the initialiser of counts calls it
    static std::array<std::vector<double>, kGroups> filledWithZeros()
    {
        std::array<std::vector<double>, kGroups> zeros;
        zeros.fill(std::vector<double>(kBins));
        return zeros;
    }

    double total(std::size_t group) const
    {
        double sum = 0.0;
        for (const double count : counts[group]) sum += count;
        return sum;
    }

    std::array<std::vector<double>, kGroups> counts = filledWithZeros();
};

/// The distribution of all runs, and those of the single runs.
struct Measured
{
    Distribution whole;
    std::vector<Distribution> runs;
};

/// Independent runs in parallel on all processors. Opens every engine before the first one runs.
Measured measure(std::uint32_t rateHz, int runs, int blocksPerRun, std::uint64_t firstSeed = 1)
{
    std::vector<SteeringField> fields;
    fields.reserve(static_cast<std::size_t>(runs));
    for (int run = 0; run < runs; ++run) fields.emplace_back(rateHz, firstSeed + static_cast<std::uint64_t>(run));

    const std::size_t atOnce = std::max(1u, std::thread::hardware_concurrency());
    std::vector<Distribution> parts;
    for (std::size_t first = 0; first < fields.size(); first += atOnce) {
        std::vector<std::future<Distribution>> running;
        for (std::size_t run = first; run < std::min(first + atOnce, fields.size()); ++run)
            running.push_back(std::async(
                std::launch::async, [&fields, run, blocksPerRun] { return Distribution(fields[run], blocksPerRun); }));
        for (std::future<Distribution>& run : running) parts.push_back(run.get());
    }
    Distribution whole = parts.front();
    for (std::size_t run = 1; run < parts.size(); ++run) whole.add(parts[run]);
    return {whole, parts};
}

/// A quantile smoothed over neighbouring groups with the binomial weights 1, 4, 6, 4, 1; the outermost groups are
/// repeated.
double smoothedQuantile(const Distribution& field, std::size_t group, double rate)
{
    constexpr double kWeights[5] = {1.0 / 16.0, 4.0 / 16.0, 6.0 / 16.0, 4.0 / 16.0, 1.0 / 16.0};

    double smoothed = 0.0;
    for (std::size_t k = 0; k < 5; ++k)
        smoothed += kWeights[k] * field.quantile(std::clamp<std::size_t>(group + k, 2, kGroups + 1) - 2, rate);
    return smoothed;
}

/// The standard error of a smoothed quantile, from its spread between the runs.
double standardError(const Measured& field, std::size_t group, double rate)
{
    double sum = 0.0;
    double squares = 0.0;
    for (const Distribution& run : field.runs) {
        const double value = smoothedQuantile(run, group, rate);
        sum += value;
        squares += value * value;
    }
    const auto n = static_cast<double>(field.runs.size());
    return std::sqrt(std::max(0.0, squares / n - sum * sum / (n * n)) / (n - 1.0));
}

/// One row: the smoothed quantiles, rounded to three decimals.
void fillRow(const Distribution& field, double rate, float (&row)[kGroups])
{
    for (std::size_t g = 0; g < kGroups; ++g)
        row[g] = static_cast<float>(std::round(1000.0 * smoothedQuantile(field, g, rate)) / 1000.0);
}

/// The three rows; if rounding makes two thresholds of a group equal, the slower one is lowered.
Thresholds thresholdsFor(const Distribution& field, FalseAlarmRates rates)
{
    Thresholds thresholds{};
    fillRow(field, rates.fast, thresholds.fast);
    fillRow(field, rates.mid, thresholds.mid);
    fillRow(field, rates.slow, thresholds.slow);
    for (std::size_t g = 0; g < kGroups; ++g) {
        thresholds.mid[g] = std::min(thresholds.mid[g], thresholds.fast[g] - 0.001f);
        thresholds.slow[g] = std::min(thresholds.slow[g], thresholds.mid[g] - 0.001f);
    }
    return thresholds;
}

// --- table ---------------------------------------------------------------------------------------------------------

void printRow(const char* name, double rate, const Measured& field, const float (&row)[kGroups])
{
    double worst = 0.0;
    double lowest = 1.0;
    double highest = 0.0;
    for (std::size_t g = 0; g < kGroups; ++g) {
        const double reached = field.whole.rateAbove(g, static_cast<double>(row[g]));
        worst = std::max(worst, standardError(field, g, rate));
        lowest = std::min(lowest, reached);
        highest = std::max(highest, reached);
    }
    std::printf("\n// Design goal: exceeded in %g %% of blocks. Measured: %.2f to %.2f %%, by group. Standard error "
                "%.4f at most\n",
                100.0 * rate, 100.0 * lowest, 100.0 * highest, worst);
    std::printf("const float ZRKTarn::%s[16] = {\n", name);
    for (std::size_t g = 0; g < kGroups; ++g)
        std::printf("%s%.3ff,%s", g % 8 == 0 ? "    " : " ", static_cast<double>(row[g]), g % 8 == 7 ? "\n" : "");
    std::printf("};\n");
}

void printTable()
{
    constexpr int kRuns = 24;
    constexpr int kBlocks = 500000;
    const Measured field = measure(48000, kRuns, kBlocks);
    const Thresholds thresholds = thresholdsFor(field.whole, kOperatingPoint);

    std::printf(
        "// The steering thresholds.\n"
        "// SPDX-License-Identifier: MIT\n"
        "#include \"engine/zrk_tarn.h\"\n\n"
        "// Made by `design_thresholds table` (tools/design_thresholds.cpp): the steering magnitude, the larger of\n"
        "// left/right and front/back, that a diffuse field of independent pink noise exceeds at the rates below, at\n"
        "// 48 kHz over %d blocks; smoothed over neighbouring groups.\n"
        "// H. Rohling, Radar CFAR thresholding in clutter and multiple target situations, IEEE Trans. AES-19, "
        "1983.\n\n"
        "// clang-format off\n",
        kRuns * kBlocks);
    printRow("THRES_BANDS", kOperatingPoint.fast, field, thresholds.fast);
    printRow("MIDTHRES_BANDS", kOperatingPoint.mid, field, thresholds.mid);
    printRow("SLOWTHRES_BANDS", kOperatingPoint.slow, field, thresholds.slow);
    std::printf("\n// clang-format on\n");
}

// --- rates ---------------------------------------------------------------------------------------------------------

void printRates()
{
    std::printf("False alarms in a diffuse field, %% of blocks, lowest, mean and highest over the groups\n\n");
    std::printf("| rate, Hz | fast | mid | slow |\n|---|---|---|---|\n");
    for (const std::uint32_t rateHz : {32000u, 44100u, 48000u, 64000u, 88200u, 96000u, 192000u}) {
        const Measured field = measure(rateHz, 8, 100000, 1000);
        const SteeringField probe(rateHz, 1);
        const ZRKTarn& engine = probe.engine();
        std::printf("| %u |", rateHz);
        for (const auto* row : {&engine.thresBands, &engine.midThresBands, &engine.slowThresBands}) {
            double lowest = 1.0;
            double highest = 0.0;
            double mean = 0.0;
            for (std::size_t g = 0; g < kGroups; ++g) {
                const double rate = field.whole.rateAbove(g, static_cast<double>((*row)[g]));
                lowest = std::min(lowest, rate);
                highest = std::max(highest, rate);
                mean += rate / kGroups;
            }
            std::printf(" %.2f, %.2f, %.2f |", 100.0 * lowest, 100.0 * mean, 100.0 * highest);
        }
        std::printf("\n");
    }
}

// --- sweep ---------------------------------------------------------------------------------------------------------

/// Standard deviation of the chosen left/right and front/back values; variances are averaged over the groups.
double jitterOf(const Thresholds& thresholds, const Scene& scene)
{
    constexpr int kBlocks = 6000;
    SteeringField field(48000, 7, &thresholds);
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

double meanLeftRight(const ZRKTarn& engine)
{
    double sum = 0.0;
    for (const float lr : engine.lrSlower) sum += static_cast<double>(lr);
    return sum / kGroups;
}

/// Blocks until the image of a source that jumps from one position to another has moved 90 % of the way, by the mean
/// left/right value of the groups over several jumps.
double responseOf(const Thresholds& thresholds, double sourceGain, double from, double to)
{
    constexpr int kJumps = 12;
    constexpr int kHold = 600;
    std::vector<double> course(kHold);
    double start = 0.0;
    for (int jump = 0; jump < kJumps; ++jump) {
        SteeringField field(48000, static_cast<std::uint64_t>(100 + jump), &thresholds);
        Scene scene{.position = from, .sourceGain = sourceGain, .fieldGain = 1.0};
        for (int i = 0; i < kHold; ++i) field.run(scene);
        start += meanLeftRight(field.engine()) / kJumps;
        scene.position = to;
        for (int i = 0; i < kHold; ++i) {
            field.run(scene);
            course[static_cast<std::size_t>(i)] += meanLeftRight(field.engine()) / kJumps;
        }
    }
    double end = 0.0;
    for (int i = kHold - 100; i < kHold; ++i) end += course[static_cast<std::size_t>(i)] / 100.0;
    for (int i = 0; i < kHold; ++i)
        if (std::fabs(course[static_cast<std::size_t>(i)] - start) >= 0.9 * std::fabs(end - start)) return i + 1;
    return kHold;
}

void printSweep()
{
    const Measured field = measure(48000, 4, 150000);
    std::printf(
        "Image jitter (standard deviation of the chosen position) and response (blocks to 90 %% of a jump)\n\n");
    std::printf("| fast, %% | mid, %% | slow, %% | jitter, diffuse | source at 0 dB | 6 dB | 12 dB | left to right, 0 "
                "dB | 6 dB "
                "| side to centre, 0 dB | 6 dB |\n|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const double fast : {0.001, 0.003, 0.01, 0.03, 0.1}) {
        for (const double mid : {0.03, 0.1, 0.3}) {
            for (const double slow : {0.3, 0.5, 0.8}) {
                if (fast >= mid || mid >= slow) continue;
                const Thresholds thresholds = thresholdsFor(field.whole, {fast, mid, slow});
                std::printf("| %g | %g | %g |", 100.0 * fast, 100.0 * mid, 100.0 * slow);
                std::printf(" %.4f |", jitterOf(thresholds, Scene{}));
                for (const double snr : {1.0, 2.0, 4.0})
                    std::printf(" %.4f |",
                                jitterOf(thresholds, {.position = 0.25, .sourceGain = snr, .fieldGain = 1.0}));
                for (const double to : {1.0, 0.5})
                    for (const double snr : {1.0, 2.0}) std::printf(" %.0f |", responseOf(thresholds, snr, 0.0, to));
                std::printf("\n");
                std::fflush(stdout);
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string command = argc == 2 ? argv[1] : "";
    if (command == "table") {
        printTable();
    } else if (command == "rates") {
        printRates();
    } else if (command == "sweep") {
        printSweep();
    } else {
        std::fputs("usage: design_thresholds table | rates | sweep\n", stderr);
        return 64;
    }
    return 0;
}
