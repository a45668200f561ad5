#pragma once

namespace speed
{

/// Registers the whole block in all its circumstances, for every usable instruction set.
void registerBlockBenchmarks();

/// Registers every stage alone, for every usable instruction set.
void registerStageBenchmarks();

} // namespace speed
