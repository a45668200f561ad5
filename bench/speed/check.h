// Compares outputs with the reference engine before anything is measured.
// SPDX-License-Identifier: MIT
#pragma once

namespace speed
{

/// Compares all outputs of every usable instruction set and format with those of the reference engine, for music and
/// silence, for whole blocks and for the list of stages. Compares RoomStream with a stream. Prints the first
/// difference.
bool sameAsReference();

} // namespace speed
