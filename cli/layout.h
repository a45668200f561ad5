#pragma once

#include "stream/upmix_stream.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn
{

/// Most slots that a layout has.
inline constexpr std::size_t kMaxSlots = 8;

/// How the engine's output lies in the interleaved slots of a frame, and how files name that.
struct Layout
{
    std::string_view name;                               ///< as --layout takes it
    std::string_view slotNames;                          ///< in slot order
    std::uint32_t slots;                                 ///< per frame
    std::uint32_t mask;                                  ///< WAVE channel mask, one bit per slot in slot order
    bool remapped;                                       ///< takes the remap path, which needs a matrix
    std::array<zrk_tarn::OutputSlot, kMaxSlots> outputs; ///< what the slots carry
    std::array<int, kMaxSlots> channelMap;               ///< libsndfile's SF_CHANNEL_MAP_* per slot
};

/// All layouts, in the order of their width.
extern const std::array<Layout, 4> kLayouts;

/// The layout of a name; throws Failure (EX_USAGE) if there is none.
const Layout& layoutNamed(std::string_view name);

} // namespace tarn
