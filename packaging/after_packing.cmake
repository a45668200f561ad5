# Run by CPack on its packages: packs them again as dpkg does, which gives the same bytes wherever SOURCE_DATE_EPOCH is
# the same. The library's and GStreamer's may be installed for several architectures, and dpkg's trigger refreshes the
# loader's cache, where CPack writes maintainer scripts for it, and for plug-ins, which need none.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(unpacked ${package}.unpacked)
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${unpacked} COMMAND_ERROR_IS_FATAL ANY)
  cmake_path(GET package FILENAME name)
  file(REMOVE ${unpacked}/DEBIAN/postinst ${unpacked}/DEBIAN/postrm)
  if(name MATCHES "^(lib|gstreamer)")
    file(READ ${unpacked}/DEBIAN/control control)
    string(STRIP "${control}" control)
    file(WRITE ${unpacked}/DEBIAN/control "${control}\nMulti-Arch: same\n")
  endif()
  execute_process(
    COMMAND dpkg-deb --build --root-owner-group ${unpacked} ${package} COMMAND_ERROR_IS_FATAL ANY
    OUTPUT_QUIET)
  file(REMOVE_RECURSE ${unpacked})
endforeach()
