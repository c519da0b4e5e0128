#!/usr/bin/env bash
# Compiles one installed header alone, with the warnings that hosts use as errors.
#   compile_header.sh PREFIX COMPILER STANDARD HEADER
set -euo pipefail
prefix=$1 compiler=$2 standard=$3 header=$4

# Included twice: the guard must hold.
"$compiler" -std="c++$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$prefix/include" -x c++ - \
    <<<"$(printf '#include "%s"\n' "$header" "$header")"
