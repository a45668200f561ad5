// The types of the properties that are enumerations.
// SPDX-License-Identifier: MIT
#pragma once

#include <gst/gst.h>

namespace tarn_gst
{

/// zrk_tarn::SteeringMode
GType modeType();

/// The numbers of zrk_tarn::kPresets.
GType presetType();

/// zrk_tarn::BassMode
GType bassType();

/// Includes the types in the documentation of the plug-in.
void documentEnumTypes();

} // namespace tarn_gst
