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
#   program      tool + deb_tool      (the tool; the package's documents)
#
# Every package carries its copyright file and changelog, as Debian's
# lintian asks. The libraries' Depends come from dpkg-shlibdeps, so that a
# build with or without ISA-L, or with a sanitizer's runtime, names what it
# links.
set(ev_debian_libdir lib)
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(ev_debian_libdir lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()
ev_install_library_files(debian ${ev_debian_libdir} deb_lib deb_dev EXCLUDE_FROM_ALL)

set(EV_PACKAGE_MAINTAINER "extract_verify maintainers <extract-verify@example.org>"
  CACHE STRING "The Maintainer field of the Debian packages")
# Group, package and the component that carries the package's documents.
set(ev_debian_packages library libextract-verify${PROJECT_VERSION_MAJOR} deb_lib
                       development libextract-verify-dev deb_dev
                       program extract-verify deb_tool)

# The changelog of a package built from these sources, dated at configure
# time (SOURCE_DATE_EPOCH, when set, fixes the date).
string(TIMESTAMP ev_debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(ev_debian_docs ${PROJECT_BINARY_DIR}/debian)
while(ev_debian_packages)
  list(POP_FRONT ev_debian_packages group package component)
  string(TOUPPER ${group} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(ev_debian_package ${package})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in
    ${ev_debian_docs}/${package}/changelog @ONLY)
  execute_process(COMMAND ${EV_GZIP} -9 -n -f ${ev_debian_docs}/${package}/changelog
    COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
                ${ev_debian_docs}/${package}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endwhile()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME extract-verify)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${EV_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL deb_lib dev deb_dev tool deb_tool)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_DEB_LIB_GROUP library)
set(CPACK_COMPONENT_DEV_GROUP development)
set(CPACK_COMPONENT_DEB_DEV_GROUP development)
set(CPACK_COMPONENT_TOOL_GROUP program)
set(CPACK_COMPONENT_DEB_TOOL_GROUP program)
# Read per package (group) by CPack's Debian generator.
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_PROGRAM_DEPENDS library)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
string(CONCAT CPACK_DEBIAN_LIBRARY_DESCRIPTION
  "library that unpacks and verifies signed update packages\n"
  "Unpacks a signed software-update package (a gzip tar) into a directory\n"
  "while verifying it: the PKCS#7 signature of its manifest against trusted\n"
  "certificates, and every file's size and SHA-256 against the manifest.\n"
  "Also holds stand-ins of the head unit's logging and configuration\n"
  "libraries, which the library links.")
# The shlibs file lets packages that link the library depend on this one;
# the trigger runs ldconfig for the new library.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
string(CONCAT CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "development files of the update package verifier library\n"
  "Headers, the CMake package (find_package(extract_verify)) and the\n"
  "pkg-config file of libextract-verify, the library that unpacks signed\n"
  "update packages while verifying them.")
# The installed headers include OpenSSL's and libarchive's.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libssl-dev (>= 3.0), libarchive-dev")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
string(CONCAT CPACK_DEBIAN_PROGRAM_DESCRIPTION
  "tool to extract, build and check signed update packages\n"
  "extract-verify unpacks a signed update package exactly as the library\n"
  "does, inspects one without extracting it, and builds, signs anew or\n"
  "attaches a signature to packages.")
# pack and resign sign with a key in a token through OpenSSL's PKCS#11
# engine, which OpenSSL loads only when a pkcs11: URI is given.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS libengine-pkcs11-openssl)

# The tool's package finds the library it links in the library package's
# staging folder, a sibling of its own (dpkg-shlibdeps runs in the staging
# folder of the package it reads).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../library/usr/${ev_debian_libdir})
if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps knows only the libraries of the host's installed
  # packages; a cross build links those of a sysroot. Its packages name
  # the target's packages of what it links.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6, libssl3, libarchive13")
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS}")
  if(EV_USE_ISAL)
    string(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ", libisal2")
  endif()
endif()

include(CPack)
