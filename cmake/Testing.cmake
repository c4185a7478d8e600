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

# The command before a test that needs a device: a private view of its directories, fresh and thrown away afterwards.
set(INET_AGENT_TEST_DEVICE ${CMAKE_SOURCE_DIR}/script/device --temp --policy=${INET_AGENT_TEST_POLICY} --)

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
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
