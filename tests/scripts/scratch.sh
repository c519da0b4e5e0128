# shellcheck shell=bash
# Sourced by the tests beside this file: a scratch repository with this one's scripts, and what is expected of them.
#   NAME_test.sh REPOSITORY SCRATCH
set -euo pipefail

repository=$1
scratch=$2
failures=0

# Begins anew: a repository that holds the scripts and nothing else.
make_scratch() {
    rm -rf -- "$scratch"
    mkdir -p -- "$scratch"
    cp -r -- "$repository/scripts" "$scratch/scripts"
    cd -- "$scratch"
    git init --quiet .
}

# write_file PATH TEXT...: a file with one text a line.
write_file() {
    local path=$1
    shift
    mkdir -p -- "$(dirname -- "$path")"
    printf '%s\n' "$@" >"$path"
}

# expect_pass COMMAND...
expect_pass() {
    local output
    if ! output=$("$@" 2>&1); then
        printf 'should have passed: %s\n%s\n' "$*" "$output"
        failures=$((failures + 1))
    fi
}

# expect_failure TEXT COMMAND...: the command fails and its output holds the text.
expect_failure() {
    local text=$1 output status=0
    shift
    output=$("$@" 2>&1) || status=$?
    if [[ $status -eq 0 || $output != *"$text"* ]]; then
        printf 'should have failed with "%s" (exit status %s): %s\n%s\n' "$text" "$status" "$*" "$output"
        failures=$((failures + 1))
    fi
}

finish() {
    [[ $failures -eq 0 ]] || exit 1
}
