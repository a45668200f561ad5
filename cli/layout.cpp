#include "cli/layout.h"

#include "cli/failure.h"

#include <algorithm>

#include <sndfile.h>

namespace tarn
{

namespace
{

constexpr std::uint32_t kLeft = 0x2000;
constexpr std::uint32_t kRight = 0x4000;
constexpr std::uint32_t kCentre = 0x200;
constexpr std::uint32_t kRemapColumn2 = 0x40000;
constexpr std::uint32_t kRemapColumn3 = 0x80000;

} // namespace

const std::array<Layout, 3> kLayouts{{
    {.name = "3.0",
     .slotNames = "FL FR FC",
     .slots = 3,
     .mask = 0x7,
     .remapped = false,
     .codes = {{kLeft, kRight, kCentre}},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER}},
    {.name = "5.1",
     .slotNames = "FL FR FC LFE BL BR",
     .slots = 6,
     .mask = 0x3f,
     .remapped = false,
     .codes = {{kLeft, kRight, kCentre, 0, 0, 0}},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                    SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT}},
    {.name = "slots8",
     .slotNames = "FL FR FC LFE BL BR SL SR",
     .slots = 8,
     .mask = 0x63f,
     .remapped = true,
     .codes = {{kLeft, kRight, 0, 0, 0, 0, kRemapColumn2, kRemapColumn3}},
     .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                    SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_SIDE_LEFT,
                    SF_CHANNEL_MAP_SIDE_RIGHT}},
}};

const Layout& layoutNamed(std::string_view name)
{
    const auto found =
        std::find_if(kLayouts.begin(), kLayouts.end(), [name](const Layout& l) { return l.name == name; });
    if (found == kLayouts.end())
        throw Failure(EX_USAGE, "--layout " + std::string(name) + ": no such layout; choose 3.0, 5.1 or slots8");
    return *found;
}

} // namespace tarn
