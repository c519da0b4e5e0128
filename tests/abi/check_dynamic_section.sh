#!/usr/bin/env bash
# Fails unless a library has the given SONAME and needs each of the named libraries, and beyond them only the language's
# run time (and a sanitizer's, where it is built with one).
#   check_dynamic_section.sh LIBRARY SONAME NEEDED...
set -euo pipefail
library=$1
soname=$2
shift 2

section=$(readelf --dynamic --wide "$library")
status=0
actual=$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' <<<"$section")
if [[ $actual != "$soname" ]]; then
    echo "the SONAME is '$actual', not '$soname'" >&2
    status=1
fi

mapfile -t needed < <(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$section")
for name in "${needed[@]}"; do
    case $name in
    libstdc++.so.* | libgcc_s.so.* | libc.so.* | libm.so.* | ld-linux-*.so.* | libasan.so.* | libubsan.so.*) continue ;;
    esac
    if [[ " $* " != *" ${name%%.so*}.so "* ]]; then
        echo "needs $name, which is none of: $*" >&2
        status=1
    fi
done
for expected in "$@"; do
    if [[ " ${needed[*]}" != *" $expected"* ]]; then
        echo "does not need $expected" >&2
        status=1
    fi
done
exit $status
