// The element `tarnupmix`.
// SPDX-License-Identifier: MIT
#pragma once

#include <gst/gst.h>

/// The GType of the element.
GType gst_tarn_upmix_get_type();
