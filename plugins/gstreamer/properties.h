// The properties of the element.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// Adds the properties to the element's class.
void installProperties(GObjectClass* objectClass);

/// Applies the settings to the stream. The make-up gain has no effect in stereo, which the upmix does not make softer.
/// The caller holds the element's lock.
void applySettings(const State& state);

} // namespace tarn_gst
