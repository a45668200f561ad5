// The layouts of the slave, in ALSA's order of channels.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/output_slots.h"

#include <array>

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

using zrk_tarn::dialogue;
using zrk_tarn::engine;
using zrk_tarn::kLfe;
using zrk_tarn::surround;

inline constexpr unsigned kMaxChannels = 8;

inline constexpr Layout kLayouts[] = {
    // FL FR
    {"2.0", 2.0, 2, {{dialogue(0), dialogue(1)}}},
    // FL FR FC
    {"3.0", 3.0, 3, {{engine(0), engine(1), engine(2)}}},
    // FL FR RL RR FC LFE
    {"5.1", 5.1, 6, {{engine(0), engine(1), surround(0), surround(1), engine(2), kLfe}}},
    // FL FR RL RR FC LFE SL SR
    {"7.1", 7.1, 8, {{engine(0), engine(1), surround(2), surround(3), engine(2), kLfe, surround(0), surround(1)}}}};

inline constexpr const Layout& kDefaultLayout = kLayouts[1];

} // namespace tarn_alsa
