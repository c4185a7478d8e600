find_package(GTest REQUIRED)
include(GoogleTest)

set(INET_AGENT_TEST_TIMEOUT 120 CACHE STRING "Seconds after which one test counts as failed")

# agent_test(NAME [DEVICE] SOURCES a.cpp ... LINK lib ...): one executable, one ctest entry per test case.
# DEVICE: each case runs in a private view of the device's directories, fresh and thrown away afterwards.
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
      "${CMAKE_SOURCE_DIR}/script/device;--temp;--;${CMAKE_CROSSCOMPILING_EMULATOR}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
