// The table of output layouts.
// SPDX-License-Identifier: MIT
#include "cli/layout.h"

#include "cli/command_name.h"
#include "cli/failure.h"
#include "stream/output_slots.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <sndfile.h>

namespace tarn
{

namespace
{

using zrk_tarn::dialogue;
using zrk_tarn::engine;
using zrk_tarn::surround;

/// A slot, and how file headers describe it.
struct Slot
{
    std::string_view name;
    std::uint32_t maskBit; ///< in the WAVE channel mask
    int channel;           ///< libsndfile's SF_CHANNEL_MAP_*
};

/// The slots that layouts can have, in the order of the WAVE channel mask.
constexpr std::array kSlots{Slot{"FL", 0x1, SF_CHANNEL_MAP_LEFT},        Slot{"FR", 0x2, SF_CHANNEL_MAP_RIGHT},
                            Slot{"FC", 0x4, SF_CHANNEL_MAP_CENTER},      Slot{"LFE", 0x8, SF_CHANNEL_MAP_LFE},
                            Slot{"BL", 0x10, SF_CHANNEL_MAP_REAR_LEFT},  Slot{"BR", 0x20, SF_CHANNEL_MAP_REAR_RIGHT},
                            Slot{"SL", 0x200, SF_CHANNEL_MAP_SIDE_LEFT}, Slot{"SR", 0x400, SF_CHANNEL_MAP_SIDE_RIGHT}};

/// The source of a slot: an output of the engine in front, a surround channel at the sides and behind.
/// OutputSlot::Source::Surround (stream/stream_types.h) describes the surround channels.
constexpr zrk_tarn::OutputSlot sourceOf(std::string_view slot, bool hasSides)
{
    if (slot == "FL") return engine(0);
    if (slot == "FR") return engine(1);
    if (slot == "FC") return engine(2);
    if (slot == "LFE") return zrk_tarn::kLfe;
    if (slot == "BL") return surround(hasSides ? 2 : 0);
    if (slot == "BR") return surround(hasSides ? 3 : 1);
    if (slot == "SL") return surround(0);
    if (slot == "SR") return surround(1);
    return {};
}

/// A layout of slots with the sources of sourceOf. A layout with other sources sets `outputs` afterwards.
///
/// slotNames  in the order of kSlots, separated by spaces; other orders do not compile
constexpr Layout fromSlots(std::string_view name, std::string_view slotNames)
{
    Layout layout{.name = name,
                  .slotNames = slotNames,
                  .slots = 0,
                  .mask = 0,
                  .remapped = false,
                  .outputs = {},
                  .channelMap = {}};
    const bool hasSides = slotNames.find("SL") != std::string_view::npos;
    std::string_view rest = slotNames;
    for (const Slot& slot : kSlots) {
        if (rest.substr(0, rest.find(' ')) != slot.name) continue;
        rest.remove_prefix(std::min(slot.name.size() + 1, rest.size()));
        layout.mask |= slot.maskBit;
        layout.outputs[layout.slots] = sourceOf(slot.name, hasSides);
        layout.channelMap[layout.slots++] = slot.channel;
    }
    if (!rest.empty()) throw std::invalid_argument("kSlots lacks a slot, or has another order");
    return layout;
}

/// Two loudspeakers or headphones.
constexpr Layout dialogue20()
{
    Layout layout = fromSlots("2.0", "FL FR");
    layout.outputs = {dialogue(0), dialogue(1)};
    return layout;
}

/// 7.1 with the columns of a remap matrix in FL, FR, SL and SR.
constexpr Layout remapped71()
{
    Layout layout = fromSlots(kRemapLayout, "FL FR FC LFE BL BR SL SR");
    layout.remapped = true;
    layout.outputs = {engine(0), engine(1), {}, {}, {}, {}, engine(2), engine(3)};
    return layout;
}

/// The layouts of --layout, narrowest first.
constexpr std::array kLayouts{
    dialogue20(),
    fromSlots("3.0", "FL FR FC"),
    fromSlots("5.1", "FL FR FC LFE BL BR"),
    fromSlots("7.1", "FL FR FC LFE BL BR SL SR"),
    remapped71(),
};

static_assert(std::ranges::is_sorted(kLayouts, {}, &Layout::slots), "narrowest first");

} // namespace

constexpr Layout kStereoLayout = fromSlots("stereo", "FL FR");

std::vector<std::string> layoutNames()
{
    std::vector<std::string> names;
    std::transform(kLayouts.begin(), kLayouts.end(), std::back_inserter(names),
                   [](const Layout& layout) { return std::string(layout.name); });
    return names;
}

const Layout& layoutNamed(std::string_view name)
{
    const auto* const found =
        std::find_if(kLayouts.begin(), kLayouts.end(), [name](const Layout& l) { return l.name == name; });
    if (found == kLayouts.end())
        throw Failure(EX_USAGE, "--layout " + std::string(name) + ": no such layout; " + commandName() +
                                    " upmix --help lists them");
    return *found;
}

std::optional<std::uint32_t> slotNamed(const Layout& layout, std::string_view name)
{
    std::istringstream names{std::string(layout.slotNames)};
    std::string slotName;
    for (std::uint32_t slot = 0; names >> slotName; ++slot)
        if (slotName == name) return slot;
    return std::nullopt;
}

bool Layout::hasSource(zrk_tarn::OutputSlot::Source source) const noexcept
{
    return std::any_of(outputs.begin(), outputs.begin() + slots,
                       [source](const zrk_tarn::OutputSlot& slot) { return slot.source == source; });
}

void placeColumns(Layout& layout, const RemapSlots& slots)
{
    layout.outputs.fill({});
    std::uint8_t column = 0;
    for (const std::string& slot : slots) layout.outputs[slotNamed(layout, slot).value()] = engine(column++);
}

} // namespace tarn
