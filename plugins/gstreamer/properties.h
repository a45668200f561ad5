// The properties of the element.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// Adds the properties to the element's class.
void installProperties(GObjectClass* objectClass);

/// Applies the settings to the stream. In stereo, which the upmix does not make softer, the make-up gain of a preset is
/// 0 dB. The caller holds the element's lock.
void applySettings(const State& state);

} // namespace tarn_gst
