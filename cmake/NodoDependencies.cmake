# The libraries that the project stands on. Nothing is fetched: the system's packages are used.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)

# Headers only. What Homebrew and Debian say about it to CMake differs.
find_path(NODO_RAPIDJSON_INCLUDE_DIR rapidjson/reader.h REQUIRED)
mark_as_advanced(NODO_RAPIDJSON_INCLUDE_DIR)
add_library(nodo::rapidjson INTERFACE IMPORTED)
target_include_directories(nodo::rapidjson INTERFACE "${NODO_RAPIDJSON_INCLUDE_DIR}")

# Headers only: it checks one small file while hooks are installed, and loading its shared library
# would cost every start of nodoctl more than that.
find_path(NODO_TOML_INCLUDE_DIR toml++/toml.h REQUIRED)
mark_as_advanced(NODO_TOML_INCLUDE_DIR)
add_library(nodo::toml INTERFACE IMPORTED)
target_include_directories(nodo::toml INTERFACE "${NODO_TOML_INCLUDE_DIR}")
target_compile_definitions(nodo::toml INTERFACE TOML_HEADER_ONLY=1 TOML_EXCEPTIONS=0)

include("${CMAKE_CURRENT_LIST_DIR}/NodoLibraries.cmake")
