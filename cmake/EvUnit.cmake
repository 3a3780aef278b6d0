# ev_add_unit_library(NAME SOURCES... [DEPS ...])
#
# A subsystem is compiled once, as the object library NAME_obj. Its objects
# make both the archive NAME, which the tests link to reach internal units,
# and part of the shared library extract_verify (see EV_UNIT_OBJECTS).
function(ev_add_unit_library name)
  cmake_parse_arguments(U "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name}_obj OBJECT ${U_SOURCES})
  target_include_directories(${name}_obj PUBLIC ${EV_SOURCE_INCLUDE})
  target_link_libraries(${name}_obj PUBLIC ${U_DEPS})
  add_library(${name} STATIC $<TARGET_OBJECTS:${name}_obj>)
  target_link_libraries(${name} PUBLIC ${name}_obj)
  set_property(GLOBAL APPEND PROPERTY EV_UNIT_OBJECTS $<TARGET_OBJECTS:${name}_obj>)
endfunction()
