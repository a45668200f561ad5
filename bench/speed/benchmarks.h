// The Google Benchmark cases.
// SPDX-License-Identifier: MIT
#pragma once

namespace speed
{

/// Registers benchmarks of whole blocks in all formats, for every usable instruction set.
void registerBlockBenchmarks();

/// Registers a benchmark of every stage, for every usable instruction set.
void registerStageBenchmarks();

} // namespace speed
