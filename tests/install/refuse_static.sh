#!/usr/bin/env bash
# A build that asks for static libraries is refused, with the reason and what to do.
#   refuse_static.sh KAI_SOURCE WORK COMPILER
set -euo pipefail
kai_source=$1 work=$2 compiler=$3

rm -rf -- "$work"
if said=$(cmake -S "$kai_source" -B "$work" -G Ninja -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF \
    -DCMAKE_CXX_COMPILER="$compiler" 2>&1); then
    echo "static libraries should have been refused" >&2
    exit 1
fi
# cmake breaks its messages' lines.
said=$(tr -s ' \n' ' ' <<<"$said")
[[ $said == *"made as shared libraries only"*"Set BUILD_SHARED_LIBS to ON"* ]] || { echo "$said" >&2; exit 1; }
