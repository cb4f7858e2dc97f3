# `cmake --install` leaves a package and programs that run.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

file(REMOVE_RECURSE "${scratch}")
set(ENV{DESTDIR} "${stage}")
run("${CMAKE_COMMAND}" --install "${build}" --config "${configuration}" --prefix /opt/nodo)

if(NOT EXISTS "${prefix}/share/nodo/schemas/status-report.schema.json")
  message(FATAL_ERROR "The schemas of the programs' documents are not installed")
endif()
foreach(completion bash-completion/completions/nodoctl zsh/vendor-completions/_nodoctl
                   fish/vendor_completions.d/nodoctl.fish)
  if(NOT EXISTS "${prefix}/share/${completion}")
    message(FATAL_ERROR "The shells' completions are not installed: no ${completion}")
  endif()
endforeach()
if(man AND NOT EXISTS "${prefix}/share/man/man1/nodoctl.1")
  message(FATAL_ERROR "The man pages are not installed")
endif()

run("${prefix}/${bindir}/nodoctl" --version)
string(FIND "${output}" "${version}" found)
if(found EQUAL -1)
  message(FATAL_ERROR "The installed nodoctl names another version than ${version}: ${output}")
endif()
