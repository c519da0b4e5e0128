#!/usr/bin/env bash
# Configures, builds and installs libcf as a project of its own, then builds a host of libcf alone and runs it.
#   build_libcf_alone.sh LIBCF WORK HOST_SOURCE COMPILER
set -euo pipefail
libcf=$1 work=$2 host_source=$3 compiler=$4

rm -rf -- "$work"
cmake -S "$libcf" -B "$work/libcf" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=OFF \
    -DCMAKE_CXX_COMPILER="$compiler"
cmake --build "$work/libcf"
cmake --install "$work/libcf" --prefix "$work/prefix"

cmake -S "$host_source" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" -DCMAKE_CXX_STANDARD=17
cmake --build "$work/host"
"$work/host/app"
