# Installation and the files that let clients find the installed library:
#
#   lib/      libextract_verify.so (with its soname) and the platform
#             stand-ins libhxlog.so and libHX_ConfigParser.so
#   include/extract_verify/
#             extract_verify.h and every project header it includes, by
#             their paths from the project root (status/kalu_status.h ...),
#             plus the stand-ins' headers under platform/. Installed copies
#             include each other as "extract_verify/<path>", so a client
#             needs only -I<prefix>/include and writes
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

# The project headers that `header` includes ("dir/name.h"), directly or
# through each other, appended to the list named by `out`.
function(ev_collect_headers header out)
  set(found ${${out}})
  set(pending ${header})
  while(pending)
    list(POP_FRONT pending current)
    if(current IN_LIST found)
      continue()
    endif()
    list(APPEND found ${current})
    if(EXISTS ${PROJECT_SOURCE_DIR}/${current})
      set(path ${PROJECT_SOURCE_DIR}/${current})
    else()
      set(path ${PROJECT_SOURCE_DIR}/include/${current})
    endif()
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    file(STRINGS ${path} lines REGEX "^#include \"")
    list(TRANSFORM lines REPLACE "^#include \"([^\"]+)\".*" "\\1")
    list(APPEND pending ${lines})
  endwhile()
  set(${out} ${found} PARENT_SCOPE)
endfunction()

# Writes the installed copy of the header at `path`, whose project includes
# get the "extract_verify/" prefix.
function(ev_stage_header path staged)
  file(READ ${path} content)
  string(REGEX REPLACE "(^|\n)#include \"" "\\1#include \"extract_verify/" content "${content}")
  file(WRITE ${staged} "${content}")
endfunction()

set(ev_public_headers)
ev_collect_headers(extract_verify.h ev_public_headers)
ev_collect_headers(platform/hxlog/hxlog.h ev_public_headers)
ev_collect_headers(platform/hxconfig/HXConfigReader.h ev_public_headers)
foreach(header ${ev_public_headers})
  if(EXISTS ${PROJECT_SOURCE_DIR}/${header})
    set(path ${PROJECT_SOURCE_DIR}/${header})
  else()
    set(path ${PROJECT_SOURCE_DIR}/include/${header})
  endif()
  set(staged ${PROJECT_BINARY_DIR}/installed_headers/${header})
  ev_stage_header(${path} ${staged})
  get_filename_component(subdir ${header} DIRECTORY)
  install(FILES ${staged} DESTINATION ${ev_install_includedir}/${subdir} COMPONENT dev)
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/installed_headers/forward/extract_verify.h
  "// Kept for clients that include the library's header by its bare name.\n"
  "#include \"extract_verify/extract_verify.h\"\n")
install(FILES ${PROJECT_BINARY_DIR}/installed_headers/forward/extract_verify.h
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
  configure_file(${PROJECT_SOURCE_DIR}/cmake/extract_verify.pc.in
    ${generated}/extract_verify.pc @ONLY)
  install(FILES ${generated}/extract_verify.pc
    DESTINATION ${libdir}/pkgconfig COMPONENT ${dev_component} ${ARGN})
endfunction()

ev_install_library_files(prefix ${CMAKE_INSTALL_LIBDIR} lib lib_dev)
