#!/usr/bin/env bash
# Builds a host with one compiler command from pkg-config's answer and runs it.
#   build_by_pkg_config.sh PREFIX WORK SOURCE COMPILER FLAGS
set -euo pipefail
prefix=$1 work=$2 source=$3 compiler=$4
read -ra flags <<<"$5"
# shellcheck source=tests/install/check_host.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/check_host.sh"

PKG_CONFIG_PATH=$(dirname -- "$(find "$prefix" -name libkai.pc)")
export PKG_CONFIG_PATH
library_directory=$(pkg-config --variable=libdir libkai)
# Word splitting is what the answer is made for.
read -ra answer <<<"$(pkg-config --cflags --libs libkai)"

rm -rf -- "$work"
mkdir -p -- "$work"
set -x
"$compiler" -std=c++17 "${flags[@]}" "$source/app.cpp" "${answer[@]}" -o "$work/app"
LD_LIBRARY_PATH=$library_directory check_host "$work/app" "$prefix"
