# Every target of this project links agent_options: warnings, hardening and nothing else.
add_library(agent_options INTERFACE)
target_compile_options(agent_options INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wformat=2 -Werror -fstack-protector-strong
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# A name that is unique in a whole process cannot be made local, and the client library's are none of its program's.
target_compile_options(agent_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
if(NOT INET_AGENT_SANITIZE)
  target_compile_options(agent_options INTERFACE $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(agent_options INTERFACE -Wl,-z,relro,-z,now,--as-needed)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
