// The layouts of the slave, in ALSA's order of channels.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <array>
#include <cstdint>

namespace tarn_alsa
{

struct Layout
{
    const char* name;
    double number; ///< of the name, which ALSA parses as a number if it is not quoted
    unsigned channels;
    std::array<zrk_tarn::OutputSlot, zrk_tarn::kMaxSlots> slots;

    constexpr bool isForTwoLoudspeakers() const noexcept { return channels == 2; }
    constexpr bool hasSurrounds() const noexcept { return channels > 3; }
};

constexpr zrk_tarn::OutputSlot engine(std::uint8_t output)
{
    return {zrk_tarn::OutputSlot::Source::Engine, output};
}

constexpr zrk_tarn::OutputSlot surround(std::uint8_t channel)
{
    return {zrk_tarn::OutputSlot::Source::Surround, channel};
}

constexpr zrk_tarn::OutputSlot dialogue(std::uint8_t side)
{
    return {zrk_tarn::OutputSlot::Source::Dialogue, side};
}

inline constexpr unsigned kMaxChannels = 8;

inline constexpr Layout kLayouts[] = {
    // FL FR
    {"2.0", 2.0, 2, {{dialogue(0), dialogue(1)}}},
    // FL FR FC
    {"3.0", 3.0, 3, {{engine(0), engine(1), engine(2)}}},
    // FL FR RL RR FC LFE
    {"5.1", 5.1, 6, {{engine(0), engine(1), surround(0), surround(1), engine(2), {}}}},
    // FL FR RL RR FC LFE SL SR
    {"7.1", 7.1, 8, {{engine(0), engine(1), surround(2), surround(3), engine(2), {}, surround(0), surround(1)}}}};

inline constexpr const Layout& kDefaultLayout = kLayouts[1];

} // namespace tarn_alsa
