#!/usr/bin/env bash
# Runs an example against the emulator of DeepSeek's service and compares how it ends.
#   run_example.sh EMULATOR SCENARIO WORK PROGRAM INPUT EXIT_STATUS QUESTION TEXT
# INPUT: "ended" gives the example an input that has ended, "open" one that stays open and silent.
set -euo pipefail
emulator_program=$1 scenario=$2 work=$3 program=$4 input=$5 expected_status=$6 question=$7 text=$8

rm -rf -- "$work"
mkdir -p -- "$work"
exec {ready}< <(exec "$emulator_program" --provider deepseek --scenario "$scenario" --ca-file "$work/ca.pem")
emulator=$!
trap 'kill "$emulator"; wait "$emulator" || true' EXIT
IFS= read -r line <&"$ready"
host=$(sed -nE 's/.*"host":"([^"]+)".*/\1/p' <<<"$line")

source=/dev/null
if [[ $input == open ]]; then
    mkfifo "$work/input"
    # shellcheck disable=SC2034 # held open until this script ends
    exec {writer}<>"$work/input"
    source=$work/input
fi
status=0
said=$(DEEPSEEK_API_KEY=key "$program" "$question" "$host" "$work/ca.pem" 2>&1 <"$source") || status=$?
if [[ $status -ne $expected_status || $said != *"$text"* ]]; then
    echo "it ended with $status and said: $said" >&2
    exit 1
fi
