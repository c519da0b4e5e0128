#!/usr/bin/env bash
# Runs a guide's program against the emulator of DeepSeek's service and compares what it prints with the guide's "text"
# blocks.
#   run_guide.sh GUIDE PROGRAM EMULATOR SCENARIO WORK LIBKAI CATALOGS
set -euo pipefail
guide=$1 program=$2 emulator_program=$3 scenario=$4 work=$5 libkai=$6 catalogs=$7

rm -rf -- "$work"
mkdir -p -- "$work"
awk '/^```text$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$guide" >"$work/expected"
[[ -s $work/expected ]] || { echo "$guide does not say what it prints" >&2; exit 1; }

exec {ready}< <(exec "$emulator_program" --provider deepseek --scenario "$scenario" --ca-file "$work/ca.pem")
emulator=$!
trap 'kill "$emulator"; wait "$emulator" || true' EXIT
IFS= read -r line <&"$ready"
host=$(sed -nE 's/.*"host":"([^"]+)".*/\1/p' <<<"$line")

"$program" "$host" "$work/ca.pem" "$libkai" "$catalogs" >"$work/printed"
diff -u --label "$guide" --label "what it prints" "$work/expected" "$work/printed"
