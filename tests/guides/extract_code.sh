#!/usr/bin/env bash
# Puts the "cpp" blocks of a guide together into one source file. A compiler's complaint names the guide's own line.
#   extract_code.sh GUIDE SOURCE
set -euo pipefail
guide=$1 source=$2

awk -v name="$(basename -- "$guide")" '
    /^```cpp$/ { inside = 1; printf "#line %d \"%s\"\n", NR + 1, name; next }
    /^```$/ { inside = 0 }
    inside
' "$guide" >"$source"
grep -q 'int main(' "$source" || { echo "$guide holds no program" >&2; exit 1; }
