find_package(GTest REQUIRED)
include(GoogleTest)

set(INET_AGENT_TEST_TIMEOUT 120 CACHE STRING "Seconds after which one test counts as failed")

# Tests run the agent confined by the policy that is shipped, where its code does no more than it does in use: not what
# sanitizers, a count of covered lines or an emulator add.
set(INET_AGENT_TEST_POLICY "")
string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags_of_build_type)
if(NOT INET_AGENT_SANITIZE AND NOT CMAKE_CROSSCOMPILING_EMULATOR
   AND NOT "${CMAKE_CXX_FLAGS} ${${flags_of_build_type}}" MATCHES "--coverage|-fsanitize|-fprofile")
  set(INET_AGENT_TEST_POLICY ${INET_AGENT_POLICY})
endif()

# What scripts need to build and run programs for another processor as this build does.
set(INET_AGENT_TEST_CROSS "")
if(CMAKE_CROSSCOMPILING_EMULATOR)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  set(INET_AGENT_TEST_CROSS EMULATOR=${emulator} CMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE})
endif()

# The command before a test that needs a device: a private view of its directories, fresh and thrown away afterwards.
set(INET_AGENT_TEST_DEVICE ${CMAKE_SOURCE_DIR}/script/device --temp --policy=${INET_AGENT_TEST_POLICY} --)

# Cases that an emulator cannot run, as a filter of Google Test's.
set(INET_AGENT_TEST_FILTER "")
if(CMAKE_CROSSCOMPILING_EMULATOR)
  file(STRINGS ${CMAKE_SOURCE_DIR}/tests/not_emulated.txt not_emulated REGEX "^[A-Z]")
  list(TRANSFORM not_emulated REPLACE " .*" "")
  list(JOIN not_emulated ":" not_emulated)
  set(INET_AGENT_TEST_FILTER TEST_FILTER "-${not_emulated}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/not_emulated.txt)
endif()

# tested_program(VARIABLE TARGET): the command with which tests start this program of ours. Built for another processor, it
# is a launcher of that name, which goes through the emulator: nobody but ctest would know of it.
function(tested_program variable target)
  set(command $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(launcher ${CMAKE_BINARY_DIR}/emulated/${target})
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${launcher} CONTENT "#!/bin/sh\nexec ${emulator} '${command}' \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(command ${launcher})
  endif()
  set(${variable} ${command} PARENT_SCOPE)
endfunction()

# agent_test(NAME [DEVICE] SOURCES a.cpp ... LINK lib ...): one executable, one ctest entry per test case.
# DEVICE: each case runs behind INET_AGENT_TEST_DEVICE.
function(agent_test name)
  cmake_parse_arguments(ARG "DEVICE" "TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT ${INET_AGENT_TEST_TIMEOUT})
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} agent_options GTest::gmock_main)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/tests)
  if(ARG_DEVICE)
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
      "${INET_AGENT_TEST_DEVICE};${CMAKE_CROSSCOMPILING_EMULATOR}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 ${INET_AGENT_TEST_FILTER}
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
