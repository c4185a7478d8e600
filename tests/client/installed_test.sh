#!/usr/bin/env bash
# installed_test.sh BUILD_DIRECTORY AGENT COMPILER [FLAGS...]: installs the library into a scratch prefix, builds programs
# against it as a stranger would, by pkg-config and by CMake, and runs them. To be run in a device's view of its own.
# Environment: EMULATOR, a command that runs the programs; CMAKE_TOOLCHAIN_FILE, how CMake builds them (both optional).
set -euo pipefail

build=$1 agent=$2 compiler=$3
shift 3
flags=("$@")
read -ra emulator <<<"${EMULATOR-}"
here=$(cd -P -- "$(dirname -- "$0")" && pwd)
work=$(mktemp -d /tmp/client-installed.XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
for component in Library Development; do
    cmake --install "$build" --prefix "$prefix" --component "$component" >"$work/install.log"
done
cd "$work"
unset LD_LIBRARY_PATH

# The usage example of the installed header, word for word.
{
    echo '#include <cstdio>'
    sed -n 's|^///   \(#include .*\)|\1|p' "$prefix/include/inet_agent_client.h"
    echo 'static void use(const std::string&) {}'
    echo 'int main() {'
    sed -n '/^\/\/\/   #include/,/^\/\/\/ One Client/ { /#include/d; s|^///   ||p }' "$prefix/include/inet_agent_client.h"
    echo '}'
} >example.cpp
pkg_config=$(PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name inet-agent-client.pc)") \
    pkg-config --cflags --libs inet-agent-client)
# shellcheck disable=SC2086  # flags are words
"$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror "${flags[@]}" example.cpp -o example $pkg_config
said=$("${emulator[@]}" ./example 2>&1)
[[ $said == "no such participant: "* ]] || { echo "the example says: $said" >&2; exit 1; }

# A program with a framework of its own under the same names, against both libraries.
cp "$here/own_framework.cpp" .
cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.16)
project(stranger CXX)
find_package(inet-agent-client 0.1 REQUIRED)
foreach(library client client-static)
  if(TARGET inet-agent::\${library})
    add_executable(with-\${library} own_framework.cpp)
    set_target_properties(with-\${library} PROPERTIES ENABLE_EXPORTS ON)  # its names reach for the library's
    target_link_libraries(with-\${library} PRIVATE inet-agent::\${library})
  endif()
endforeach()
install(TARGETS with-client DESTINATION bin)
END
cmake -G Ninja -S . -B out -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="${flags[*]}" >cmake.log
cmake --build out >>cmake.log
"$agent" >agent.log 2>&1 &
agent_pid=$!
for program in out/with-*; do
    [[ -x $program ]] || continue
    said=$("${emulator[@]}" "./$program" 2>&1) || { printf '%s failed: %s\n' "$program" "$said" >&2; cat agent.log >&2; exit 1; }
    [[ -z $said ]] || { printf '%s prints: %s\n' "$program" "$said" >&2; exit 1; }
done
kill "$agent_pid"
wait "$agent_pid"
