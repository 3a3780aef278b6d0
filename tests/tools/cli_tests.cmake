# Tests of the extract-verify tool and of the installed library; included
# from this folder's CMakeLists.txt.

# The extract-verify tool run as a separate process, as a user runs it. Its
# extractions write the shared error report file. Its reports are read as
# JSON.
find_package(nlohmann_json 3 CONFIG REQUIRED)
ev_add_test(cli_test
  SOURCES tool_fixture.cc cli_test.cc
  LIBS ev_testpackage nlohmann_json::nlohmann_json
  PROPERTIES TIMEOUT 300 RESOURCE_LOCK error_report_file ENVIRONMENT TZ=UTC)
string(JOIN " " ev_tool_emulator ${CMAKE_CROSSCOMPILING_EMULATOR})
target_compile_definitions(cli_test PRIVATE
  EV_TOOL_PATH="$<TARGET_FILE:extract-verify>"
  EV_TOOL_EMULATOR="${ev_tool_emulator}")
add_dependencies(cli_test extract-verify)

# The installed library, headers, CMake package and pkg-config file, used by
# the example client as a client project would. Runs under the report lock:
# the client's and the tool's runs write the shared error report file.
set(ev_client_args -G ${CMAKE_GENERATOR} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
    -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE})
set(ev_client_flags)
if(EV_SANITIZE STREQUAL "address" OR EV_FUZZ)
  set(ev_client_flags "-fsanitize=address,undefined")
elseif(EV_SANITIZE STREQUAL "thread")
  set(ev_client_flags "-fsanitize=thread")
endif()
if(ev_client_flags)
  list(APPEND ev_client_args "-DCMAKE_CXX_FLAGS=${ev_client_flags}")
endif()
if(CMAKE_TOOLCHAIN_FILE)
  list(APPEND ev_client_args -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}
       -DEV_ARMHF_SYSROOT=${EV_ARMHF_SYSROOT})
endif()
add_test(NAME install_example_client
  COMMAND flock /tmp/extract_verify_error.txt.lock
          ${CMAKE_CURRENT_SOURCE_DIR}/install_test.sh ${PROJECT_BINARY_DIR}
          ${PROJECT_SOURCE_DIR}/examples ${CMAKE_CURRENT_BINARY_DIR}/install_test
          ${ev_client_args})
set_tests_properties(install_example_client PROPERTIES
  TIMEOUT 300 RESOURCE_LOCK "error_report_file;build_tree_install"
  ENVIRONMENT "TZ=UTC;CXX=${CMAKE_CXX_COMPILER};EV_CLIENT_FLAGS=${ev_client_flags};EV_EMULATOR=${ev_tool_emulator}")

# The Debian packages that cpack makes of the installation, and lintian's
# verdict on them. Installing from the build tree writes its install
# manifest there, so the two tests that install take turns.
add_test(NAME deb_packages
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/deb_packages_test.sh ${PROJECT_BINARY_DIR}
          ${CMAKE_CURRENT_BINARY_DIR}/deb_packages_test)
set_tests_properties(deb_packages PROPERTIES
  TIMEOUT 300 SKIP_RETURN_CODE 77 RESOURCE_LOCK build_tree_install)
