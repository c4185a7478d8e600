# Every target of this project links agent_options: warnings, hardening and nothing else.
add_library(agent_options INTERFACE)
target_compile_options(agent_options INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wformat=2 -Werror -fstack-protector-strong
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# A name that is unique in a whole process cannot be made local, and the client library's are none of its program's.
target_compile_options(agent_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
# Hardening; tests/packaging/hardening_test.sh looks for it in the programs. Some compilers define the fortification already.
if(NOT INET_AGENT_SANITIZE)
  target_compile_options(agent_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  target_compile_options(agent_options INTERFACE -fstack-clash-protection -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  target_compile_options(agent_options INTERFACE -mbranch-protection=standard)
endif()
target_link_options(agent_options INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack,--as-needed)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
