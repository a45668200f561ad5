# Debian packages of the library, its development files, the commands and the plug-ins, made by `cpack -G DEB`.
#
# Configure with the preset `package`, which sets Debian's paths.

include(GNUInstallDirs)

# The changelog defines the version and the date of the packages.
file(STRINGS packaging/debian/changelog changelog)
string(REGEX REPLACE ".*<(.*)>.*" "\\1" address "${changelog}")
if(NOT changelog MATCHES "^zrk-tarn \\(${PROJECT_VERSION}-([0-9]+)\\)")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
set(version ${PROJECT_VERSION}-${CMAKE_MATCH_1})

set(compressed_changelog ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
add_custom_command(
  OUTPUT ${compressed_changelog}
  COMMAND sh -c "exec gzip -9n <\"$0\" >\"$1\"" ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
          ${compressed_changelog}
  DEPENDS packaging/debian/changelog
  VERBATIM)
# The symbols file states the first version with each symbol, so packages that use only old symbols accept old libraries.
set(symbols ${PROJECT_BINARY_DIR}/symbols)
add_custom_command(
  OUTPUT ${symbols}
  COMMAND dpkg-gensymbols -c4 -plibzrk-tarn1 -v${version} -e$<TARGET_FILE:zrk_tarn>
          -I${PROJECT_SOURCE_DIR}/packaging/debian/libzrk-tarn1.symbols -O${symbols}
  DEPENDS zrk_tarn packaging/debian/libzrk-tarn1.symbols
  VERBATIM)
add_custom_target(tarn_debian ALL DEPENDS ${compressed_changelog} ${symbols})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zrk-tarn)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # every package sets its own
set(CPACK_PACKAGE_CONTACT "The Tarn authors <${address}>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ
    OWNER_WRITE
    OWNER_EXECUTE
    GROUP_READ
    GROUP_EXECUTE
    WORLD_READ
    WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/before_packing.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/after_packing.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE zrk-tarn)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers ${symbols})
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libzrk-tarn1 (= ${version})")
# dpkg-shlibdeps finds the library in the build tree, which belongs to no package; so the dependency is set here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
foreach(user IN ITEMS ALSA FILM GSTREAMER LADSPA LV2 TOOL)
  set(CPACK_DEBIAN_${user}_PACKAGE_DEPENDS "libzrk-tarn1 (>= ${PROJECT_VERSION})")
endforeach()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

set(about "Tarn moves voices and other centred sounds of a stereo recording to a
centre channel, and the ambience to surround channels, in real time. Sounds
at the sides stay there. It uses a 64-band filterbank and 16 separately
steered band groups.
.
This package contains")

# Defines the package of a group of components. Copyright and changelog are installed with its first component.
function(debian_package group name section what contents component)
  string(TOUPPER ${group} group)
  set(CPACK_DEBIAN_${group}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${group}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${group}_DESCRIPTION "stereo-to-multichannel upmix engine (${what})\n${about} ${contents}."
      PARENT_SCOPE)
  install(
    FILES ${compressed_changelog}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
    COMPONENT ${component})
  # A package whose binaries have other terms than the sources has a copyright file of its own.
  set(copyright packaging/debian/${name}.copyright)
  if(NOT EXISTS ${PROJECT_SOURCE_DIR}/${copyright})
    set(copyright packaging/debian/copyright)
  endif()
  install(
    FILES ${copyright}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
    RENAME copyright
    COMPONENT ${component})
endfunction()

debian_package(library libzrk-tarn1 libs "shared library" "the shared library" runtime)
debian_package(dev libzrk-tarn-dev libdevel "development files"
               "headers, the static library, and files for\nCMake and pkg-config" development)
debian_package(tool tarn sound "command" "the tarn command for files and streams" tool)
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS tarn-film)
debian_package(film tarn-film video "films"
               "tarn-film, which adds an upmixed track to a\nfilm; it is the command \"tarn film\"" film)
set(CPACK_DEBIAN_FILM_PACKAGE_RECOMMENDS tarn)
set(CPACK_DEBIAN_LV2_PACKAGE_SUGGESTS "lv2-host, pipewire (>= 0.3.65), wireplumber")
debian_package(lv2 tarn-lv2 sound "LV2 plug-ins"
               "LV2 plug-ins for 3.0, 5.1, 7.1 and for\nlouder voices in stereo, and configurations for PipeWire sinks" lv2)
debian_package(gstreamer gstreamer1.0-tarn sound "GStreamer plug-in" "the GStreamer element tarnupmix" gstreamer)
debian_package(ladspa tarn-ladspa sound "LADSPA plug-ins"
               "LADSPA plug-ins for FFmpeg, SoX, PipeWire and\nother audio hosts" ladspa)
# Debian's naming scheme for single plug-ins of the ALSA library.
debian_package(alsa libasound2-plugin-tarn libs "ALSA plug-in"
               "a PCM plug-in for ALSA, which upmixes\nthe playback of programs" alsa)

include(CPack)
cpack_add_component(runtime GROUP library)
cpack_add_component(development GROUP dev)
cpack_add_component(static GROUP dev)
cpack_add_component(tool GROUP tool)
cpack_add_component(film GROUP film)
cpack_add_component(lv2 GROUP lv2)
cpack_add_component(gstreamer GROUP gstreamer)
cpack_add_component(ladspa GROUP ladspa)
cpack_add_component(alsa GROUP alsa)
