// Time stamps: where output frames belong, gaps, and drift of the input's clock.
// SPDX-License-Identifier: MIT
#pragma once

#include "state.h"

namespace tarn_gst
{

/// A time or offset of an input buffer; none if it is 2^62 or more, so that sums and differences cannot overflow.
guint64 usable(guint64 timeOrOffset);

GstClockTime durationOf(const State& state, guint64 frames);

/// The time of a frame of the run, 0 or later, or GST_CLOCK_TIME_NONE if the input has no time stamps.
GstClockTime timeOf(const State& state, guint64 frame);

/// Returns whether a buffer does not continue the run.
///
/// After the flag DISCONT, a difference of more than one frame is a gap. Otherwise more than 1/32 s is, because time
/// stamps may be rounded to milliseconds.
bool isGapBefore(const State& state, const GstBuffer* buffer);

/// Corrects the run's times by the drift of an input with its own clock, before it looks like a gap.
///
/// Ignores differences up to 2 ms, so that files with time stamps rounded to milliseconds get exact ones. Spreads the
/// correction of larger differences over a second, so that a single early or late buffer has little effect.
///
/// frames  of the buffer
void followDrift(State& state, const GstBuffer* buffer, guint64 frames);

} // namespace tarn_gst
