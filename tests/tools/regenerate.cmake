# Runs a generator and holds what it prints against the committed file, byte for byte.
#
#   cmake -DGENERATOR=command;argument... -DCOMMITTED=file -DPRINTED=file -P regenerate.cmake

execute_process(COMMAND ${GENERATOR} OUTPUT_FILE ${PRINTED} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${PRINTED} ${COMMITTED} RESULT_VARIABLE differs)
if(differs)
  message(FATAL_ERROR "${COMMITTED} is not what its generator prints: see ${PRINTED}")
endif()
