#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// A stretch of the scene.
struct ScenePart
{
    std::string name;
    std::size_t firstFrame;
    std::size_t frames;
};

/// Stereo that shows what an upmix does.
struct Scene
{
    std::uint32_t sampleRate;
    std::vector<std::int16_t> stereo; ///< interleaved
    std::vector<ScenePart> parts;     ///< in order of time, with short pauses between them
    std::size_t bed;                  ///< the part whose sides have nothing in common, best for finding a delay
};

/// Computes the built-in scene, the same at every call.
///
/// A voice in the middle; a source that travels from hard left to hard right by the constant-power law, in three
/// parts; a wide bed of unlike chords left and right; all of them together. Every one peaks at -6 dB.
Scene makeScene();

} // namespace tarn
