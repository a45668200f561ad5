# Runs a generator and compares its output with the committed file, byte for byte.
#
#   cmake -DGENERATOR=command;argument... -DCOMMITTED=file -DPRINTED=file -P regenerate.cmake

execute_process(COMMAND ${GENERATOR} OUTPUT_FILE ${PRINTED} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${PRINTED} ${COMMITTED} RESULT_VARIABLE differs)
if(differs)
  message(FATAL_ERROR "${COMMITTED} differs from the output of its generator; see ${PRINTED}")
endif()
