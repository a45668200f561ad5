#include "cli/layout.h"

#include "cli/failure.h"

#include <algorithm>
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

constexpr zrk_tarn::OutputSlot kSilent{};

} // namespace

const std::array<Layout, 4> kLayouts{{
    {.name = "3.0",
     .slotNames = "FL FR FC",
     .slots = 3,
     .mask = 0x7,
     .remapped = false,
     .outputs = {engine(0), engine(1), engine(2)},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER}},
    {.name = "5.1",
     .slotNames = "FL FR FC LFE BL BR",
     .slots = 6,
     .mask = 0x3f,
     .remapped = false,
     .outputs = {engine(0), engine(1), engine(2), kSilent, kSilent, kSilent},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                    SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT}},
    {.name = "7.1",
     .slotNames = "FL FR FC LFE BL BR SL SR",
     .slots = 8,
     .mask = 0x63f,
     .remapped = false,
     .outputs = {engine(0), engine(1), engine(2), kSilent, kSilent, kSilent, kSilent, kSilent},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                    SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_SIDE_LEFT,
                    SF_CHANNEL_MAP_SIDE_RIGHT}},
    {.name = "slots8",
     .slotNames = "FL FR FC LFE BL BR SL SR",
     .slots = 8,
     .mask = 0x63f,
     .remapped = true,
     .outputs = {engine(0), engine(1), kSilent, kSilent, kSilent, kSilent, engine(2), engine(3)},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                    SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_SIDE_LEFT,
                    SF_CHANNEL_MAP_SIDE_RIGHT}},
}};

const Layout& layoutNamed(std::string_view name)
{
    const auto found =
        std::find_if(kLayouts.begin(), kLayouts.end(), [name](const Layout& l) { return l.name == name; });
    if (found == kLayouts.end())
        throw Failure(EX_USAGE, "--layout " + std::string(name) + ": no such layout; choose 3.0, 5.1, 7.1 or slots8");
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

void placeColumns(Layout& layout, const RemapSlots& slots)
{
    layout.outputs.fill(kSilent);
    std::uint8_t column = 0;
    for (const std::string& slot : slots) layout.outputs[slotNamed(layout, slot).value()] = engine(column++);
}

} // namespace tarn
