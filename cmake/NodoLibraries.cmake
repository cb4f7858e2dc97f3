# nodo::re2 and nodo::utf8proc, the libraries that NODOCore needs at link time. Shared with the
# installed package, whose users have to find the same ones.
#
# The static form is taken where it stands alone: a program that is started for every tool call of an
# agent saves the time that loading the shared one takes.

include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
find_dependency(Threads)

function(nodo_find_library target module name)
  if(TARGET ${target})
    return()
  endif()
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  pkg_check_modules(NODO_${name} REQUIRED QUIET IMPORTED_TARGET GLOBAL ${module})
  find_library(NODO_${name}_STATIC lib${name}.a HINTS ${NODO_${name}_LIBRARY_DIRS})
  mark_as_advanced(NODO_${name}_STATIC)
  set(needs ${NODO_${name}_STATIC_LIBRARIES})
  list(REMOVE_ITEM needs ${name} pthread)
  if(NODO_${name}_STATIC AND NOT needs)
    target_link_libraries(${target} INTERFACE "${NODO_${name}_STATIC}" Threads::Threads)
    target_include_directories(${target} INTERFACE ${NODO_${name}_INCLUDE_DIRS})
  else()
    target_link_libraries(${target} INTERFACE PkgConfig::NODO_${name})
  endif()
endfunction()

nodo_find_library(nodo::re2 re2 re2)
nodo_find_library(nodo::utf8proc libutf8proc utf8proc)
