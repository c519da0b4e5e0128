#!/usr/bin/env bash
# Runs the installed program `kai` without any help from the environment: it finds the libraries beside itself.
#   run_program.sh PREFIX VERSION
set -euo pipefail
prefix=$1 version=$2
# shellcheck source=tests/install/check_host.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/check_host.sh"

unset LD_LIBRARY_PATH
said=$(check_host "$prefix/bin/kai" "$prefix" --version)
if [[ $said != *"$version"* ]]; then
    echo "kai --version said '$said', not $version" >&2
    exit 1
fi
