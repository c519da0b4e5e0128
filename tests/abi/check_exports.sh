#!/usr/bin/env bash
# Compares a library's dynamic symbols with a committed list: one symbol with its version a line, sorted bytewise.
#   check_exports.sh LIBRARY LIST
set -euo pipefail
export LC_ALL=C

# Of the node that names a version (type A, absolute) only the symbols that carry it count.
diff -u --label "$2" --label "exported by $1" \
    <(grep -v '^#' "$2") \
    <(nm -D --defined-only --format=posix "$1" | awk '$2 != "A" { print $1 }' | sort)
