# agent_fuzzer(NAME [DEVICE] SOURCES a.cpp ... LINK lib ... [WRAP function ...] [DICTIONARY file]): one door for foreign
# bytes, as the executable fuzz_NAME. NAME is the class that the door belongs to; its seeds lie in fuzz/corpus/NAME.
#
# With INET_AGENT_FUZZ it carries libFuzzer. Otherwise it replays files, and a test runs it over its seeds.
# DEVICE: it runs in a private view of the device's directories. WRAP: calls of these functions go to __wrap_FUNCTION.
option(INET_AGENT_FUZZ "Build the fuzz targets with libFuzzer (clang)" OFF)
add_custom_target(fuzzers COMMENT "Every fuzz target")

function(agent_fuzzer name)
  cmake_parse_arguments(ARG "DEVICE" "" "SOURCES;LINK;WRAP" ${ARGN})
  set(target fuzz_${name})
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE ${ARG_LINK} fuzz_support agent_options)
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/tests)
  list(TRANSFORM ARG_WRAP PREPEND "-Wl,--wrap=")
  target_link_options(${target} PRIVATE ${ARG_WRAP})
  add_dependencies(fuzzers ${target})
  if(INET_AGENT_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
    return()
  endif()
  target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/fuzz/replay_main.cpp)
  if(ARG_DEVICE)
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR
      "${CMAKE_SOURCE_DIR}/script/device;--temp;--;${CMAKE_CROSSCOMPILING_EMULATOR}")
  endif()
  add_test(NAME fuzz.${name} COMMAND ${target} ${CMAKE_SOURCE_DIR}/fuzz/corpus/${name})
  set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT ${INET_AGENT_TEST_TIMEOUT})
endfunction()
