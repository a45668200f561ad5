// The LV2 plug-ins.
// SPDX-License-Identifier: MIT
#pragma once

#include "plugins/common/instance.h"

namespace tarn_lv2
{

using namespace tarn_plugins;

/// A plug-in and its description.
struct Lv2Plugin
{
    const char* uri;
    const char* name;
    const char* file;  ///< of the description, without .ttl
    const char* group; ///< class of LV2 for the outputs
    const char* comment;
    Plugin plugin;
};

/// The ports of a layout: audio, controls, latency, meters. Sessions refer to ports by number: add new ones at the end.
constexpr PortList portsOf(const Layout& layout) noexcept
{
    PortList list = audioPorts(layout);
    for (const Port control : {kEnabled, kMode, kGain, kLimiter, kCentre, kWidth, kBass, kSurrounds})
        if (hasControl(layout, control)) list.add(control);
    list.add(kLatency);
    list.add(kReduction);
    for (const Port meter : kGroupMeters)
        if (hasMeter(layout, meter)) list.addRange(meter, zrk_tarn::kBandGroups);
    return list;
}

constexpr Plugin pluginOf(const Layout& layout) noexcept
{
    return {.layout = layout, .ports = portsOf(layout), .silentSurroundDb = zrk_tarn::kMinGainDb};
}

/// LV2's groups of channels for 3.0 and 7.1 have other loudspeakers.
inline constexpr Lv2Plugin kPlugins[] = {
    {.uri = "urn:tarn:upmix",
     .name = "Tarn upmix",
     .file = "upmix",
     .group = "DiscreteGroup",
     .comment = "Turns stereo into left, right and centre: voices and other sources in the middle move to a centre "
                "channel, sources at the sides stay.",
     .plugin = pluginOf(kLayout30)},
    {.uri = "urn:tarn:upmix-5.1",
     .name = "Tarn upmix 5.1",
     .file = "upmix-5.1",
     .group = "FivePointZeroGroup",
     .comment = "Turns stereo into left, right, centre and two surround channels: voices and other sources in the "
                "middle move to a centre channel, sources at the sides stay, and ambience comes from behind. There is "
                "no LFE channel.",
     .plugin = pluginOf(kLayout51)},
    {.uri = "urn:tarn:upmix-7.1",
     .name = "Tarn upmix 7.1",
     .file = "upmix-7.1",
     .group = "DiscreteGroup",
     .comment = "Turns stereo into left, right, centre and four surround channels: voices and other sources in the "
                "middle move to a centre channel, sources at the sides stay, and ambience comes from the sides and "
                "from behind. There is no LFE channel.",
     .plugin = pluginOf(kLayout71)},
    {.uri = "urn:tarn:dialogue",
     .name = "Tarn dialogue",
     .file = "dialogue",
     .group = "StereoGroup",
     .comment = "Changes the level of voices and other sources in the middle, for two loudspeakers or headphones. "
                "Sources at the sides stay as they are. The limiter lowers loud passages.",
     .plugin = pluginOf(kLayout20)}};

} // namespace tarn_lv2
