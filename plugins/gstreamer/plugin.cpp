// The GStreamer plug-in, which registers the element.
// SPDX-License-Identifier: MIT
#include "tarn_upmix.h"

namespace
{

gboolean registerElements(GstPlugin* plugin)
{
    return gst_element_register(plugin, "tarnupmix", GST_RANK_NONE, gst_tarn_upmix_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tarn, "Stereo to 3.0, 5.1 and 7.1 with Tarn", registerElements,
                  TARN_VERSION, "MIT/X11", "Tarn", "https://tarn.invalid/")
