# nodo::re2 and nodo::utf8proc, the libraries that NODOCore needs at link time. Shared with the
# installed package, whose users have to find the same ones.
#
# The static form is taken where all of it is there, down to the libraries that it needs itself: a program
# that is started for every tool call of an agent saves the time that loading shared ones takes, and
# one that is signed for other people's Macs may load nothing but the system's.

include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
find_dependency(Threads)

function(nodo_find_library target module name)
  if(TARGET ${target})
    return()
  endif()
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  pkg_check_modules(NODO_${name} REQUIRED QUIET IMPORTED_TARGET GLOBAL ${module})
  set(archives "")
  foreach(library IN LISTS NODO_${name}_STATIC_LIBRARIES)
    if(NOT library MATCHES "^(pthread|m|rt|dl)$")
      find_library(NODO_${library}_STATIC lib${library}.a HINTS ${NODO_${name}_STATIC_LIBRARY_DIRS})
      mark_as_advanced(NODO_${library}_STATIC)
      list(APPEND archives "${NODO_${library}_STATIC}")
    endif()
  endforeach()
  set(flags ${NODO_${name}_STATIC_LDFLAGS_OTHER})
  list(REMOVE_ITEM flags -pthread) # CMake knows better what that takes
  if(archives AND NOT archives MATCHES "NOTFOUND")
    target_link_libraries(${target} INTERFACE ${archives} ${flags} Threads::Threads)
    target_include_directories(${target} INTERFACE ${NODO_${name}_INCLUDE_DIRS})
  else()
    target_link_libraries(${target} INTERFACE PkgConfig::NODO_${name})
  endif()
endfunction()

nodo_find_library(nodo::re2 re2 re2)
nodo_find_library(nodo::utf8proc libutf8proc utf8proc)
