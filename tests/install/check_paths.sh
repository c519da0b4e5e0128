#!/usr/bin/env bash
# Fails when an installed text file names a directory that is not there on another machine.
#   check_paths.sh PREFIX DIRECTORY...
set -euo pipefail
prefix=$1
shift

status=0
for directory in "$prefix" "$@"; do
    if grep -rIlF -- "$directory" "$prefix"; then
        echo "the files above name $directory" >&2
        status=1
    fi
done
exit $status
