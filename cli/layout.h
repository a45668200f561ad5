#pragma once

#include "stream/upmix_stream.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn
{

/// How the engine's output lies in the interleaved slots of a frame, and how files name that.
struct Layout
{
    std::string_view name;      ///< as --layout takes it
    std::string_view slotNames; ///< in slot order
    std::uint32_t slots;        ///< per frame
    std::uint32_t mask;         ///< WAVE channel mask, one bit per slot in slot order
    bool remapped;              ///< takes the remap path, which needs a matrix
    std::array<zrk_tarn::OutputSlot, zrk_tarn::kMaxSlots> outputs; ///< what the slots carry
    std::array<int, zrk_tarn::kMaxSlots> channelMap;               ///< libsndfile's SF_CHANNEL_MAP_* per slot
};

/// Columns of a remap matrix.
inline constexpr std::size_t kRemapColumns = 4;

/// Names of the slots that the columns of a remap matrix are mixed into.
using RemapSlots = std::array<std::string, kRemapColumns>;

/// All layouts, in the order of their width.
extern const std::array<Layout, 4> kLayouts;

/// The layout of a name; throws Failure (EX_USAGE) if there is none.
const Layout& layoutNamed(std::string_view name);

/// The number of a slot by its name, if the layout has it.
std::optional<std::uint32_t> slotNamed(const Layout& layout, std::string_view name);

/// Puts the columns of a remap matrix into slots of a remapped layout; the other slots are silent.
///
/// slots  four different slots of the layout
void placeColumns(Layout& layout, const RemapSlots& slots);

} // namespace tarn
