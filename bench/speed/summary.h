#pragma once

namespace speed
{

/// Prints the ratios of docs/performance.md and what every stage takes, medians over some thousand blocks.
void printSummary();

} // namespace speed
