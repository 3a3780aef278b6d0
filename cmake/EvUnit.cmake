# ev_add_unit_library(NAME [SEAMS] SOURCES... [DEPS ...])
#
# A subsystem is compiled as the object library NAME_obj, with hidden
# visibility: only declarations marked EV_EXPORT leave the shared library.
# Its objects make part of the shared library extract_verify (see
# EV_UNIT_OBJECTS) and, unless SEAMS is given, the archive NAME that the tests
# link to reach internal units.
#
# SEAMS: the subsystem has fault-injection hooks for tests, declared in its
# headers ("Test hook, in the test build only").
# Its sources are then compiled a second time with EV_TEST_SEAMS defined, and
# that copy alone makes the archive NAME; the shared library never holds the
# hooks.
function(ev_add_unit_library name)
  cmake_parse_arguments(U "SEAMS" "" "SOURCES;DEPS" ${ARGN})
  set(variants ${name}_obj)
  if(U_SEAMS)
    list(APPEND variants ${name}_seams_obj)
  endif()
  foreach(variant ${variants})
    add_library(${variant} OBJECT ${U_SOURCES})
    target_include_directories(${variant} PUBLIC ${EV_SOURCE_INCLUDE})
    target_link_libraries(${variant} PUBLIC ${U_DEPS})
    set_target_properties(${variant} PROPERTIES
      CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  endforeach()
  list(GET variants -1 tested)
  if(U_SEAMS)
    target_compile_definitions(${tested} PRIVATE EV_TEST_SEAMS)
  endif()
  add_library(${name} STATIC $<TARGET_OBJECTS:${tested}>)
  target_link_libraries(${name} PUBLIC ${tested})
  set_property(GLOBAL APPEND PROPERTY EV_UNIT_OBJECTS $<TARGET_OBJECTS:${name}_obj>)
endfunction()
