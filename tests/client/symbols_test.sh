#!/usr/bin/env bash
# symbols_test.sh NM SHARED_LIBRARY [STATIC_LIBRARY]: the libraries show their public names and nothing else.
set -euo pipefail

string='std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >'
public=$(sort <<END
inet_agent::Client::Client(inet_agent::Client&&)
inet_agent::Client::call(inet_agent::Request const&)
inet_agent::Client::name[abi:cxx11]() const
inet_agent::Client::open($string const&, inet_agent::Options const&)
inet_agent::Client::operator=(inet_agent::Client&&)
inet_agent::Client::request(inet_agent::Request const&)
inet_agent::Client::request(inet_agent::Request const&, std::function<void (inet_agent::Reply)>)
inet_agent::Client::~Client()
inet_agent::toText(inet_agent::ReplyKind)
END
)
names() { # of nm's lines, each name once
    "$@" | sed -nE 's/^[0-9a-f]+ [^A ] (.*)$/\1/p' | sed 's/@@INET_AGENT_CLIENT_0$//' | c++filt | sort -u
}

status=0
if ! diff <(echo "$public") <(names "$1" -D --defined-only "$2") >&2; then
    echo "the shared library does not export exactly its public names (<: missing, >: too many)" >&2
    status=1
fi
if [[ -n ${3-} ]]; then
    # The constructor that only the class itself can call is in the one object, too.
    private='inet_agent::Client::Client(std::unique_ptr<inet_agent::Client::Impl, '
    private+='std::default_delete<inet_agent::Client::Impl> >)'
    if ! diff <(echo "$public") <(names "$1" -g --defined-only "$3" | grep -vxF "$private") >&2; then
        echo "the static library's other names are not all local (<: missing, >: too many)" >&2
        status=1
    fi
fi
exit "$status"
