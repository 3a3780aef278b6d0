# Debian packages of the installation:
#
#   libextract-verify1     the shared library and the platform stand-ins it
#                          links, in the multiarch library directory
#                          (/usr/lib/<triplet>)
#   libextract-verify-dev  headers, the library's namelink, the CMake
#                          package and the pkg-config file
#   extract-verify         the extract-verify tool, its manual page and its
#                          bash completion
#
# `cmake --build <build> --target package` (or `cpack` in the build
# directory) writes them to the build directory; they install under /usr.
#
# A plain `cmake --install` puts the libraries into lib/ of any prefix. The
# packages want the directory that GNUInstallDirs gives the prefix /usr on
# Debian, whatever prefix this build was configured for, so the files under
# the library directory are installed a second time for them, in components
# that only a component install (cpack) writes. The packages are made of
# groups of components:
#
#   library      deb_lib              (multiarch libraries)
#   development  dev + deb_dev        (headers; multiarch CMake, pkg-config)
#   program      tool                 (the tool)
set(ev_debian_libdir lib)
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(ev_debian_libdir lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()
ev_install_library_files(debian ${ev_debian_libdir} deb_lib deb_dev EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME extract-verify)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "extract_verify maintainers <extract-verify@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Unpacks signed update packages, verifying the signed manifest and every file's SHA-256")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL deb_lib dev deb_dev tool)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_DEB_LIB_GROUP library)
set(CPACK_COMPONENT_DEV_GROUP development)
set(CPACK_COMPONENT_DEB_DEV_GROUP development)
set(CPACK_COMPONENT_TOOL_GROUP program)
# Read per package (group) by CPack's Debian generator.
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_PROGRAM_DEPENDS library)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libextract-verify${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libssl3 (>= 3.0), libarchive13")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libextract-verify-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libssl-dev (>= 3.0), libarchive-dev")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME extract-verify)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)

include(CPack)
