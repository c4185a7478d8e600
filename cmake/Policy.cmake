# The seccomp policy of the architecture that is built for; packaging/seccomp has it.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(INET_AGENT_POLICY ${CMAKE_SOURCE_DIR}/packaging/seccomp/inet-agent.x86_64.policy)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(INET_AGENT_POLICY ${CMAKE_SOURCE_DIR}/packaging/seccomp/inet-agent.arm64.policy)
else()
  set(INET_AGENT_POLICY "")
  message(STATUS "No seccomp policy for ${CMAKE_SYSTEM_PROCESSOR}: the agent is not confined")
endif()
