# CPack runs this between installing the files and packing them: it adds what only a Debian package has,
# and compresses what Debian wants compressed.

set(debian "${CMAKE_CURRENT_LIST_DIR}/../packaging/linux/debian")

# Without name and time, so that the same text gives the same bytes.
function(compress)
  execute_process(COMMAND gzip -9n ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_documents folder)
  file(MAKE_DIRECTORY "${folder}")
  file(READ "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../LICENSE" license)
  file(READ "${debian}/third-party-notices" notices)
  file(WRITE "${folder}/copyright" "${license}${notices}")
  configure_file("${debian}/changelog" "${folder}/changelog.Debian" COPYONLY)
  compress("${folder}/changelog.Debian")
  file(CHMOD "${folder}/copyright" "${folder}/changelog.Debian.gz"
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

# What the administrator writes into it outlives upgrades, as "conffiles" names it.
set(runtime "${CPACK_TEMPORARY_DIRECTORY}/runtime")
file(MAKE_DIRECTORY "${runtime}/etc/nodo")
file(RENAME "${runtime}/usr/share/nodo/nodod.toml" "${runtime}/etc/nodo/nodod.toml")

find_program(strip NAMES strip REQUIRED)
set(needless --remove-section=.comment --remove-section=.note)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(tree "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr")
  if(NOT IS_DIRECTORY "${tree}")
    message(FATAL_ERROR "Nothing was installed for the component ${component} in ${tree}")
  endif()
  string(TOUPPER ${component} upper)
  add_documents("${tree}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  file(GLOB_RECURSE pages "${tree}/share/man/*.[1-9]")
  if(pages)
    compress(${pages})
  endif()
  file(GLOB programs "${tree}/bin/*" "${tree}/sbin/*")
  if(programs)
    execute_process(COMMAND "${strip}" ${needless} ${programs} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(GLOB_RECURSE archives "${tree}/lib/*.a")
  if(archives)
    execute_process(COMMAND "${strip}" --strip-debug --enable-deterministic-archives ${needless}
                            ${archives} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
