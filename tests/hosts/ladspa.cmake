host_test(ladspa ladspa_calls_test.py $<TARGET_FILE:tarn_ladspa>)
foreach(host IN ITEMS applyplugin ffmpeg sox)
  host_test(ladspa-${host} ladspa_test.py ${host} $<TARGET_FILE:tarn_ladspa>)
endforeach()

# What a run must not do.
find_package(GTest REQUIRED)
add_executable(
  tarn_ladspa_realtime_tests
  ladspa_realtime_test.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/call_guard.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/kernel_guard.cpp
  ${PROJECT_SOURCE_DIR}/tests/realtime/stack_bytes.cpp)
target_compile_definitions(tarn_ladspa_realtime_tests PRIVATE TARN_INSTRUMENTED=0)
target_include_directories(tarn_ladspa_realtime_tests SYSTEM PRIVATE ${LADSPA_INCLUDE_DIR})
target_link_libraries(tarn_ladspa_realtime_tests PRIVATE tarn_options GTest::gtest_main)
add_dependencies(tarn_ladspa_realtime_tests tarn_ladspa)
add_test(NAME Hosts.ladspa.realtime COMMAND tarn_ladspa_realtime_tests)
set_tests_properties(Hosts.ladspa.realtime PROPERTIES ENVIRONMENT "TARN_LADSPA=$<TARGET_FILE:tarn_ladspa>" LABELS hosts
                                                      TIMEOUT 60)
