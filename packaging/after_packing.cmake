# Run by CPack on its packages: packs them again with dpkg-deb, which is reproducible for a given SOURCE_DATE_EPOCH.
#
# The library and the GStreamer package are marked for installation on several architectures. The maintainer scripts of
# CPack are removed: dpkg's trigger refreshes the cache of the loader, and plug-ins need no script.

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
