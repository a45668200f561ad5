// Stages of the reference engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/reference/reference_engine.h"

/// Stages of the reference engine's block, in the order of the signal, so that each can be timed.

namespace reference
{

/// Sets the output rows, loads the working thresholds and keeps the peak measures of the previous block.
void beginMeasures(Engine& e);

/// Weights the input history with the prototype filter.
///
/// Order  increasing m, from zero
void sumPolyphases(Engine& e);

/// Moves the slow average of every band on by the previous block's subbands, which are still in place.
void averageSubbands(Engine& e);

/// Folds the 128 polyphase sums of each channel into 64 values.
void foldPolyphases(Engine& e);

/// Forms the pair sums of a 64-vector that the transform takes.
void buildPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32]);

/// Tracks the spectrum and the strongest band with its neighbours, left and right.
///
/// Order  bands ascending; then the strongest band, its upper and its lower neighbour
void trackSpectrum(Engine& e);

/// Measures and smooths the broadband levels of the block's 64 new input samples.
///
/// Order  samples ascending, from zero
void measureLevels(Engine& e);

/// Finds the dominant band of every group and its measures; a group of zeros keeps the previous block's.
void findGroupPeaks(Engine& e);

/// Finds the dominant group, decides whether the block is tonal, holds stationary groups and spreads the dominant one.
void judgeTonality(Engine& e);

/// Smooths the four measures of every group.
void smoothPowers(Engine& e);

/// Steers the broadband averages and smooths the result at four speeds.
void steerBroadband(Engine& e);

/// Steers every band group by its smoothed measures.
void steerGroups(Engine& e);

/// Smooths the steering of every group at four speeds and chooses one.
///
/// Order  groups ascending; the mean sums the fast left/right values before a speed is chosen
void selectSpeeds(Engine& e);

/// Interpolates the mixing matrix of every group.
void interpolateMatrices(Engine& e);

/// Mixes the left and right subbands into front left, centre and front right with the matrix of their group.
///
/// The side gain falls from 1.5 in the middle to 1 at either end; the centre has none.
void mixSubbands(Engine& e);

/// Overlap-adds the weighted transform outputs into this and the next block.
///
/// Order  every sum is formed first, ascending in m from zero, then added to its accumulator
void overlapAdd(Engine& e);

/// Rounds the finished samples half away from zero.
void roundOutput(Engine& e);

/// Moves the synthesis history up by one block.
void moveSynthHistory(Engine& e);

/// Moves the input history down by one block; the newest 64 entries stay.
void moveInputHistory(Engine& e);

/// Makes the overlap of the next block that of this one.
void moveOverlap(Engine& e);

} // namespace reference
