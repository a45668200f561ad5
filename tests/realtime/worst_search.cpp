// Searches for signals whose last block is as expensive as possible.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "lanes/subnormal_speed.h"
#include "tests/realtime/block_cost.h"
#include "tests/support/random.h"
#include "tests/support/single_steps.h"
#include "tests/support/ticks.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <exception>
#include <iostream>
#include <map>
#include <random>
#include <string_view>
#include <vector>

// A genetic search: a population of signals for every instruction set and both measures, instructions and ticks. The
// first signals are those of worst_blocks.txt; the worst ones are mutated, combined and measured. The cost is relative
// to music. Every new worst signal is printed.

namespace
{

using namespace tests;
using zrk_tarn::BlockOperations;

constexpr std::size_t kPopulation = 24;

// --- Mutations -----------------------------------------------------------------------------------------------------

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::uint32_t kWidths[] = {9, 16, 17, 24, 25, 31, 32};

StreamFormat someFormat(Random& random)
{
    return {random.oneOf(kRatesHz), random.oneOf(kWidths), random.chance(3)};
}

/// From 1 to most, uniform in the logarithm.
std::uint32_t someLength(Random& random, double maximum)
{
    return static_cast<std::uint32_t>(std::exp(0.5 * (random.uniform() + 1.0) * std::log(maximum)));
}

/// Gains for sides, middle, positions in between and almost equal channels.
double someGain(Random& random)
{
    constexpr double kGains[] = {0.0, 1.0, -1.0, 0.5, 0.999999};
    return random.chance(3) ? random.uniform() : random.oneOf(kGains);
}

/// Frequencies in the middle of bands, at their edges and elsewhere.
double somePitch(Random& random)
{
    const double band = random.below(64);
    return random.chance(3) ? 32.0 * (random.uniform() + 1.0) : random.chance(2) ? band : band + 0.5;
}

double someLevel(Random& random)
{
    return random.chance(2) ? 0.0 : random.chance(2) ? 10.0 * random.uniform() : -90.0 * (random.uniform() + 1.0);
}

Layer someLayer(Random& random)
{
    return {.shape = static_cast<Shape>(random.below(6)),
            .pitch = somePitch(random),
            .level = someLevel(random),
            .slope = random.chance(3) ? 10.0 * random.uniform() : 0.0,
            .left = someGain(random),
            .right = someGain(random)};
}

Segment someSegment(Random& random)
{
    Segment segment{someLength(random, random.chance(8) ? 60000.0 : 300.0), {}};
    for (std::uint32_t i = random.below(4); i > 0; --i) segment.layers.push_back(someLayer(random));
    return segment;
}

HostileSignal someSignal(Random& random)
{
    HostileSignal signal;
    signal.format = someFormat(random);
    signal.mode = static_cast<std::int32_t>(random.below(3));
    for (std::uint32_t i = 1 + random.below(3); i > 0; --i) signal.segments.push_back(someSegment(random));
    return signal;
}

void change(Layer& layer, Random& random)
{
    switch (random.below(6)) {
    case 0:
        layer.shape = static_cast<Shape>(random.below(6));
        break;
    case 1:
        layer.pitch = random.chance(2) ? somePitch(random) : std::fabs(layer.pitch + random.uniform());
        break;
    case 2:
        layer.level = random.chance(2) ? someLevel(random) : layer.level + 3.0 * random.uniform();
        break;
    case 3:
        layer.slope = random.chance(3) ? 0.0 : layer.slope + 3.0 * random.uniform();
        break;
    case 4:
        layer.left = someGain(random);
        break;
    default:
        layer.right = someGain(random);
        break;
    }
}

void change(Segment& segment, Random& random)
{
    auto& layers = segment.layers;
    switch (random.below(5)) {
    case 0:
        segment.blocks = someSegment(random).blocks;
        break;
    case 1: {
        const std::uint32_t step = 1 + random.below(4);
        segment.blocks = random.chance(2) ? segment.blocks + step : segment.blocks > step ? segment.blocks - step : 1;
        break;
    }
    case 2:
        if (layers.size() < 4) layers.push_back(someLayer(random));
        break;
    case 3:
        if (!layers.empty()) layers.erase(layers.begin() + random.below(static_cast<std::uint32_t>(layers.size())));
        break;
    default:
        if (!layers.empty()) change(layers[random.below(static_cast<std::uint32_t>(layers.size()))], random);
        break;
    }
}

void change(HostileSignal& signal, const HostileSignal& other, Random& random)
{
    auto& segments = signal.segments;
    const auto place = random.below(static_cast<std::uint32_t>(segments.size()));
    switch (random.below(12)) {
    case 0:
        signal.format = random.chance(2) ? other.format : someFormat(random);
        break;
    case 1:
        signal.mode = static_cast<std::int32_t>(random.below(3));
        break;
    case 2:
        signal.frames = random.chance(2) ? 64 : 1 + random.below(63);
        break;
    case 3:
        signal.formatChanges = random.chance(2) ? 0 : someLength(random, 400.0);
        break;
    case 4:
        signal.seed = random.bits();
        break;
    case 5:
        if (segments.size() < 6) segments.insert(segments.begin() + place, someSegment(random));
        break;
    case 6:
        if (segments.size() > 1) segments.erase(segments.begin() + place);
        break;
    case 7:
        segments[place] = other.segments[random.below(static_cast<std::uint32_t>(other.segments.size()))];
        break;
    default:
        change(segments[place], random);
        break;
    }
}

// --- Measures ------------------------------------------------------------------------------------------------------

/// The least ticks of a block over several runs from the same state, which excludes other programs. The block must not
/// be the first one of its format, because the state of the processor is not restored.
std::uint64_t ticksOfBlock(zrk_tarn_processor_t& processor, HostBlock& block, std::uint32_t frames)
{
    const ZRKTarn engine = *processor.engine;
    const HostBlock before = block;
    std::uint64_t least = UINT64_MAX;
    for (int turn = 0; turn < 15; ++turn) {
        *processor.engine = engine;
        block = before;
        least = std::min(least, ticksOf([&] { block.process(processor, frames); }));
    }
    return least;
}

std::uint64_t ticksOfLastBlock(const HostileSignal& signal)
{
    PlayedSignal played(signal);
    return ticksOfBlock(played.processor(), played.block(), signal.frames);
}

std::uint64_t ticksInMusic(const StreamFormat& format)
{
    return medianInMusic(format, 31, [](zrk_tarn_processor_t& processor, HostBlock& block) {
        return ticksOfBlock(processor, block, 64);
    });
}

struct Measure
{
    const char* name;
    std::uint64_t (*ofLastBlock)(const HostileSignal&);
    std::uint64_t (*inMusic)(const StreamFormat&);
};

constexpr Measure kMeasures[] = {{"instructions", instructionsOfLastBlock, instructionsInMusic},
                                 {"ticks", ticksOfLastBlock, ticksInMusic}};

// --- The search ----------------------------------------------------------------------------------------------------

struct Candidate
{
    HostileSignal signal;
    double ratio;
};

class Search
{
public:
    /// slow  the value of subnormalsAreSlow
    Search(const BlockOperations& operations, bool slow, const Measure& measure,
           const std::vector<HostileSignal>& start)
        : blockOperations(operations), subnormalsAreSlow(slow), costMeasure(measure), startSignals(start)
    {}

