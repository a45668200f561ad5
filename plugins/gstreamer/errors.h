// Errors of the element, which stop the pipeline.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// Registers the debug category `tarnupmix`.
void initDebugCategory();

/// Reports that memory is short. Returns GST_FLOW_ERROR.
GstFlowReturn outOfMemory(GstTarnUpmix* self, const char* sentence);

/// Reports that an input buffer cannot be read. Returns GST_FLOW_ERROR.
GstFlowReturn unreadableBuffer(GstTarnUpmix* self);

} // namespace tarn_gst
