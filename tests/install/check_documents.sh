#!/usr/bin/env bash
# The installed manual page and completions know every command and every option of kai, and bash completes with them.
#   check_documents.sh PREFIX
set -euo pipefail
prefix=$1
program=$prefix/bin/kai
manual=$prefix/share/man/man1/kai.1
bash_completion=$prefix/share/bash-completion/completions/kai
zsh_completion=$prefix/share/zsh/site-functions/_kai
status=0

# expect FILE TEXT WHAT
expect() {
    if ! grep -qF -e "$2" "$1"; then
        echo "$1 does not know $3" >&2
        status=1
    fi
}

mapfile -t commands < <("$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[[ ${#commands[@]} -gt 3 ]]
found=0
for command in "${commands[@]}"; do
    expect "$manual" ".B kai $command" "$command"
    expect "$zsh_completion" "'$command:" "$command"
    for option in $("$program" "$command" --help | grep -oE '^  (-[a-zA-Z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+'); do
        found=$((found + 1))
        expect "$manual" "${option//-/\\-}" "$command $option"
        sed -n "/^    $command) options=/p" "$bash_completion" | grep -qE -e "[ \"]${option}[ \"]" ||
            { echo "$bash_completion does not know $command $option" >&2; status=1; }
        sed -n "/^        $command)/,/;;/p" "$zsh_completion" | grep -qF -e "'${option}[" ||
            { echo "$zsh_completion does not know $command $option" >&2; status=1; }
    done
done
[[ $found -gt 20 ]]

# complete WORD...: what bash offers for the last word.
complete_words() {
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _kai
    printf '%s\n' "${COMPREPLY[@]}"
}
# shellcheck disable=SC1090 # installed by the build
. "$bash_completion"
[[ $(complete_words kai mod) == models ]] || { echo "bash does not complete a command" >&2; status=1; }
[[ $(complete_words kai ask --provider oll) == ollama ]] || { echo "bash does not complete a provider" >&2; status=1; }
[[ $(complete_words kai ask --api-h) == --api-host ]] || { echo "bash does not complete an option" >&2; status=1; }
exit $status
