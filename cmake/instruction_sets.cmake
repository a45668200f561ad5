# The instruction sets that the work on a block is compiled for: the only place that lists them.
#
# Each set is an object library in a namespace of its own; dispatch/ chooses one when the library is loaded. A new set
# needs a place in a list, slowest first, and a line of flags. Its -mavx... and -msse... flags are also the processor
# features that the choice checks. No set has fused multiply-adds. `generic` has no code for a processor family and must
# be alone.

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(sets_of_family sse2 avx2 avx512)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(sets_of_family neon)
else()
  set(sets_of_family generic)
endif()
set(TARN_INSTRUCTION_SETS ${sets_of_family} CACHE STRING "Instruction sets to build, slowest first")

set(tarn_flags_of_sse2)
set(tarn_flags_of_avx2 -mavx2 -mno-fma)
# Without -mno-fma: in clang it switches AVX-512 off, which contains fused multiply-adds. Neither compiler uses them
# here.
set(tarn_flags_of_avx512 -mavx512f -mavx512vl -mavx512dq -mavx512bw -mprefer-vector-width=512)
set(tarn_flags_of_neon)
set(tarn_flags_of_generic)

if("generic" IN_LIST TARN_INSTRUCTION_SETS)
  if(NOT TARN_INSTRUCTION_SETS STREQUAL generic)
    message(FATAL_ERROR "TARN_INSTRUCTION_SETS: generic cannot be combined with other sets")
  endif()
  target_compile_definitions(tarn_options INTERFACE TARN_GENERIC)
endif()

# The same list for C++.
set(TARN_LIST_OF_SETS)
foreach(set IN LISTS TARN_INSTRUCTION_SETS)
  string(REGEX MATCHALL "-m(avx|sse)[a-z0-9.]*" features "${tarn_flags_of_${set}}")
  list(TRANSFORM features REPLACE "-m(.+)" "__builtin_cpu_supports(\"\\1\") != 0")
  list(JOIN features " && " condition)
  if(NOT condition)
    set(condition true)
  endif()
  string(APPEND TARN_LIST_OF_SETS " use(${set}, ${condition})")
endforeach()
configure_file(dispatch/instruction_set_list.h.in generated/dispatch/instruction_set_list.h @ONLY)
target_include_directories(tarn_options INTERFACE ${PROJECT_BINARY_DIR}/generated)
