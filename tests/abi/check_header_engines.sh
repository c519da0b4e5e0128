#!/usr/bin/env bash
# Fails when an installed header shows what libcf is made with.
#   check_header_engines.sh PREFIX
set -euo pipefail
[[ -f $1/include/kai.h ]]
if grep -rniE 'curl|simdjson|openssl' "$1/include"; then
    echo "the lines above name an engine" >&2
    exit 1
fi
