// The table of output layouts.
// SPDX-License-Identifier: MIT
#include "cli/layout.h"

#include "cli/command_name.h"
#include "cli/failure.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include <sndfile.h>

namespace tarn
{

namespace
{

constexpr zrk_tarn::OutputSlot engine(std::uint8_t output)
{
    return {zrk_tarn::OutputSlot::Source::Engine, output};
}

constexpr zrk_tarn::OutputSlot surround(std::uint8_t channel)
{
    return {zrk_tarn::OutputSlot::Source::Surround, channel};
}

/// A layout of the first slots of 7.1, with the engine's outputs in front and silence in the others.
constexpr Layout firstSlots(std::string_view name, std::uint32_t slots)
{
    constexpr std::string_view kNames = "FL FR FC LFE BL BR SL SR";
    constexpr std::array<std::uint32_t, zrk_tarn::kMaxSlots> kMaskBits{0x1, 0x2, 0x4, 0x8, 0x10, 0x20, 0x200, 0x400};
    constexpr std::array<int, zrk_tarn::kMaxSlots> kChannels{
        SF_CHANNEL_MAP_LEFT,      SF_CHANNEL_MAP_RIGHT,      SF_CHANNEL_MAP_CENTER,    SF_CHANNEL_MAP_LFE,
        SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_SIDE_LEFT, SF_CHANNEL_MAP_SIDE_RIGHT};
    Layout layout{.name = name,
                  .slotNames = {},
                  .slots = slots,
                  .mask = 0,
                  .remapped = false,
                  .outputs = {engine(0), engine(1), engine(2)},
                  .channelMap = {}};
    std::size_t namesEnd = 0;
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
        layout.mask |= kMaskBits[slot];
        layout.channelMap[slot] = kChannels[slot];
        namesEnd = kNames.find(' ', namesEnd + 1);
    }
    layout.slotNames = kNames.substr(0, namesEnd);
    return layout;
}

/// Two loudspeakers or headphones.
constexpr Layout dialogue20()
{
    using enum zrk_tarn::OutputSlot::Source;
    Layout layout = firstSlots("2.0", 2);
    layout.outputs = {{{Dialogue, 0}, {Dialogue, 1}}};
    return layout;
}

constexpr Layout surround51()
{
    Layout layout = firstSlots("5.1", 6);
    layout.outputs[4] = surround(0);
    layout.outputs[5] = surround(1);
    return layout;
}

constexpr Layout surround71()
{
    Layout layout = firstSlots("7.1", 8);
    layout.outputs[4] = surround(2);
    layout.outputs[5] = surround(3);
    layout.outputs[6] = surround(0);
    layout.outputs[7] = surround(1);
    return layout;
}

/// 7.1 with the columns of a remap matrix in FL, FR, SL and SR.
constexpr Layout remapped71()
{
    Layout layout = firstSlots(kRemapLayout, 8);
    layout.remapped = true;
    layout.outputs = {engine(0), engine(1), {}, {}, {}, {}, engine(2), engine(3)};
    return layout;
}

constexpr std::array<Layout, 5> kLayouts{dialogue20(), firstSlots("3.0", 3), surround51(), surround71(), remapped71()};

} // namespace

constexpr Layout kStereoLayout = firstSlots("stereo", 2);

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
