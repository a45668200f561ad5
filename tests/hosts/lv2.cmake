find_package(GTest REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(lilv REQUIRED IMPORTED_TARGET lilv-0)

# Only the bundle of this build, and what LV2 itself describes.
set(lv2_path ${PROJECT_BINARY_DIR}/lv2:/usr/lib/lv2)

# The plug-in in a host of our own, which does what others may do.
add_executable(
  tarn_lv2_host_tests
  lv2_host_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/call_guard.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/kernel_guard.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/stack_bytes.cpp
  ${PROJECT_SOURCE_DIR}/tests/support/signals.cpp)
target_compile_definitions(tarn_lv2_host_tests PRIVATE TARN_INSTRUMENTED=0)
target_link_libraries(tarn_lv2_host_tests PRIVATE tarn_options zrk_tarn PkgConfig::lilv GTest::gtest_main)
add_dependencies(tarn_lv2_host_tests tarn_lv2)
add_test(NAME Hosts.lv2.host COMMAND tarn_lv2_host_tests)
set_tests_properties(Hosts.lv2.host PROPERTIES ENVIRONMENT LV2_PATH=${lv2_path} LABELS hosts TIMEOUT 300)

# host_test(...) in the environment of an LV2 host.
function(lv2_test name)
  host_test(${name} ${ARGN})
  set_property(TEST Hosts.${name} APPEND PROPERTY ENVIRONMENT "LV2_PATH=${lv2_path}")
endfunction()

lv2_test(lv2.files lv2_test.py ${PROJECT_BINARY_DIR}/lv2)
lv2_test(lv2.jalv lv2_jalv_test.py)

# JACK has the plug-in in jalv, PipeWire as a sink. `./run soak-hosts` says for how many minutes.
foreach(kind IN ITEMS "" soak-)
  lv2_test(${kind}jack jack_test.py)
  lv2_test(${kind}pipewire pipewire_test.py ${PROJECT_SOURCE_DIR}/plugins/pipewire)
endforeach()
set_tests_properties(Hosts.soak-jack Hosts.soak-pipewire PROPERTIES LABELS soak TIMEOUT 0)