    void step(Random& random)
    {
        zrk_tarn::chooseOperations(blockOperations);
        zrk_tarn::subnormalsAreSlow = subnormalsAreSlow;
        if (measuredCount < startSignals.size()) {
            consider(startSignals[measuredCount]);
        } else if (population.size() < kPopulation || random.chance(20)) {
            consider(someSignal(random));
        } else {
            HostileSignal signal = parent(random).signal;
            for (std::uint32_t changes = 1 + random.below(3); changes > 0; --changes)
                change(signal, parent(random).signal, random);
            consider(signal);
        }
    }

    bool countsInstructions() const { return costMeasure.ofLastBlock == instructionsOfLastBlock; }

    double worst() const { return population.empty() ? 0.0 : population.front().ratio; }

    /// Prints the worst signal if it is worse than the last printed one, as lines for worst_blocks.txt.
    void print()
    {
        if (worst() <= printedRatio) return;
        printedRatio = worst();
        std::cout << "# " << blockOperations.instructionSet << (subnormalsAreSlow ? ", subnormals avoided, " : ", ")
                  << costMeasure.name << ": " << worst() << " times those of music (" << measuredCount << " signals)\n"
                  << population.front().signal << std::endl;
    }

private:
    const Candidate& parent(Random& random) const
    {
        const auto size = static_cast<std::uint32_t>(population.size());
        return population[std::min(random.below(size), random.below(size))];
    }

