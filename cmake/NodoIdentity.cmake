# Whose signature the daemon trusts on macOS: ten capital letters and digits, under which Apple knows the
# team of a certificate. Sets NODO_IDENTITY_DEFINITIONS for those who compile the library's headers.

file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/../NODOCore/helper/NODOHelperXPCProtocol.h" own_team
     REGEX "^#define NODO_TEAM_IDENTIFIER ")
string(REGEX REPLACE ".*\"(.*)\".*" "\\1" own_team "${own_team}")
set(NODO_TEAM_IDENTIFIER "${own_team}" CACHE STRING
    "The Apple team that signs nodoctl and nodod on macOS; the daemon serves no others")
# It becomes a part of the requirement that callers have to meet, so nothing else may stand in it.
if(NOT NODO_TEAM_IDENTIFIER MATCHES "^[A-Z0-9]+$" OR NOT NODO_TEAM_IDENTIFIER MATCHES "^..........$")
  message(FATAL_ERROR "NODO_TEAM_IDENTIFIER is '${NODO_TEAM_IDENTIFIER}', but a team is named by ten "
                      "capital letters and digits, as in '${own_team}'")
endif()
set(NODO_IDENTITY_DEFINITIONS "")
if(NOT NODO_TEAM_IDENTIFIER STREQUAL own_team)
  set(NODO_IDENTITY_DEFINITIONS "NODO_TEAM_IDENTIFIER=\"${NODO_TEAM_IDENTIFIER}\"")
endif()
