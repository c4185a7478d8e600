# find_package(inet-agent-client) gives inet-agent::client (shared) and, where it was built, inet-agent::client-static.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/inet-agent-client-targets.cmake)
