// The synthetic stereo scene of tarn demo.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// A section of the scene.
struct ScenePart
{
    std::string name;
    std::size_t firstFrame;
    std::size_t frames;
};

/// A synthetic stereo recording for demonstrations.
struct Scene
{
    std::uint32_t sampleRate;
    std::vector<std::int16_t> stereo; ///< interleaved
    std::vector<ScenePart> parts;     ///< in time order, with short pauses between them
    std::size_t wideChords;           ///< index of the part with unrelated sides, for measuring the delay
};

/// Computes the built-in scene. Every call returns the same samples.
///
/// Parts: a centred voice; a source that moves from hard left to hard right with constant power, in three sections;
/// different chords left and right; the mix of all. Every part peaks at -6 dB.
Scene makeScene();

} // namespace tarn
