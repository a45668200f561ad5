# Defines zrk_tarn::zrk_tarn, the shared library, and zrk_tarn::static if it is installed. COMPONENTS static requires it.

include(${CMAKE_CURRENT_LIST_DIR}/zrk_tarn-shared.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/zrk_tarn-static.cmake OPTIONAL)

set(zrk_tarn_shared_FOUND TRUE)
if(TARGET zrk_tarn::static)
  set(zrk_tarn_static_FOUND TRUE)
endif()
foreach(component IN LISTS zrk_tarn_FIND_COMPONENTS)
  if(zrk_tarn_FIND_REQUIRED_${component} AND NOT zrk_tarn_${component}_FOUND)
    set(zrk_tarn_FOUND FALSE)
    set(zrk_tarn_NOT_FOUND_MESSAGE "There is no component '${component}'; there are shared and, if installed, static.")
  endif()
endforeach()
