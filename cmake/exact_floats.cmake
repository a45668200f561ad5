# Stops for options that change the results of floating-point arithmetic. lanes/exact_floats.h refuses those that the
# compiler tells in macros. clang tells few, and no compiler tells those of the linker: GCC then links code that changes
# the floating-point mode of every process that loads the library.

set(inexact_options
    -Ofast
    -ffast-math
    -ffp-model=\(fast|aggressive\)
    -funsafe-math-optimizations
    -fassociative-math
    -freciprocal-math
    -ffinite-math-only
    -fno-honor-\(nans|infinities\)
    -fno-signed-zeros
    -fapprox-func
    -fsingle-precision-constant
    -fdenormal-fp-math\(-f32\)?=.*\(zero|sign\).*
    -mdaz-ftz
    -mfpmath=.*\(387|both\).*
    -mpc\(32|64\))
list(JOIN inexact_options "|" inexact_options)

# refuse_inexact_floats(PLACE OPTIONS...): stops if one of the options is inexact. PLACE is where they stand.
function(refuse_inexact_floats place)
  list(JOIN ARGN " " options)
  separate_arguments(options UNIX_COMMAND "${options}")
  foreach(option IN LISTS options)
    if(option MATCHES "^(${inexact_options})$")
      message(FATAL_ERROR "${place} has ${option}. Tarn's results are defined to the last bit: build it without.")
    endif()
  endforeach()
endfunction()

refuse_inexact_floats("The command of the compiler" ${CMAKE_CXX_COMPILER_ARG1})
refuse_inexact_floats(TARN_ENGINE_OPTIONS ${TARN_ENGINE_OPTIONS})
foreach(flags IN ITEMS CMAKE_CXX_FLAGS CMAKE_EXE_LINKER_FLAGS CMAKE_MODULE_LINKER_FLAGS CMAKE_SHARED_LINKER_FLAGS)
  refuse_inexact_floats(${flags} ${${flags}})
  foreach(configuration IN LISTS CMAKE_BUILD_TYPE CMAKE_CONFIGURATION_TYPES)
    string(TOUPPER ${flags}_${configuration} flags_of_configuration)
    refuse_inexact_floats(${flags_of_configuration} ${${flags_of_configuration}})
  endforeach()
endforeach()
foreach(property IN ITEMS COMPILE_OPTIONS LINK_OPTIONS)
  get_directory_property(options ${property})
  refuse_inexact_floats("The property ${property} of the directory" ${options})
endforeach()
