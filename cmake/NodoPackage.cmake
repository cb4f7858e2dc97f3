# The Debian packages: `nodo` for those who use the programs, `libnodocore-dev` for those who build on the
# library, and `nodo-menu` where there is Qt. scripts/package makes them.

if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
  return()
endif()

set(NODO_DEBIAN "${PROJECT_SOURCE_DIR}/packaging/linux/debian")

# The packages' version is that of the changelog, which must know the version that is built.
file(STRINGS "${NODO_DEBIAN}/changelog" NODO_DEBIAN_HEADLINE LIMIT_COUNT 1)
if(NOT NODO_DEBIAN_HEADLINE MATCHES "^nodo \\(([^)-]+)-([^)]+)\\)"
   OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "packaging/linux/debian/changelog begins with \"${NODO_DEBIAN_HEADLINE}\" "
                      "instead of version ${PROJECT_VERSION} of nodo")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE "${CMAKE_MATCH_2}")
file(STRINGS "${NODO_DEBIAN}/changelog" NODO_DEBIAN_SIGNATURE REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- (.*>)  .*" "\\1" CPACK_DEBIAN_PACKAGE_MAINTAINER
                     "${NODO_DEBIAN_SIGNATURE}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nodo)
set(CPACK_PACKAGE_VENDOR "The nodo authors")
set(CPACK_VERBATIM_VARIABLES ON)
# Each package says for itself what it is.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/NodoPackageFiles.cmake")
# The unit takes the prefix from the installation, and that must not be CPack's scratch folder.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME nodo)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "keep a laptop awake while coding agents work
nodo keeps a laptop awake, lid closed too, while coding agents work, and up
to 20 minutes longer. It lets the laptop sleep earlier when staying awake
becomes unsafe: the battery runs low, or the network has been gone for 5
minutes.

This package contains nodoctl, the tool for people and for the agents' hooks,
and nodod, the daemon that holds the sleep lock.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "dbus | dbus-system-bus, polkitd, systemd")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${NODO_DEBIAN}/postinst" "${NODO_DEBIAN}/prerm"
                                               "${NODO_DEBIAN}/postrm" "${NODO_DEBIAN}/conffiles")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnodocore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "library that decides when a laptop may sleep - development files
NODOCore holds what nodo's programs are made of: the detection of coding
agents, the safety decision, the state and its history, the agents' hooks.

This package contains the headers, the static library, and what CMake and
pkg-config need to find them.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libre2-dev, libutf8proc-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "pkgconf | pkg-config")

if(TARGET nodo-menu)
  set(CPACK_DEBIAN_MENU_PACKAGE_NAME nodo-menu)
  set(CPACK_DEBIAN_MENU_PACKAGE_SECTION utils)
  set(CPACK_COMPONENT_MENU_DESCRIPTION
      "keep a laptop awake while coding agents work - icon for the panel
nodo keeps a laptop awake, lid closed too, while coding agents work, and up
to 20 minutes longer.

This package contains nodo-menu, an icon in the panel that shows whether the
laptop is kept awake and for how long. Its menu keeps the laptop awake without
an agent, ends that, and explains why the laptop sleeps or does not.")
  set(CPACK_DEBIAN_MENU_PACKAGE_SHLIBDEPS ON)
  # Qt loads what draws the icons while it runs, so no program names it, and releases of Debian pack it
  # otherwise.
  set(icon_engine qt6/plugins/iconengines/libqsvgicon.so)
  execute_process(COMMAND dpkg-query --search "*/${icon_engine}" OUTPUT_VARIABLE owner
                  ERROR_QUIET RESULT_VARIABLE status)
  if(status EQUAL 0 AND owner MATCHES "^([^:, ]+):")
    list(APPEND CPACK_COMPONENTS_ALL menu)
    set(CPACK_DEBIAN_MENU_PACKAGE_DEPENDS
        "nodo (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), ${CMAKE_MATCH_1}")
  else()
    message(STATUS "No package holds ${icon_engine}: there will be no package nodo-menu")
  endif()
endif()

include(CPack)
