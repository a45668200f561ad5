// The output layouts of the plug-ins whose hosts connect one buffer per channel: LV2 and LADSPA.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstddef>
#include <cstdint>

namespace tarn_plugins
{

/// A channel of a layout.
struct OutputChannel
{
    const char* name;
    const char* symbol;      ///< in the symbols of LV2 ports
    const char* designation; ///< LV2's name of the loudspeaker
    zrk_tarn::OutputSlot slot;
};

/// Maximum number of channels of a layout.
inline constexpr std::size_t kMaxOutputs = 7;

/// The channels of a layout of the tarn command, without the silent LFE channel.
struct Layout
{
    const char* name; ///< value of the command's option --layout
    std::size_t outputs;
    OutputChannel channels[kMaxOutputs];

    constexpr bool has(zrk_tarn::OutputSlot::Source source) const noexcept
    {
        for (std::size_t i = 0; i < outputs; ++i)
            if (channels[i].slot.source == source) return true;
        return false;
    }

    /// Whether it is for two loudspeakers or headphones.
    constexpr bool isDialogue() const noexcept { return has(zrk_tarn::OutputSlot::Source::Dialogue); }
};

namespace channels
{

using enum zrk_tarn::OutputSlot::Source;

inline constexpr OutputChannel kFrontLeft = {"Front left", "left", "left", {Engine, 0}};
inline constexpr OutputChannel kFrontRight = {"Front right", "right", "right", {Engine, 1}};
inline constexpr OutputChannel kFrontCentre = {"Front centre", "centre", "center", {Engine, 2}};

/// A surround channel; its number depends on the layout.
constexpr OutputChannel rearLeft(std::uint8_t number) noexcept
{
    return {"Rear left", "rear_left", "rearLeft", {Surround, number}};
}

constexpr OutputChannel rearRight(std::uint8_t number) noexcept
{
    return {"Rear right", "rear_right", "rearRight", {Surround, number}};
}

inline constexpr OutputChannel kSideLeft = {"Side left", "side_left", "sideLeft", {Surround, 0}};
inline constexpr OutputChannel kSideRight = {"Side right", "side_right", "sideRight", {Surround, 1}};
inline constexpr OutputChannel kDialogueLeft = {"Left", "left", "left", {Dialogue, 0}};
inline constexpr OutputChannel kDialogueRight = {"Right", "right", "right", {Dialogue, 1}};

} // namespace channels

inline constexpr Layout kLayout30 = {"3.0", 3, {channels::kFrontLeft, channels::kFrontRight, channels::kFrontCentre}};

inline constexpr Layout kLayout51 = {"5.1",
                                     5,
                                     {channels::kFrontLeft, channels::kFrontRight, channels::kFrontCentre,
                                      channels::rearLeft(0), channels::rearRight(1)}};

inline constexpr Layout kLayout71 = {"7.1",
                                     7,
                                     {channels::kFrontLeft, channels::kFrontRight, channels::kFrontCentre,
                                      channels::rearLeft(2), channels::rearRight(3), channels::kSideLeft,
                                      channels::kSideRight}};

inline constexpr Layout kLayout20 = {"2.0", 2, {channels::kDialogueLeft, channels::kDialogueRight}};

} // namespace tarn_plugins
