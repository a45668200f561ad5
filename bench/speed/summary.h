// Prints the figures of docs/performance.md.
// SPDX-License-Identifier: MIT
#pragma once

namespace speed
{

/// Prints the ratios of docs/performance.md and the ticks of every stage, as medians of some thousand blocks.
void printSummary();

} // namespace speed
