// The output layouts: slots, names, channel masks.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/upmix_stream.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn
{

/// The slots of an output frame, and how file headers describe them.
struct Layout
{
    std::string_view name;      ///< value of --layout
    std::string_view slotNames; ///< in slot order, separated by spaces
    std::uint32_t slots;        ///< per frame
    std::uint32_t mask;         ///< WAVE channel mask, one bit per slot in slot order
    bool remapped;              ///< needs a remap matrix
    std::array<zrk_tarn::OutputSlot, zrk_tarn::kMaxSlots> outputs; ///< sources of the slots
    std::array<int, zrk_tarn::kMaxSlots> channelMap;               ///< libsndfile's SF_CHANNEL_MAP_* per slot

    /// Whether a slot has this source.
    bool hasSource(zrk_tarn::OutputSlot::Source source) const noexcept;
};

/// Number of columns of a remap matrix.
inline constexpr std::size_t kRemapColumns = 4;

/// Names of the slots that the columns of a remap matrix are mixed into.
using RemapSlots = std::array<std::string, kRemapColumns>;

/// Name of the layout with a remap matrix.
inline constexpr std::string_view kRemapLayout = "7.1-remap";

/// Two slots, for files with the stereo of an upmix; --layout does not offer it.
extern const Layout kStereoLayout;

/// Names of the layouts that --layout offers, narrowest first.
std::vector<std::string> layoutNames();

/// The layout with this name. Throws Failure (EX_USAGE) if there is none.
const Layout& layoutNamed(std::string_view name);

/// The number of the slot with this name, if the layout has it.
std::optional<std::uint32_t> slotNamed(const Layout& layout, std::string_view name);

/// Assigns the columns of a remap matrix to slots of a remapped layout; the other slots are silent.
///
/// slots  four different slots of the layout
void placeColumns(Layout& layout, const RemapSlots& slots);

} // namespace tarn
