# Random sessions of good and bad hosts with each plug-in. `./run fuzz --plugin-sessions` runs more of them.
add_executable(tarn_port_sessions sessions/port_plugin.cpp sessions/port_sessions.cpp sessions/run_sessions.cpp)
target_include_directories(tarn_port_sessions SYSTEM PRIVATE ${LADSPA_INCLUDE_DIR})
target_link_libraries(tarn_port_sessions PRIVATE tarn_options zrk_tarn PkgConfig::lv2)
add_executable(tarn_gstreamer_sessions sessions/gstreamer_sessions.cpp sessions/run_sessions.cpp)
target_link_libraries(tarn_gstreamer_sessions PRIVATE tarn_options PkgConfig::gstreamer_check)

foreach(interface IN ITEMS lv2 ladspa)
  add_dependencies(tarn_port_sessions tarn_${interface})
  add_test(NAME Hosts.${interface}.sessions COMMAND tarn_port_sessions $<TARGET_FILE:tarn_${interface}> 300)
endforeach()
add_dependencies(tarn_gstreamer_sessions gsttarn)
add_test(NAME Hosts.gstreamer.sessions COMMAND tarn_gstreamer_sessions $<TARGET_FILE:gsttarn> 300)
set_tests_properties(Hosts.lv2.sessions Hosts.ladspa.sessions Hosts.gstreamer.sessions PROPERTIES LABELS hosts TIMEOUT 600)
