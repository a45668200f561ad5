// Prints the cost of the stages behind the engine.
// SPDX-License-Identifier: MIT
#include "bench/speed/room_summary.h"

#include "bench/speed/room_stream.h"
#include "bench/speed/table.h"
#include "dispatch/instruction_sets.h"
#include "tests/support/ticks.h"

#include <cstdint>
#include <deque>
#include <iterator>
#include <vector>

namespace speed
{

namespace
{

constexpr int kRounds = 12;
constexpr std::size_t kRoundBlocks = 512;
constexpr std::size_t kWarmUpBlocks = 64; ///< at the start of a round, not measured
constexpr std::size_t kSilentBlocks = 60000;

/// What follows the engine in a block.
enum class Part : std::uint8_t
{
    Nothing,
    OnePair,
    TwoPairs,
    OutputStage
};

constexpr Part kParts[] = {Part::Nothing, Part::OnePair, Part::TwoPairs, Part::OutputStage};
constexpr std::size_t kPartCount = std::size(kParts);
constexpr const char* kPartNames[] = {"engine", "surrounds, one pair", "surrounds, two pairs",
                                      "output stage, film in 5.1"};

/// A stream that is measured in rounds, so that compared streams can alternate.
class RoomMeasurement
{
public:
    RoomMeasurement(Part measuredPart, bool silent) : part(measuredPart), isSilent(silent)
    {
        for (; number < kRoundBlocks; ++number) runBlock(false);
        if (!silent) return;
        for (std::size_t i = 0; i < kSilentBlocks; ++i) runBlock(true);
    }

    void runRound()
    {
        for (std::size_t i = 0; i < kWarmUpBlocks + kRoundBlocks; ++i, ++number) {
            const std::uint64_t spent = runBlock(isSilent);
            if (i >= kWarmUpBlocks) ticksPerBlock.push_back(spent);
        }
    }

    double median() const { return tests::medianOf(ticksPerBlock); }

private:
    /// Returns the ticks of the output stage, or those of the engine and the surround channels together.
    std::uint64_t runBlock(bool silent)
    {
        if (silent) {
            stream.fillWithSilence();
        } else {
            stream.fill(number);
        }
        if (part == Part::OutputStage) {
            stream.process();
            stream.takeUpmixed();
            return tests::ticksOf([&] { stream.computeOutputs(); });
        }
        return tests::ticksOf([&] {
            stream.process();
            if (part == Part::OnePair) stream.renderSurrounds(1);
            if (part == Part::TwoPairs) stream.renderSurrounds(2);
        });
    }

    Part part;
    bool isSilent;
    RoomStream stream;
    std::size_t number = 0;
    std::vector<std::uint64_t> ticksPerBlock;
};

/// Medians of all parts in music, then in long silence. Those of the surround channels are what they add to the engine.
std::vector<Column> measureRoom()
{
    const auto sets = zrk_tarn::usableOperations();
    std::vector<std::deque<RoomMeasurement>> measurements(sets.size());
    for (std::size_t s = 0; s < sets.size(); ++s) {
        zrk_tarn::chooseOperations(*sets[s]);
        for (const bool silent : {false, true})
            for (const Part part : kParts) measurements[s].emplace_back(part, silent);
    }
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t s = 0; s < sets.size(); ++s) {
            zrk_tarn::chooseOperations(*sets[s]);
            for (RoomMeasurement& measurement : measurements[s]) measurement.runRound();
        }
    }

    std::vector<Column> columns;
    for (std::size_t s = 0; s < sets.size(); ++s) {
        std::vector<double> medians;
        for (const RoomMeasurement& measurement : measurements[s]) medians.push_back(measurement.median());
        for (const std::size_t engine : {std::size_t{0}, kPartCount})
            for (std::size_t pairs = 1; pairs <= 2; ++pairs) medians[engine + pairs] -= medians[engine];
        columns.push_back({sets[s]->instructionSet, medians});
    }
    return columns;
}

} // namespace

void printRoom()
{
    const std::vector<Column> columns = measureRoom();
    printHead("ticks per block", columns);
    for (std::size_t part = 0; part < kPartCount; ++part) printMedians(kPartNames[part], columns, part);
    printHead("the same in long silence", columns);
    for (std::size_t part = 0; part < kPartCount; ++part) printMedians(kPartNames[part], columns, kPartCount + part);

    printHead("parts of the engine's time", columns);
    for (std::size_t part = 1; part < kPartCount; ++part) printRatio({kPartNames[part], part, 0}, columns);
    printHead("long silence / loud", columns);
    for (std::size_t part = 0; part < kPartCount; ++part)
        printRatio({kPartNames[part], kPartCount + part, part}, columns);
}

} // namespace speed
