# Debian packages of the installation, one per install component:
#
#   libextract-verify1     component lib: the shared library and the
#                          platform stand-ins it links
#   libextract-verify-dev  component dev: headers, the library's namelink,
#                          the CMake package and the pkg-config file
#   extract-verify         component tool: the extract-verify tool
#
# `cmake --build <build> --target package` (or `cpack` in the build
# directory) writes them to the build directory; they install under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME extract-verify)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "extract_verify maintainers <extract-verify@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Unpacks signed update packages, verifying the signed manifest and every file's SHA-256")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL lib dev tool)
set(CPACK_COMPONENT_DEV_DEPENDS lib)
set(CPACK_COMPONENT_TOOL_DEPENDS lib)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

set(CPACK_DEBIAN_LIB_PACKAGE_NAME libextract-verify${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_DEPENDS "libssl3 (>= 3.0), libarchive13")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libextract-verify-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libssl-dev (>= 3.0), libarchive-dev")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME extract-verify)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)

include(CPack)
