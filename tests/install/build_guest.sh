#!/usr/bin/env bash
# Builds a host that takes libkai's sources into its own build, and runs it. It compiles the libraries and the host and
# nothing else.
#   build_guest.sh KAI_SOURCE WORK GUEST_SOURCE COMPILER [CMAKE_ARGUMENT...]
set -euo pipefail
kai_source=$1 work=$2 guest_source=$3 compiler=$4
shift 4
# shellcheck source=tests/install/check_host.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/check_host.sh"

rm -rf -- "$work"
cmake -S "$guest_source" -B "$work" -G Ninja -DKAI_SOURCE="$kai_source" -DCMAKE_CXX_COMPILER="$compiler" "$@"
cmake --build "$work"

foreign=$(ninja -C "$work" -t targets all | grep -E '\.o: ' | grep -vE '(/cf|/kai_objects|^CMakeFiles/app)\.dir/' || true)
if [[ -n $foreign ]]; then
    printf 'a host has no use for these:\n%s\n' "$foreign" >&2
    exit 1
fi
check_host "$work/app" "$work"
