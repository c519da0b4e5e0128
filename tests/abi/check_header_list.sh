#!/usr/bin/env bash
# Compares the headers of an installed copy with a list.
#   check_header_list.sh PREFIX HEADER...
set -euo pipefail
export LC_ALL=C
include=$1/include
shift
diff -u --label expected --label installed <(printf '%s\n' "$@" | sort) <(cd -- "$include" && find . -type f -printf '%P\n' | sort)