    void consider(const HostileSignal& signal)
    {
        ++measuredCount;
        auto [music, added] = costInMusic.try_emplace(signal.format);
        if (added) music->second = static_cast<double>(costMeasure.inMusic(signal.format));
        const double ratio = static_cast<double>(costMeasure.ofLastBlock(signal)) / music->second;

        // One signal per cost keeps the population diverse.
        const auto place = std::lower_bound(population.begin(), population.end(), ratio,
                                            [](const Candidate& c, double r) { return c.ratio > r; });
        if (place != population.end() && place->ratio == ratio) return;
        population.insert(place, {signal, ratio});
        if (population.size() > kPopulation) population.pop_back();
    }

    const BlockOperations& blockOperations;
    bool subnormalsAreSlow;
    const Measure& costMeasure;
    const std::vector<HostileSignal>& startSignals;
    std::vector<Candidate> population; ///< the worst first
    std::map<StreamFormat, double> costInMusic;
    std::size_t measuredCount = 0;
    double printedRatio = 0.0;
};

int search(unsigned minutes)
{
    using Clock = std::chrono::steady_clock;
    const std::uint64_t seed = std::random_device{}();
    std::cout << "# seed " << seed << std::endl;
    Random random(seed);

    const auto start = hostileSignalsIn(TARN_WORST_BLOCKS);
    std::vector<Search> searches;
    for (const Measure& measure : kMeasures)
        for (const BlockOperations* const operations : zrk_tarn::usableOperations())
            for (const bool slow : {true, false}) searches.emplace_back(*operations, slow, measure, start);

    // Every search gets the same time.
    const auto end = Clock::now() + std::chrono::minutes(minutes);
    while (Clock::now() < end) {
        for (Search& one : searches) {
            const auto turn = std::min(end, Clock::now() + std::chrono::seconds(5));
            while (Clock::now() < turn) one.step(random);
            one.print();
        }
    }

    // The bound is for instructions; ticks depend on the machine.
    double worst = 0.0;
    for (const Search& one : searches)
        if (one.countsInstructions()) worst = std::max(worst, one.worst());
    const bool within = worst <= kWorstBlockBound;
    std::cout << "# the worst block takes " << worst << " times the instructions of music's median, "
              << (within ? "within" : "beyond") << " the bound of " << kWorstBlockBound << std::endl;
    return within ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const std::string_view digits = argc == 2 ? argv[1] : "";
        unsigned minutes = 0;
        const auto [last, error] = std::from_chars(digits.begin(), digits.end(), minutes);
        if (error != std::errc() || last != digits.end() || minutes == 0) {
            std::cerr << "usage: tarn_worst_search MINUTES\n";
            return 64;
        }
        if (!canCountInstructions()) {
            std::cerr << "tarn_worst_search: instructions cannot be counted on this machine\n";
            return 1;
        }
        return search(minutes);
    } catch (const std::exception& error) {
        std::cerr << "tarn_worst_search: " << error.what() << '\n';
        return 1;
    }
}
