// Runs the tests of the GStreamer element: gstreamer_element_test PLUGIN_FILE [GOOGLETEST_OPTION...]
// SPDX-License-Identifier: MIT
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    GstPlugin* const plugin = argc == 2 ? gst_plugin_load_file(argv[1], &error) : nullptr;
    if (plugin == nullptr) {
        std::fprintf(stderr, "usage: %s PLUGIN_FILE; %s\n", argv[0], error == nullptr ? "" : error->message);
        return 64;
    }
    gst_object_unref(plugin);
    const int result = RUN_ALL_TESTS();
    gst_deinit();
    return result;
}
