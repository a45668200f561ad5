// The properties of the element.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// Adds the properties to the element's class.
void installProperties(GObjectClass* objectClass);

/// Applies bypass, mode and gain to the stream. The caller holds the element's lock.
void applySettings(const State& state);

} // namespace tarn_gst
