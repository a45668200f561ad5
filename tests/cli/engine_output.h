// The expected output of the command, from the engine itself.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/cli/audio_files.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace tarn_cli
{

/// Settings of the engine for the expected output.
struct EngineRun
{
    std::string layout = "3.0"; ///< one of tarn::layoutNames()
    std::uint32_t sampleRate = 48000;
    unsigned bits = 16;
    std::string mode = "fast";
    bool plain = false;            ///< without gain, limiter and surround channels
    bool headroom = false;         ///< the samples have kHeadroomBits of headroom; gain and limiter follow the stream
    double gainDb = 3.0;           ///< with headroom
    std::optional<double> lfeDb{}; ///< none: the LFE channel is silent
    bool align = true;
    std::array<std::array<std::int32_t, 4>, 3> remap{}; ///< 28 fraction bits
};

/// Number of slots of a layout. Throws tarn::Failure if there is no such layout.
std::size_t slotsOf(const std::string& layout);

/// Bits by which samples with headroom are lowered.
inline constexpr int kHeadroomBits = 4;

/// Upmixes stereo for one file: plain and remapped layouts in one call of zrk_tarn_processor_t::process for the whole
/// stream, others by a stream with the default preset.
///
/// stereo  left-justified
/// Returns the same number of frames with all slots, left-justified. With alignment it starts at frame 960.
Samples engineOutput(const Samples& stereo, const EngineRun& run);

} // namespace tarn_cli
