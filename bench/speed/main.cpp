// The command tarn_speed.
// SPDX-License-Identifier: MIT
#include "bench/speed/benchmarks.h"
#include "bench/speed/check.h"
#include "bench/speed/room_stream.h"
#include "bench/speed/step.h"
#include "bench/speed/stream.h"
#include "bench/speed/summary.h"
#include "dispatch/instruction_sets.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace
{

constexpr int kUsageError = 64;

int usage()
{
    std::fputs(
        "usage: tarn_speed [--benchmark_filter=REGEX ...]  benchmarks; --help lists the options\n"
        "       tarn_speed --summary                       ratios, and ticks of every stage\n"
        "       tarn_speed --sets                          the instruction sets that can be used here\n"
        "       tarn_speed --blocks SET N                  runs N blocks of the engine, for a profiler\n"
        "       tarn_speed --room SET N                    runs N blocks of the preset film in 5.1\n"
        "       tarn_speed --step SET N                    writes the addresses of all instructions of N blocks\n",
        stderr);
    return kUsageError;
}

/// Calls run(blocks) with an instruction set. Returns an exit code.
int runBlocks(bool (*run)(unsigned long blocks), std::string_view set, const char* count)
{
    const std::string_view digits = count;
    unsigned long blocks = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), blocks);
    if (error != std::errc() || end != digits.end() || blocks == 0) {
        std::fprintf(stderr, "tarn_speed: '%s': give a number of blocks, 1 or more\n", count);
        return kUsageError;
    }
    for (const zrk_tarn::BlockOperations* const operations : zrk_tarn::usableOperations()) {
        if (operations->instructionSet != set) continue;
        zrk_tarn::chooseOperations(*operations);
        return run(blocks) ? 0 : 1;
    }
    std::fprintf(stderr, "tarn_speed: this processor cannot run '%.*s'; --sets lists what it can\n",
                 static_cast<int>(set.size()), set.data());
    return kUsageError;
}

bool runBlocksOfMusic(unsigned long blocks)
{
    speed::Stream<ZRKTarn>(speed::kPlain).run(blocks);
    return true;
}

bool runBlocksOfRoom(unsigned long blocks)
{
    speed::RoomStream().run(blocks);
    return true;
}

bool stepThroughBlocks(unsigned long blocks)
{
    speed::Stream<ZRKTarn> stream(speed::kPlain);
    stream.run(tests::kMusicBlocks);
    for (std::size_t number = 0; number < blocks; ++number) {
        stream.fill(number);
        if (!speed::printInstructionAddresses([&] { stream.process(); })) return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if ((mode == "--blocks" || mode == "--room" || mode == "--step") && argc != 4) return usage();
    if (mode == "--blocks") return runBlocks(runBlocksOfMusic, argv[2], argv[3]);
    if (mode == "--room") return runBlocks(runBlocksOfRoom, argv[2], argv[3]);
    if (mode == "--step") return runBlocks(stepThroughBlocks, argv[2], argv[3]);
    if ((mode == "--sets" || mode == "--summary") && argc != 2) return usage();
    if (mode == "--help" || mode == "-h") usage();
    if (mode == "--sets") {
        for (const zrk_tarn::BlockOperations* const operations : zrk_tarn::usableOperations())
            std::puts(operations->instructionSet);
        return 0;
    }

    if (!speed::sameAsReference()) return 1;
    if (mode == "--summary") {
        speed::printSummary();
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return usage();
    speed::registerBlockBenchmarks();
    speed::registerStageBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
