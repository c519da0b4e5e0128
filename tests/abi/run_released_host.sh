#!/usr/bin/env bash
# Compiles a host with the kept headers of the last release and runs it with today's libraries. Where the SONAME has
# changed since, hosts must be compiled anew, and nothing is promised.
#   run_released_host.sh RELEASED WORK COMPILER FLAGS LIBKAI LIBCF
set -euo pipefail
released=$1 work=$2 compiler=$3 libkai=$5 libcf=$6
read -ra flags <<<"$4"

rm -rf -- "$work"
mkdir -p -- "$work"
"$compiler" -std=c++17 "${flags[@]}" -I "$released/include" "$released/host.cpp" "$libkai" "$libcf" -o "$work/host"

needed=$(readelf --dynamic --wide "$work/host" | sed -n 's/.*(NEEDED).*\[\(libkai[^]]*\)\]/\1/p')
if [[ $needed != "$(<"$released/SONAME")" ]]; then
    echo "the last release was $(<"$released/SONAME"), this is $needed: hosts are compiled anew"
    exit
fi
LD_LIBRARY_PATH=$(dirname -- "$libkai"):$(dirname -- "$libcf") "$work/host"
