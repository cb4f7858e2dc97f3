# A project without CMake asks pkg-config for the flags.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${prefix}/${libdir}/pkgconfig")
run("${pkg_config}" --modversion nodocore)
string(STRIP "${output}" found_version)
if(NOT found_version STREQUAL version)
  message(FATAL_ERROR "The package names version ${found_version} instead of ${version}")
endif()
run("${pkg_config}" --cflags --libs --static nodocore)
separate_arguments(flags UNIX_COMMAND "${output}")

set(folder "${scratch}/by-pkg-config")
file(MAKE_DIRECTORY "${folder}")
run("${compiler}" -std=c++20 ${sanitizer_flags} "${consumer}/main.cpp" -o "${folder}/consumer" ${flags})
expect_decisions("${folder}/consumer")
