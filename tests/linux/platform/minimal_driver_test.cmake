# Runs the example driver on the example node and compares what it prints.
# DRIVER: its program; EXAMPLES: the examples' folder; WORK: a folder of this test.
file(REMOVE_RECURSE ${WORK})
file(COPY ${EXAMPLES}/ DESTINATION ${WORK})
execute_process(
  COMMAND ${DRIVER} node.toml
  WORKING_DIRECTORY ${WORK}
  OUTPUT_VARIABLE output
  ERROR_VARIABLE error
  RESULT_VARIABLE result
  TIMEOUT 60)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the driver ended with ${result}: ${error}${output}")
endif()
foreach(line
    "west +II-VI +41.25 C"
    "east +II-VI +[0-9.]+ C"
    "north +[^ ]+.* +[0-9.]+ C"
    "south +no module")
  if(NOT output MATCHES "${line}\n")
    message(FATAL_ERROR "no line '${line}' in:\n${output}${error}")
  endif()
endforeach()
