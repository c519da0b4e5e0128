#!/usr/bin/env bash
# install_packages installs what is missing, as root or through sudo, says what and why, and otherwise does nothing.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

# Stand-ins for what asks and changes the machine. Those that change it write down how they were called.
#   make_machine USER_ID [INSTALLED_PACKAGE...]
make_machine() {
    local user=$1
    shift
    make_scratch
    write_file scripts/packages.list 'one first-thing holds the first thing' 'one second-thing is also needed' \
        'other third-thing is for others'
    write_file bin/id '#!/bin/sh' "echo $user"
    write_file bin/dpkg-query '#!/bin/sh' "for last; do :; done" \
        "case ' $* ' in *\" \$last \"*) echo installed ;; *) exit 1 ;; esac"
    # shellcheck disable=SC2016 # for the stand-in to expand
    write_file bin/apt-get '#!/bin/sh' 'echo "apt-get $*" >>calls' 'cat >>calls'
    # shellcheck disable=SC2016
    write_file bin/sudo '#!/bin/sh' 'printf "sudo " >>calls' 'exec "$@"'
    chmod +x bin/*
    touch calls
}

# shellcheck disable=SC2016 # for the inner shell to expand
run_install() {
    PATH=$scratch/bin:$PATH bash -c '. scripts/lib.sh; install_packages "$@"' scripts/lib.sh "$@" <<<"an answer"
}

expect_calls() {
    local expected
    expected=$(printf '%s\n' "$@")
    if [[ $(sed -E 's/ -[^ ]*( Dpkg::Use-Pty=0| DPkg::Lock::Timeout=[0-9]+)?//g' calls) != "$expected" ]]; then
        printf 'expected these calls:\n%s\nbut there were:\n%s\n' "$expected" "$(<calls)"
        failures=$((failures + 1))
    fi
}

expect_output() {
    if [[ $output != "$1" ]]; then
        printf 'expected this output:\n%s\nbut it was:\n%s\n' "$1" "$output"
        failures=$((failures + 1))
    fi
}

make_machine 0 first-thing second-thing
output=$(run_install one)
expect_output ""
expect_calls ""

make_machine 0 first-thing
output=$(run_install one)
expect_output "== installing with apt-get what is missing:
   second-thing             is also needed"
expect_calls "apt-get update" "apt-get install second-thing"

make_machine 1000 third-thing
output=$(run_install one other)
expect_output "== installing with apt-get what is missing:
   first-thing              holds the first thing
   second-thing             is also needed"
expect_calls "sudo apt-get update" "sudo apt-get install first-thing second-thing"

# Without sudo there is a line that tells root what to do. The stand-in is in the way of a real one.
make_machine 1000
# shellcheck disable=SC2016
write_file bin/nosudo.sh 'command() { [[ $2 != sudo ]] && builtin command "$@"; }'
# shellcheck disable=SC2016
expect_failure "as root: apt-get install first-thing second-thing" env PATH="$scratch/bin:$PATH" \
    bash -c '. bin/nosudo.sh; . scripts/lib.sh; install_packages one' scripts/lib.sh
expect_calls ""

make_machine 0
expect_failure "no such package group: none" run_install none
expect_calls ""

# A registry that refuses ends the script, and its last line says where it ended.
make_machine 0
write_file bin/apt-get '#!/bin/sh' 'exit 100'
expect_failure "FAILED (exit status 100) at: installing with apt-get" run_install one

finish
