// Upmixes buffers, trims the latency and returns the tail.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// Upmixes an input buffer. A gap before it ends the run and pushes its tail downstream.
///
/// output  a new buffer with the time of the input that it belongs to; null if all of it is latency, or after an error
GstFlowReturn upmixBuffer(GstTarnUpmix* self, GstBuffer* input, GstBuffer** output);

/// Ends the run and pushes its tail downstream, so that the run's output is as long as its input.
GstFlowReturn drainRun(GstTarnUpmix* self);

/// Ends the run and discards its tail.
void discardRun(GstTarnUpmix* self);

} // namespace tarn_gst
