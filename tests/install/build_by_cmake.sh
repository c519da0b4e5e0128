#!/usr/bin/env bash
# Builds a host as a CMake project against an installed copy and runs it.
#   build_by_cmake.sh PREFIX WORK SOURCE COMPILER FLAGS
set -euo pipefail
prefix=$1 work=$2 source=$3 compiler=$4 flags=$5
# shellcheck source=tests/install/check_host.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/check_host.sh"

rm -rf -- "$work"
cmake -S "$source" -B "$work" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_CXX_STANDARD=17 -DCMAKE_CXX_STANDARD_REQUIRED=ON -DCMAKE_CXX_EXTENSIONS=OFF
cmake --build "$work" --verbose
check_host "$work/app" "$prefix"
