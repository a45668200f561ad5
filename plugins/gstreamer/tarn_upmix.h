#pragma once

#include <gst/gst.h>

/// The GType of the element `tarnupmix`.
GType gst_tarn_upmix_get_type();
