#!/usr/bin/env bash
# Fails when libcf.so exports a symbol of the engines inside it: a host may link other versions of them.
#   check_no_engine_exported.sh LIBRARY
set -euo pipefail

symbols=$(nm -D --defined-only --demangle "$1")
grep -q cfConcatURL <<<"$symbols" || { echo "the symbols of $1 cannot be read" >&2; exit 1; }
if grep -iE '(curl_|simdjson|\b(SSL|EVP|X509)_)' <<<"$symbols"; then
    echo "the symbols above belong to an engine" >&2
    exit 1
fi
