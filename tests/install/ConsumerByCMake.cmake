# A project finds the installed package with find_package().
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(folder "${scratch}/by-cmake")
run("${CMAKE_COMMAND}"
    -S "${consumer}"
    -B "${folder}"
    -G "${generator}"
    "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_CXX_COMPILER=${compiler}"
    "-DCMAKE_CXX_FLAGS=${sanitizer_flags}")

# A copy elsewhere on this machine would prove nothing.
load_cache("${folder}" READ_WITH_PREFIX found_ NODOCore_DIR)
cmake_path(IS_PREFIX prefix "${found_NODOCore_DIR}" is_ours)
if(NOT is_ours)
  message(FATAL_ERROR "Found the package in ${found_NODOCore_DIR} instead of in ${prefix}")
endif()

run("${CMAKE_COMMAND}" --build "${folder}")
expect_decisions("${folder}/consumer")
