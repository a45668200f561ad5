// The types of the properties that are enumerations.
// SPDX-License-Identifier: MIT
#include "enum_types.h"

#include "stream/mode_names.h"
#include "stream/presets.h"

#include <iterator>

namespace tarn_gst
{

GType modeType()
{
    using zrk_tarn::SteeringMode;
    static const GEnumValue kValues[] = {
        {static_cast<int>(SteeringMode::Fast), "Strong steering is followed fast", nameOf(SteeringMode::Fast)},
        {static_cast<int>(SteeringMode::Calm), "Strong steering is followed at medium speed",
         nameOf(SteeringMode::Calm)},
        {0, nullptr, nullptr}};
    static const GType kType = g_enum_register_static("GstTarnUpmixMode", kValues);
    return kType;
}

GType presetType()
{
    using zrk_tarn::kPresets;
    static const GEnumValue kValues[] = {{0, "Ambience in the surround channels, bass in the fronts", kPresets[0].name},
                                         {1, "The same with a wide centre", kPresets[1].name},
                                         {2, "The same with loud voices and less ambience", kPresets[2].name},
                                         {3, "The output of the engine", kPresets[3].name},
                                         {0, nullptr, nullptr}};
    static_assert(std::size(kPresets) + 1 == std::size(kValues));
    static const GType kType = g_enum_register_static("GstTarnUpmixPreset", kValues);
    return kType;
}

GType bassType()
{
    using zrk_tarn::BassMode;
    static const GEnumValue kValues[] = {
        {static_cast<int>(BassMode::Steered), "Where the engine steers it", nameOf(BassMode::Steered)},
        {static_cast<int>(BassMode::Fronts), "In the fronts as in the stereo", nameOf(BassMode::Fronts)},
        {0, nullptr, nullptr}};
    static const GType kType = g_enum_register_static("GstTarnUpmixBass", kValues);
    return kType;
}

void documentEnumTypes()
{
    for (const GType type : {modeType(), presetType(), bassType()})
        gst_type_mark_as_plugin_api(type, static_cast<GstPluginAPIFlags>(0));
}

} // namespace tarn_gst
