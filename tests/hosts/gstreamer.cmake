# GStreamer: the element alone, also under valgrind; then whole pipelines.
find_package(GTest REQUIRED)
add_executable(
  gstreamer_element_test
  gstreamer/caps_test.cpp
  gstreamer/failures_test.cpp
  gstreamer/main.cpp
  gstreamer/messages_test.cpp
  gstreamer/properties_test.cpp
  gstreamer/room_test.cpp
  gstreamer/signal_test.cpp
  gstreamer/time_test.cpp)
target_link_libraries(gstreamer_element_test PRIVATE tarn_options zrk_tarn GTest::gtest PkgConfig::gstreamer_check)

host_test(gstreamer-element gstreamer_element_test.py $<TARGET_FILE:gstreamer_element_test> $<TARGET_FILE:gsttarn>)
host_test(gstreamer gstreamer_test.py $<TARGET_FILE:gsttarn> ${PROJECT_BINARY_DIR})
