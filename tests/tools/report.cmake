# mqctl report: the log's forms and meaning, what is made of it, and a run of the real agent.
find_package(nlohmann_json REQUIRED)
agent_test(report_test
  SOURCES report_log_test.cpp report_output_test.cpp report_requests_test.cpp
  LINK mqctl_report)
agent_test(report_agent_test DEVICE
  SOURCES report_agent_test.cpp
  LINK test_support nlohmann_json::nlohmann_json)
target_compile_definitions(report_agent_test PRIVATE
  MQCTL_PATH="${TESTED_MQCTL}" INET_AGENT_PATH="${TESTED_AGENT}")
add_dependencies(report_agent_test mqctl inet-agent)
