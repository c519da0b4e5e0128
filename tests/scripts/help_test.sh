#!/usr/bin/env bash
# Every script answers --help with what it does and how it is called, and does nothing else then.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

make_scratch
found=0
for script in scripts/*; do
    [[ -f $script && -x $script ]] || continue
    found=$((found + 1))
    expect_pass "$script" --help
    output=$("$script" --help)
    for expected in "$script" "--help"; do
        if [[ $output != *"$expected"* ]]; then
            printf '%s --help does not tell of %s:\n%s\n' "$script" "$expected" "$output"
            failures=$((failures + 1))
        fi
    done
done
[[ $found -gt 3 ]]
[[ -z $(git status --porcelain -- ':!scripts') ]]

finish
