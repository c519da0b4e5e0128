#!/usr/bin/env bash
# Makes kai's manual page and its completions for bash and zsh from the program's --help, so that they know every option.
#   make_documents.sh PROGRAM VERSION DIRECTORY
# writes kai.1, kai.bash and _kai into DIRECTORY.
# shellcheck disable=SC2016 # what is written are scripts, with variables of their own
set -euo pipefail
export LC_ALL=C.UTF-8
program=$1 version=$2 directory=$3
mkdir -p -- "$directory"
# `read` takes two blanks for one, but not two of these.
readonly separator=$'\x1f'

# "name, separator, text" of each command.
list_commands() {
    "$program" --help | awk '
        /^[A-Z][a-z]+:$/ { inside = $0 == "Subcommands:"; next }
        inside && /^  [a-z]/ { name = $1; sub(/^ +[^ ]+ +/, ""); print name "\x1f" $0 }'
}

# "option, separator, argument, separator, text" of each option of a command; the option may be "-h,--help". What stands
# behind the argument's name ("INT in [1 - 100]") is left out.
list_options() {
    "$program" "$@" --help | awk '
        function flush() { if (option != "") print option "\x1f" argument "\x1f" text; option = "" }
        /^[A-Z][A-Za-z]*:$/ { flush(); inside = $0 == "Options:"; next }
        !inside { next }
        /^  -/ {
            flush()
            line = substr($0, 3)
            text = ""
            if (match(line, /  +[^ ]/)) { text = substr(line, RSTART + RLENGTH - 1); line = substr(line, 1, RSTART - 1) }
            option = line; sub(/ .*/, "", option)
            argument = line; if (!sub(/^[^ ]+ /, "", argument)) argument = ""
            sub(/[: ].*/, "", argument)
            next
        }
        /^ +[^ ]/ { sub(/^ +/, ""); text = text (text == "" ? "" : " ") $0; next }
        { flush(); inside = 0 }
        END { flush() }'
}

# The paragraph of --help that begins with a word.
show_paragraph() {
    "$program" --help | awk -v word="$1" 'index($0, word) == 1 { inside = 1 } inside && /^$/ { exit } inside'
}

# Escapes what troff would read as a command.
escape_troff() {
    sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\\&&/"
}

write_manual_options() {
    local option argument text
    while IFS=$separator read -r option argument text; do
        printf '.TP\n.B %s\n' "$(escape_troff <<<"${option/,/, }${argument:+ $argument}")"
        escape_troff <<<"$text"
    done < <(list_options "$@")
}

write_manual() {
    local command text
    printf '.TH KAI 1 "" "kai %s" "User Commands"\n' "$version"
    printf '.SH NAME\nkai \\- ask an AI assistant about a database\n'
    printf '.SH SYNOPSIS\n'
    while IFS=$separator read -r command text; do
        printf '.B kai %s\n[OPTIONS]%s\n.br\n' "$command" "$([[ $command != ask ]] || printf ' QUESTION')"
    done < <(list_commands)
    printf '.SH DESCRIPTION\n'
    "$program" --help | awk '/^Usage:/ { exit } NF' | escape_troff
    printf 'An answer'\''s SQL is run only where that is asked for, and for reading only.\n'
    printf '.SH COMMANDS\n'
    while IFS=$separator read -r command text; do
        printf '.TP\n.B %s\n%s\n' "$command" "$(escape_troff <<<"$text")"
    done < <(list_commands)
    while IFS=$separator read -r command text; do
        printf '.SH OPTIONS OF %s\n' "${command^^}"
        write_manual_options "$command"
    done < <(list_commands)
    printf '.SH KEYS\n'
    show_paragraph "Keys:" | sed -n 's/^Keys: //p' | escape_troff
    printf '.SH EXIT STATUS\n'
    show_paragraph "Keys:" | sed -n 's/^Exit codes: //p' | escape_troff
    printf '.SH EXAMPLES\n.nf\n'
    show_paragraph "Examples:" | sed -n 's/^  //p' | escape_troff
    printf '.fi\n'
}

# The words that an option's text offers: "One of a, b, c; a unless given" and "Print it as a, b, c" give "a b c".
list_choices() {
    sed -nE 's/^(.* as|One of) ([a-z0-9]+(, [a-z0-9]+)+).*/\2/p' <<<"$1" | tr -d ','
}

write_bash_completion() {
    local command option argument text words
    printf '# Completion of kai for bash, made from what kai --help says.\n'
    printf '_kai() {\n    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} options\n'
    printf '    case $previous in\n'
    while IFS=$separator read -r command _; do
        list_options "$command"
    done < <(list_commands) | sort -u -t "$separator" -k 1,1 | while IFS=$separator read -r option argument text; do
        [[ -n $argument ]] || continue
        words=$(list_choices "$text")
        if [[ -n $words ]]; then
            printf '    %s) mapfile -t COMPREPLY < <(compgen -W "%s" -- "$current") && return ;;\n' \
                "${option/,/ | }" "${words% }"
        elif [[ $argument == FILE || $argument == DATABASE ]]; then
            printf '    %s) mapfile -t COMPREPLY < <(compgen -f -- "$current") && return ;;\n' "${option/,/ | }"
        else
            printf '    %s) return ;;\n' "${option/,/ | }"
        fi
    done
    printf '    esac\n    case ${COMP_WORDS[1]:-} in\n'
    while IFS=$separator read -r command _; do
        words=$(list_options "$command" | cut -d "$separator" -f1 | tr ',\n' '  ')
        printf '    %s) options="%s" ;;\n' "$command" "${words% }"
    done < <(list_commands)
    words="$(list_commands | cut -d "$separator" -f1 | tr '\n' ' ')$(list_options | cut -d "$separator" -f1 | tr ',\n' '  ')"
    printf '    *) options="%s" ;;\n    esac\n' "${words% }"
    printf '    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")\n}\ncomplete -F _kai kai\n'
}

# Escapes text for the single quotes and brackets of _arguments.
escape_zsh() {
    sed -e "s/'/'\\\\''/g" -e 's/[]:[]/\\&/g' <<<"$1"
}

write_zsh_options() {
    local option argument text words action
    while IFS=$separator read -r option argument text; do
        words=$(list_choices "$text")
        action=" "
        [[ $argument != FILE && $argument != DATABASE ]] || action=_files
        [[ -z $words ]] || action="(${words% })"
        for option in ${option//,/ }; do
            printf " \\\\\n                '%s[%s]%s'" "$option" "$(escape_zsh "$text")" \
                "${argument:+:$argument:$action}"
        done
    done < <(list_options "$@")
}

write_zsh_completion() {
    local command text
    printf '#compdef kai\n# Completion of kai for zsh, made from what kai --help says.\n_kai() {\n'
    printf '    local -a commands\n    commands=(\n'
    while IFS=$separator read -r command text; do
        printf "        '%s:%s'\n" "$command" "$(escape_zsh "$text")"
    done < <(list_commands)
    printf "    )\n    if ((CURRENT == 2)); then\n        _describe command commands\n"
    printf "        _arguments '--version' '--help'\n        return\n    fi\n"
    printf '    local command=$words[2]\n    shift words\n    ((CURRENT--))\n    case $command in\n'
    while IFS=$separator read -r command text; do
        printf '        %s)\n            _arguments' "$command"
        write_zsh_options "$command"
        printf '\n            ;;\n'
    done < <(list_commands)
    printf '    esac\n}\n_kai "$@"\n'
}

write_manual >"$directory/kai.1"
write_bash_completion >"$directory/kai.bash"
write_zsh_completion >"$directory/_kai"
