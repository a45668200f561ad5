// Prints the cost of the stages behind the engine.
// SPDX-License-Identifier: MIT
#pragma once

namespace speed
{

/// Prints ticks of the engine, of surround channels and of the output stage of the preset film in 5.1, for every usable
/// instruction set, and their ratios.
void printRoom();

} // namespace speed
