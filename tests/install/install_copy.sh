#!/usr/bin/env bash
# Installs a build into a prefix that holds nothing else, and moves the prefix where a second one is named.
#   install_copy.sh BUILD PREFIX [MOVED_PREFIX]
set -euo pipefail
build=$1
prefix=$2
moved=${3:-}

rm -rf -- "$prefix"
cmake --install "$build" --prefix "$prefix"
if [[ -n $moved ]]; then
    rm -rf -- "$moved"
    mkdir -p -- "$(dirname -- "$moved")"
    mv -- "$prefix" "$moved"
fi
