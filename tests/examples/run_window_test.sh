#!/usr/bin/env bash
# Runs the tests of the chat panel without a screen, on a new copy of the sample database. They leave a picture of the
# panel in WORK.
#   run_window_test.sh SAMPLE_DATABASE SCRIPT WORK PROGRAM
set -euo pipefail
make_database=$1 script=$2 work=$3 program=$4

rm -rf -- "$work"
mkdir -p -- "$work"
"$make_database" "$script" "$work/shop.db"
cd -- "$work"
QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8 "$program"
