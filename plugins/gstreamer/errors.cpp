// Errors of the element, which stop the pipeline.
// SPDX-License-Identifier: MIT
#include "errors.h"

namespace
{

GST_DEBUG_CATEGORY_STATIC(debugCategory);
#define GST_CAT_DEFAULT debugCategory

} // namespace

namespace tarn_gst
{

void initDebugCategory()
{
    GST_DEBUG_CATEGORY_INIT(debugCategory, "tarnupmix", 0, "stereo to 3.0, 5.1 and 7.1");
}

GstFlowReturn outOfMemory(GstTarnUpmix* self, const char* sentence)
{
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("%s", sentence), (nullptr));
    return GST_FLOW_ERROR;
}

GstFlowReturn unreadableBuffer(GstTarnUpmix* self)
{
    GST_ELEMENT_ERROR(self, RESOURCE, READ, (nullptr), ("cannot read an input buffer"));
    return GST_FLOW_ERROR;
}

} // namespace tarn_gst
