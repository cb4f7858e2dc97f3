# Tries names of teams, good and bad, on what the build does with them.
#
# usage: cmake -D root=ROOT -P CheckTeamNames.cmake

# usage: expect(NAME RESULT EXPRESSION): the exit status, and what is among the output.
function(expect name status expression)
  execute_process(
    COMMAND ${CMAKE_COMMAND} "-DNODO_TEAM_IDENTIFIER=${name}" -P "${root}/cmake/NodoIdentity.cmake"
    RESULT_VARIABLE result
    ERROR_VARIABLE error)
  if(NOT result EQUAL status OR NOT error MATCHES "${expression}")
    message(SEND_ERROR "'${name}': exit status ${result}, not ${status}: ${error}")
  endif()
endfunction()

expect(Q7K2M9X4TZ 0 "^$")
expect(ABCDE12345 0 "^$")
foreach(bad "" ABCDE1234 ABCDE123456 abcde12345 "ABCDE 1234" "A\" or true" "ÄBCDE1234")
  expect("${bad}" 1 "NODO_TEAM_IDENTIFIER is '")
endforeach()
