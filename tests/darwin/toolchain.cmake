# Compiles and links for macOS without a Mac: Debian's clang and ld64.lld, the open headers of Darwin that
# `scripts/setup --darwin` fetches, and stand-ins for the system's frameworks. What it links runs nowhere:
# whatever is not in libSystem is left to be looked up at run time.
#
# CMAKE_OSX_ARCHITECTURES names the one architecture. NODO_DARWIN_LIBRARIES is a folder with `include`,
# `lib` and `share` of the third-party libraries; none of this system's own are looked at.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_OSX_ARCHITECTURES NODO_DARWIN_LIBRARIES)
set(CMAKE_OSX_SYSROOT "")
if(CMAKE_OSX_ARCHITECTURES STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR arm64)
  set(headers_of_architecture aarch64-macos.13-none)
elseif(CMAKE_OSX_ARCHITECTURES STREQUAL "x86_64")
  set(CMAKE_SYSTEM_PROCESSOR x86_64)
  set(headers_of_architecture x86_64-macos.13-none)
else()
  message(FATAL_ERROR "CMAKE_OSX_ARCHITECTURES must be arm64 or x86_64")
endif()

find_program(NODO_DARWIN_CLANG clang++-14 REQUIRED)
get_filename_component(tools "${NODO_DARWIN_CLANG}" REALPATH)
get_filename_component(tools "${tools}" DIRECTORY)
set(CMAKE_C_COMPILER "${tools}/clang")
set(CMAKE_CXX_COMPILER "${tools}/clang++")
set(CMAKE_OBJCXX_COMPILER "${tools}/clang++")
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET "${CMAKE_OSX_ARCHITECTURES}-apple-macosx13.0")
endforeach()
set(CMAKE_AR "${tools}/llvm-ar")
set(CMAKE_RANLIB "${tools}/llvm-ranlib")
set(CMAKE_INSTALL_NAME_TOOL "${tools}/llvm-install-name-tool")

execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-resource-dir OUTPUT_VARIABLE resources
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(project "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(darwin "${project}/build/darwin-headers")
set(headers
    "${resources}/include"
    "${darwin}/libc/include/${headers_of_architecture}"
    "${darwin}/libc/include/any-macos.13-any"
    "${darwin}/libc/include/any-macos-any"
    "${project}/tests/darwin/frameworks"
    "${project}/tests/macos/fakes")
list(JOIN headers " -isystem " flags)
# Not each of them is of use to each call of the compiler, which is no reason to warn.
set(used --start-no-unused-arguments)
set(unused --end-no-unused-arguments)
set(CMAKE_C_FLAGS_INIT "${used} -nostdinc -isystem ${flags} ${unused}")
# How a Mac's own libc++ is configured. Its headers come before C's, which they wrap.
set(CMAKE_CXX_FLAGS_INIT
    "-D_LIBCPP_ABI_VERSION=1 -D_LIBCPP_ABI_NAMESPACE=__1 ${used} -nostdinc++ ${unused} \
-isystem ${darwin}/libcxx/include -isystem ${darwin}/libcxxabi/include ${CMAKE_C_FLAGS_INIT}")
set(CMAKE_OBJCXX_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT}")

set(frameworks "${CMAKE_BINARY_DIR}/frameworks")
foreach(framework CoreFoundation Foundation IOKit Network Security)
  file(
    CONFIGURE OUTPUT "${frameworks}/${framework}.framework/${framework}.tbd" CONTENT
    "--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos, x86_64-macos ]
install-name: '/System/Library/Frameworks/${framework}.framework/Versions/Current/${framework}'
...
")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-fuse-ld=lld -nostdlib -F${frameworks} ${darwin}/libc/darwin/libSystem.13.tbd \
-Wl,-undefined,dynamic_lookup")

set(CMAKE_FIND_ROOT_PATH "${NODO_DARWIN_LIBRARIES}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Debian's folder for a machine's own architecture is none of Darwin's, so CMake has to be shown it.
file(GLOB CMAKE_PREFIX_PATH "${NODO_DARWIN_LIBRARIES}/lib/*/cmake")
file(GLOB packages "${NODO_DARWIN_LIBRARIES}/lib/pkgconfig" "${NODO_DARWIN_LIBRARIES}/lib/*/pkgconfig"
     "${NODO_DARWIN_LIBRARIES}/share/pkgconfig")
list(JOIN packages ":" packages)
set(ENV{PKG_CONFIG_LIBDIR} "${packages}")
