cmake_minimum_required(VERSION 3.25)

# Staged below `scratch` although configured for /opt/nodo, so that nothing is written outside of the
# build folder and the package has to work from another place than the one it was installed for.
set(stage "${scratch}/stage")
set(prefix "${stage}/opt/nodo")

set(sanitizer_flags "")
if(sanitize)
  set(sanitizer_flags "-fsanitize=${sanitize}")
endif()

# Runs a command that must succeed; its standard output is left in `output`.
macro(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output COMMAND_ECHO STDOUT
                  COMMAND_ERROR_IS_FATAL ANY)
endmacro()

macro(expect_decisions program)
  run("${program}")
  string(
    CONCAT expected
           "{\"shouldPreventSleep\":true,\"reasons\":[\"manual_timer\"],\"safetyBlocks\":[]}\n"
           "{\"shouldPreventSleep\":false,\"reasons\":[],"
           "\"safetyBlocks\":[\"battery_below_threshold\"],"
           "\"stopReason\":\"battery_below_threshold\"}\n")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "The consumer printed\n${output}instead of\n${expected}")
  endif()
endmacro()
