// The ports of the plug-ins for LV2 and LADSPA: which ones a layout has, and in which order.
// SPDX-License-Identifier: MIT
#pragma once

#include "plugins/common/layouts.h"

namespace tarn_plugins
{

/// All ports. A plug-in has some of them, in the order of PortList.
enum Port : std::uint8_t
{
    kLeftIn,
    kRightIn,
    kOutput, ///< the first of kMaxOutputs
    kEnabled = kOutput + kMaxOutputs,
    kMode,
    kPreset,
    kGain,
    kLimiter,
    kCentre,
    kWidth,
    kBass,
    kSurrounds,
    kLatency,
    kReduction,
    kLeftRight, ///< of the lowest band group
    kFrontBack = kLeftRight + zrk_tarn::kBandGroups,
    kGroupLevel = kFrontBack + zrk_tarn::kBandGroups,
    kGroupPlace = kGroupLevel + zrk_tarn::kBandGroups,
    kGroupCentre = kGroupPlace + zrk_tarn::kBandGroups,
    kGroupUpperHz = kGroupCentre + zrk_tarn::kBandGroups,
    kGroupSurround = kGroupUpperHz + zrk_tarn::kBandGroups,
    kUnused = kGroupSurround + zrk_tarn::kBandGroups, ///< inputs that are ignored
    kPorts
};

/// The outputs with a port per band group, in the order of their ports.
inline constexpr Port kGroupMeters[] = {kLeftRight,   kFrontBack,    kGroupLevel,   kGroupPlace,
                                        kGroupCentre, kGroupUpperHz, kGroupSurround};

/// Whether the values of a port are on and off.
constexpr bool isToggle(Port port) noexcept
{
    return port == kEnabled || port == kLimiter || port == kBass;
}

/// Whether a layout has a control.
constexpr bool hasControl(const Layout& layout, Port control) noexcept
{
    using enum zrk_tarn::OutputSlot::Source;
    if (control == kWidth || control == kBass) return layout.has(Engine);
    return control != kSurrounds || layout.has(Surround);
}

/// Whether a layout has an output of kGroupMeters.
constexpr bool hasMeter(const Layout& layout, Port meter) noexcept
{
    return meter != kGroupSurround || layout.has(zrk_tarn::OutputSlot::Source::Surround);
}

/// The ports of a plug-in in the order of its host.
struct PortList
{
    Port ports[kPorts + kMaxOutputs] = {};
    std::size_t count = 0;

    constexpr void add(Port port) noexcept { ports[count++] = port; }
    constexpr void addRange(Port first, std::size_t number) noexcept
    {
        for (std::size_t i = 0; i < number; ++i) add(static_cast<Port>(first + i));
    }
};

/// The audio ports of a layout.
///
/// unused  number of inputs that are ignored, after the two others
constexpr PortList audioPorts(const Layout& layout, std::size_t unused = 0) noexcept
{
    PortList list;
    list.addRange(kLeftIn, 2);
    for (std::size_t i = 0; i < unused; ++i) list.add(kUnused);
    list.addRange(kOutput, layout.outputs);
    return list;
}

} // namespace tarn_plugins
