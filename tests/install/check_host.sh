# shellcheck shell=bash
# Sourced by the scripts that build a host.

# check_host PROGRAM PREFIX [ARGUMENT...]: runs a host and makes sure that both libraries come from the prefix.
check_host() {
    local program=$1 prefix=$2 library resolved
    shift 2
    for library in libkai.so libcf.so; do
        resolved=$(ldd "$program" | awk -v name="$library" 'index($1, name ".") == 1 { print $3 }')
        if [[ $(realpath -- "$resolved") != "$(realpath -- "$prefix")"/* ]]; then
            echo "$library is taken from '$resolved', not from $prefix" >&2
            return 1
        fi
    done
    "$program" "$@"
}
