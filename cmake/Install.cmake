# Installation and the files that let clients find the installed library:
#
#   lib/      libextract_verify.so (with its soname) and the platform
#             stand-ins libhxlog.so and libHX_ConfigParser.so
#   include/extract_verify/
#             the interface: extract_verify.h and the headers it includes
#             (status.h, extraction.h, manifest.h, verify.h, hash.h,
#             buffers.h, resources.h, export.h, thread_annotations.h),
#             copied from include/ as they are. A client needs only
#             -I<prefix>/include and OpenSSL's headers, and writes
#             #include <extract_verify/extract_verify.h>
#   include/extract_verify.h
#             forwards there, for clients that include the bare name
#   bin/      the extract-verify tool
#   share/    its manual page (man/man1/extract-verify.1.gz) and bash
#             completion
#   lib/cmake/extract_verify/
#             find_package(extract_verify): the imported target
#             extract_verify::extract_verify
#   lib/pkgconfig/extract_verify.pc
#
# Installed binaries find their libraries next to themselves ($ORIGIN), so a
# prefix can be moved or used without ldconfig. Each file belongs to one
# component: lib (the shared libraries), lib_dev (namelink, CMake and
# pkg-config files), dev (headers) and tool (the extract-verify tool, its
# manual page and completion). The files under lib/ are installed by
# ev_install_library_files, which the Debian packages call once more for
# their own library directory (cmake/Package.cmake).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ev_install_includedir ${CMAKE_INSTALL_INCLUDEDIR}/extract_verify)

# The headers are installed as they stand: they include each other as
# "extract_verify/<name>.h" and nothing of the project's beyond them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/extract_verify
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/include/extract_verify.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

set_target_properties(extract_verify PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(extract-verify PROPERTIES
  INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS extract-verify RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)

# The libraries in `libdir` (relative to the prefix), in component
# `lib_component`; their namelink, the CMake package and the pkg-config file,
# which find the prefix from their own place, in `dev_component`. `layout`
# names the export set and the build folder of the generated files. ARGN:
# EXCLUDE_FROM_ALL for files that only a component install (cpack) writes.
function(ev_install_library_files layout libdir lib_component dev_component)
  set(cmakedir ${libdir}/cmake/extract_verify)
  set(generated ${PROJECT_BINARY_DIR}/install_${layout})
  install(TARGETS extract_verify hxlog HX_ConfigParser
    EXPORT extract_verify_${layout}_targets
    LIBRARY DESTINATION ${libdir} COMPONENT ${lib_component}
            NAMELINK_COMPONENT ${dev_component} ${ARGN})
  install(EXPORT extract_verify_${layout}_targets
    NAMESPACE extract_verify::
    FILE extract_verifyTargets.cmake
    DESTINATION ${cmakedir} COMPONENT ${dev_component} ${ARGN})
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/extract_verifyConfig.cmake.in
    ${generated}/extract_verifyConfig.cmake
    INSTALL_DESTINATION ${cmakedir})
  write_basic_package_version_file(${generated}/extract_verifyConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  install(FILES
    ${generated}/extract_verifyConfig.cmake
    ${generated}/extract_verifyConfigVersion.cmake
    DESTINATION ${cmakedir} COMPONENT ${dev_component} ${ARGN})

  # The .pc file finds the prefix from its own place, wherever the prefix is.
  file(RELATIVE_PATH ev_pc_to_prefix /root/${libdir}/pkgconfig /root)
  string(REGEX REPLACE "/$" "" ev_pc_to_prefix "${ev_pc_to_prefix}")
  set(ev_pc_libdir ${libdir})
  set(EV_PC_ISAL "")
  if(EV_USE_ISAL)
    set(EV_PC_ISAL " libisal")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/extract_verify.pc.in
    ${generated}/extract_verify.pc @ONLY)
  install(FILES ${generated}/extract_verify.pc
    DESTINATION ${libdir}/pkgconfig COMPONENT ${dev_component} ${ARGN})
endfunction()

ev_install_library_files(prefix ${CMAKE_INSTALL_LIBDIR} lib lib_dev)
