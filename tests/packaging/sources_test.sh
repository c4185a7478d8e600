#!/usr/bin/env bash
# sources_test.sh SOURCE_DIRECTORY SOURCE...: Android.bp builds what CMake builds (the given sources, relative to
# SOURCE_DIRECTORY), but for the sides of the platform; no file of src/ is built by neither; and what Android.bp names is there.
set -euo pipefail
cd -- "$1"
shift
failed=0

# compare TITLE EXPECTED ACTUAL
compare() {
    if ! diff <(sort <<<"$2") <(sort <<<"$3") >&2; then
        printf 'missing (<), and more than there should be (>): %s\n' "$1" >&2
        failed=1
    fi
}

cmake=$(printf '%s\n' "$@" | grep -v '^src/platform/\(workstation\|device\)/')
shipped=$'src/platform/device/AndroidLog.cpp\nsrc/platform/device/HeapPages.cpp'
compare "files of src/ in CMake's lists" "$(find src -name '*.cpp' -not -path 'src/platform/workstation/*')" \
    "$cmake"$'\n'"$shipped"$'\nsrc/platform/device/NoMinijail.cpp'
compare "CMake's files in Android.bp" "$cmake"$'\n'"$shipped" \
    "$(grep -o 'src/[^"*]*\.cpp",$' Android.bp | tr -d '",')"
while read -r file; do
    [[ -e $file ]] || { echo "Android.bp names $file, which is not there" >&2; failed=1; }
done < <(grep -v '^//' Android.bp | grep -oE '"(src|packaging)[^"]*"' | tr -d '"')
exit "$failed"
