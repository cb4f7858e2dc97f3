# The libraries that the project stands on. Nothing is fetched: the system's packages are used.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)

include("${CMAKE_CURRENT_LIST_DIR}/NodoLibraries.cmake")
