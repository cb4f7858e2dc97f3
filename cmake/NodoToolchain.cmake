# How everything of ours is compiled. `nodo_options` is linked privately and never exported: what we
# ask of our own code is no demand on those who use the library.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Someone who rebuilds often has ccache; nothing depends on it.
find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

include(CheckPIESupported)
check_pie_supported()
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(nodo_options INTERFACE)
target_compile_features(nodo_options INTERFACE cxx_std_20)
target_compile_definitions(nodo_options INTERFACE _GNU_SOURCE)
target_compile_options(
  nodo_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wold-style-cast
            -Wcast-align
            -Wimplicit-fallthrough
            -Wformat=2
            # A field left out of a designated initialiser takes its default on purpose.
            -Wno-missing-field-initializers
            # GCC's full -Wshadow objects to a constructor's parameter with the name of its field.
            $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
            # GCC 12 sees an overlap inside its own std::string where there is none (its PR 105651).
            $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
if(NODO_WARNINGS_AS_ERRORS)
  target_compile_options(nodo_options INTERFACE -Werror)
endif()

if(NODO_SANITIZE)
  # A report names lines, not variables: leaving these out saves a quarter of the compilation.
  target_compile_options(nodo_options INTERFACE -fsanitize=${NODO_SANITIZE} -g1
                                                -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(nodo_options INTERFACE -fsanitize=${NODO_SANITIZE})
  # This check reads memory through a pipe, and takes every object for a broken one once a test has used
  # up the file descriptors.
  if(NODO_SANITIZE MATCHES "undefined")
    target_compile_options(nodo_options INTERFACE -fno-sanitize=vptr)
  endif()
else()
  # The programs run as root on people's machines. Each measure is probed, as compilers differ: with
  # -Werror, as some take a measure that their target lacks and only warn.
  set(CMAKE_REQUIRED_FLAGS -Werror)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "HAS${flag}" result)
    check_cxx_compiler_flag(${flag} ${result})
    if(${result})
      target_compile_options(nodo_options INTERFACE ${flag})
    endif()
  endforeach()
  unset(CMAKE_REQUIRED_FLAGS)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")  # fortification needs optimisation
    target_compile_options(nodo_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  foreach(flag -Wl,-z,relro -Wl,-z,now)
    string(MAKE_C_IDENTIFIER "HAS${flag}" result)
    check_linker_flag(CXX ${flag} ${result})
    if(${result})
      target_link_options(nodo_options INTERFACE ${flag})
    endif()
  endforeach()
endif()

# What a program does not use is left out of it by the linker.
if(NOT NODO_SANITIZE AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_compile_options(nodo_options INTERFACE -ffunction-sections -fdata-sections)
endif()

# Programs start faster, and run on more machines, with the C++ runtime inside and without libraries
# that only the compiler asks for.
add_library(nodo_program_options INTERFACE)
if(NOT NODO_SANITIZE AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_link_options(nodo_program_options INTERFACE -static-libstdc++ -static-libgcc
                                                     -Wl,--gc-sections -Wl,--as-needed)
endif()

# For nodocore.pc: the way from its folder back to the prefix, so that an installed tree can be moved.
# Folders that were given as absolute paths stay where they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(NODO_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(NODO_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  string(REGEX REPLACE "[^/]+" ".." NODO_PC_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  string(PREPEND NODO_PC_PREFIX "\${pcfiledir}/")
  set(NODO_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(NODO_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(NODO_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
