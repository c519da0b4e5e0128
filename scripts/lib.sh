# shellcheck shell=bash
# Functions that the scripts share. Sourced, not run:
#
#   . "$(dirname -- "${BASH_SOURCE[0]}")/lib.sh"
#
# It stops the script at the first failing command with a line that says what the script was doing, changes to the
# repository's root, and answers --help with the comment at the head of the calling script.

set -euo pipefail
shopt -s inherit_errexit

# Before the directory changes: the calling script may have been named by a relative path.
kai_caller=$(realpath -- "$0")
KAI_ROOT=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
readonly KAI_ROOT
cd -- "$KAI_ROOT"

# Prints a line for the user: what happens now, or what happened.
say() {
    kai_step=$*
    printf '== %s\n' "$*"
}

# The last line of a script that failed. A script with an EXIT trap of its own calls this in it.
report_failure() {
    local status=$?
    if [[ $status -ne 0 ]]; then
        printf '== %s: FAILED (exit status %s) at: %s\n' "$kai_script" "$status" "$kai_step"
    fi
    return "$status"
}
kai_step="the start"
kai_script=$(realpath --relative-to="$KAI_ROOT" -- "$kai_caller")
trap report_failure EXIT

# Ends the script with a reason.
die() {
    printf '%s: %s\n' "$kai_script" "$*" >&2
    exit 1
}

# Ends the script because of an unknown argument.
refuse_argument() {
    printf '%s: unknown argument: %s (--help tells what there is)\n' "$kai_script" "$1" >&2
    trap - EXIT
    exit 2
}

# Prints the comment at the head of the calling script.
show_help() {
    sed -n -e '1d' -e '/^#/!q' -e 's/^# \{0,1\}//p' "$kai_caller"
}

# Prints "package<TAB>reason" for each line of scripts/packages.list that belongs to one of the named groups.
list_packages() {
    local group
    for group in "$@"; do
        awk -v group="$group" '
            $1 == group { reason = $0; sub(/^[^ ]+ +[^ ]+ +/, "", reason); print $2 "\t" reason; found = 1 }
            END { exit !found }
        ' "$KAI_ROOT/scripts/packages.list" || die "no such package group: $group"
    done
}

is_package_installed() {
    [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# Runs apt-get as root, directly or through sudo.
run_apt_get() {
    local -a command=(env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 "$@")
    if [[ $(id -u) -ne 0 ]]; then
        command=(sudo "${command[@]}")
    fi
    "${command[@]}" </dev/null
}

# install_packages GROUP...: installs the missing packages of these groups of scripts/packages.list, and says which and
# why. If nothing is missing, it does and says nothing.
install_packages() {
    local table package reason
    local -a missing=() reasons=()
    table=$(list_packages "$@")
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        say "no apt-get here: nothing is installed; needed are (Debian's names): $(cut -f1 <<<"$table" | paste -sd' ')"
        return
    fi
    while IFS=$'\t' read -r package reason; do
        if ! is_package_installed "$package"; then
            missing+=("$package")
            reasons+=("$reason")
        fi
    done <<<"$table"
    if [[ ${#missing[@]} -eq 0 ]]; then
        return
    fi

    say "installing with apt-get what is missing:"
    local i
    for i in "${!missing[@]}"; do
        printf '   %-24s %s\n' "${missing[i]}" "${reasons[i]}"
    done
    if [[ $(id -u) -ne 0 ]] && ! command -v sudo >/dev/null; then
        die "installing needs root and there is no sudo; as root: apt-get install ${missing[*]}"
    fi
    run_apt_get -qq update
    run_apt_get -qq -o Dpkg::Use-Pty=0 install --yes --no-install-recommends "${missing[@]}"
}

# list_files PATTERN...: the repository's files that match (".": all), including new uncommitted ones, each followed by a
# NUL byte. An unpacked archive, which has no repository, is treated as a new one; a checkout may be another user's.
list_files() {
    local -a git=(git -c "safe.directory=$KAI_ROOT")
    local empty=
    if ! "${git[@]}" rev-parse --git-dir >/dev/null 2>&1; then
        empty=$(mktemp -d)
        git init --quiet --bare "$empty"
        git=(git --git-dir="$empty" --work-tree="$KAI_ROOT")
    fi
    "${git[@]}" ls-files -z --cached --others --exclude-standard --deduplicate -- "$@" |
        while IFS= read -r -d '' file; do
            [[ ! -f $file ]] || printf '%s\0' "$file"
        done
    [[ -z $empty ]] || rm -rf -- "$empty"
}

# Uses ccache, if it is installed, to reuse the compiler's results. Nothing depends on it.
use_ccache() {
    if [[ ${CMAKE_CXX_COMPILER_LAUNCHER:-ccache} == ccache ]] && command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache
        export CCACHE_BASEDIR=$KAI_ROOT
        # ccache does not look at -fmacro-prefix-map when it compares compilations. Name another space when that option
        # changes in cmake/KaiCompile.cmake, so that results made with the former one are not found.
        export CCACHE_NAMESPACE=libkai-548499989
    fi
}

# configure_preset PRESET [CMAKE_ARGUMENT...]: configures build/PRESET.
configure_preset() {
    use_ccache
    say "configuring the preset $1"
    cmake --preset "$@"
}

# build_preset PRESET [TARGET...]: builds in build/PRESET, everything unless targets are named.
build_preset() {
    local preset=$1
    shift
    say "building the preset $preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# test_preset PRESET [CTEST_ARGUMENT...]: runs the tests of build/PRESET, as many at a time as there are cores.
test_preset() {
    local preset=$1
    shift
    say "running the tests of the preset $preset"
    ctest --preset "$preset" --parallel "$(nproc)" --no-tests=error "$@"
}

for argument in "$@"; do
    if [[ $argument == --help || $argument == -h ]]; then
        show_help
        exit 0
    fi
done
unset argument
