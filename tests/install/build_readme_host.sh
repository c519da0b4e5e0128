#!/usr/bin/env bash
# Builds the host that README.md shows, which is the first of the examples, against an installed copy, and runs it where
# no server is: it says so.
#   build_readme_host.sh PREFIX WORK README COMPILER FLAGS
set -euo pipefail
prefix=$1 work=$2 readme=$3 compiler=$4
read -ra flags <<<"$5"

PKG_CONFIG_PATH=$(dirname -- "$(find "$prefix" -name libkai.pc)")
export PKG_CONFIG_PATH
library_directory=$(pkg-config --variable=libdir libkai)
read -ra answer <<<"$(pkg-config --cflags --libs libkai)"

rm -rf -- "$work"
mkdir -p -- "$work"
awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$readme" >"$work/host.cpp"
diff -u -- "$(dirname -- "$readme")/examples/first/host.cpp" "$work/host.cpp"
"$compiler" -std=c++17 "${flags[@]}" "$work/host.cpp" "${answer[@]}" -o "$work/host"

# Port 1 of this machine: nothing listens there.
if said=$(LD_LIBRARY_PATH=$library_directory "$work/host" 127.0.0.1:1 2>&1); then
    echo "the host should have failed, but said: $said" >&2
    exit 1
fi
if [[ $said != "No connection to the server"* ]]; then
    echo "the host should have said that there is no connection, but said: $said" >&2
    exit 1
fi
