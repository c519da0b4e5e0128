#!/usr/bin/env bash
# Builds examples/ as a project of its own against an installed copy, and runs the first of them without a network.
#   build_examples.sh PREFIX WORK SOURCE COMPILER FLAGS
set -euo pipefail
prefix=$1 work=$2 source=$3 compiler=$4 flags=$5

rm -rf -- "$work"
cmake -S "$source" -B "$work" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags"
cmake --build "$work"
said=$("$work/kai_example_first" localhost:1 2>&1) && { echo "the example reached a server" >&2; exit 1; }
[[ $said == "No connection to the server"* ]] || { echo "the example said: $said" >&2; exit 1; }
