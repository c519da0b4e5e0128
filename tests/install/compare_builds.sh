#!/usr/bin/env bash
# Builds the libraries from a copy of the sources that lies elsewhere, as another project's guest, and compares them
# with those of this build: they are the same to the last byte.
#   compare_builds.sh KAI_SOURCE WORK GUEST_SOURCE COMPILER LIBKAI LIBCF [CMAKE_ARGUMENT...]
set -euo pipefail
kai_source=$1 work=$2 guest_source=$3 compiler=$4 libkai=$5 libcf=$6
shift 6

rm -rf -- "$work.source"
mkdir -p -- "$work.source"
cp -r -- "$kai_source"/{CMakeLists.txt,VERSION,cmake,include,libcf,packaging,src} "$work.source"
"$(dirname -- "${BASH_SOURCE[0]}")/build_guest.sh" "$work.source" "$work" "$guest_source" "$compiler" "$@"
cmp -- "$libkai" "$(realpath -- "$work/kai/src/libkai.so")"
cmp -- "$libcf" "$(realpath -- "$work/kai/libcf/libcf.so")"
