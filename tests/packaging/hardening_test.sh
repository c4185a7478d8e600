#!/usr/bin/env bash
# hardening_test.sh [--fortified] FILE...: programs and shared libraries were built and linked with what makes a fault harder
# to exploit. --fortified: by an optimising build, which also checks the sizes of buffers.
set -euo pipefail
fortified=no
if [[ $1 == --fortified ]]; then
    fortified=yes
    shift
fi
failed=0
for file in "$@"; do
    headers=$(readelf --wide --file-header --program-headers --dynamic "$file")
    symbols=$(readelf --wide --dyn-syms "$file")
    # has WHAT PATTERN [TEXT]
    has() {
        if ! grep -qE "$2" <<<"${3-$headers}"; then
            echo "$file: no $1" >&2
            failed=1
        fi
    }
    has "position-independent code" '^ *Type: *DYN'
    if [[ $file != *.so* ]]; then
        has "position-independent executable" '\(FLAGS_1\).*\bPIE\b'
    fi
    has "relocations made read-only" '^ *GNU_RELRO '
    has "binding at the start" '\(FLAGS_1\).*\bNOW\b'
    # A missing header would mean an executable stack, too.
    has "stack without execution" '^ *GNU_STACK .* RW +0x'
    has "stack protector" ' __stack_chk_fail' "$symbols"
    if [[ $fortified == yes ]]; then
        has "fortified call" ' __[a-z]+_chk(@| |$)' "$symbols"
    fi
    for bad in 'LOAD .* RWE ' '\(TEXTREL\)'; do
        if grep -E "$bad" <<<"$headers" >&2; then
            echo "$file: code that is writable" >&2
            failed=1
        fi
    done
done
exit "$failed"
