// Prints the cost of a call of the LV2 plug-ins.
// SPDX-License-Identifier: MIT
#pragma once

namespace speed
{

/// Measures runs of 64 frames, and shorter ones that complete no block, of the LV2 plug-ins and the engine alone.
void printPlugins();

} // namespace speed
