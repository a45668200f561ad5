# What `cmake --install` lays down, in components: runtime, development, static, tool.
#
# The files of include/zrk_tarn/ are what users include. In the tree they find the headers behind them through the
# project's folder, installed beside themselves, in folders of the same names; those include each other by relative
# paths, so that no user needs a search path of ours.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zrk_tarn)

install(
  TARGETS zrk_tarn
  EXPORT zrk_tarn-shared
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(
  TARGETS zrk_tarn_static
  EXPORT zrk_tarn-static
  ARCHIVE COMPONENT static
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(
  DIRECTORY include/zrk_tarn
  TYPE INCLUDE
  COMPONENT development)
foreach(header IN ITEMS host/zrk_tarn_processor.h engine/zrk_tarn.h filterbank/cos_mod.h stream/stream_types.h
                        stream/upmix_stream.h)
  cmake_path(GET header PARENT_PATH folder)
  install(
    FILES ${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zrk_tarn/${folder}
    COMPONENT development)
endforeach()

# The CMake package. The static library is a component of its own, with targets of its own.
install(
  EXPORT zrk_tarn-shared
  NAMESPACE zrk_tarn::
  DESTINATION ${package_dir}
  COMPONENT development)
install(
  EXPORT zrk_tarn-static
  NAMESPACE zrk_tarn::
  DESTINATION ${package_dir}
  COMPONENT static)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zrk_tarn-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES cmake/zrk_tarn-config.cmake ${PROJECT_BINARY_DIR}/zrk_tarn-config-version.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

# The pkg-config file finds the prefix from its own place, so that the prefix can be chosen at installation and moved.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE pkgconfig_dir)
cmake_path(APPEND pkgconfig_dir pkgconfig)
file(RELATIVE_PATH TARN_PREFIX_FROM_PKGCONFIG ${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TARN_PREFIX_FROM_PKGCONFIG ${TARN_PREFIX_FROM_PKGCONFIG})
configure_file(cmake/zrk_tarn.pc.in zrk_tarn.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/zrk_tarn.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

if(TARN_BUILD_CLI)
  install(TARGETS tarn RUNTIME COMPONENT tool)
  set(TARN_ZSH_COMPLETIONS_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions")
  install(
    FILES completions/tarn.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME tarn
    COMPONENT tool)
  install(
    FILES completions/_tarn
    DESTINATION ${TARN_ZSH_COMPLETIONS_DIR}
    COMPONENT tool)
endif()
