# What `cmake --install` installs, in the components runtime, development, static and tool.

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
  DIRECTORY ${PROJECT_BINARY_DIR}/include/zrk_tarn
  TYPE INCLUDE
  COMPONENT development)

# The CMake package. The static library is a separate component with separate targets.
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

# The pkg-config file finds the prefix relative to itself, so that the prefix can be chosen and moved.
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
  install(
    TARGETS tarn tarn_drawing_module
    RUNTIME COMPONENT tool
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tarn COMPONENT tool)
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
