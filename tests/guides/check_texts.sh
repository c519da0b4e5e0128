#!/usr/bin/env bash
# The file for translators holds every text that the libraries may show, and no other; so do its translations. The guide
# about errors tells what to do about each text of libkai and each result code.
#   check_texts.sh REPOSITORY ERRORS_PROGRAM
set -euo pipefail
export LC_ALL=C.UTF-8
repository=$1 program=$2
guides=$repository/docs/guides
status=0

list_own_texts() {
    sed -nE 's/.*(localizeString|fail)\("([^"]+)".*/\2/p' "$repository"/src/*.cpp
}

# The texts that report a mistake of the host's, which are not offered for translation.
list_fixed_texts() {
    sed -nE 's/.*return (\{nullptr, )?"([A-Z][a-z]+( [a-z]+)+)"\}?;.*/\2/p' "$repository"/src/*.cpp
}

list_texts() {
    list_own_texts
    "$program" | sed -nE 's/^[0-9]+ //p'
}

list_result_codes() {
    sed -n '/^enum class CMRestResult/,/^};/s/^ *\([A-Za-z]*\) = [1-9].*/\1/p' "$repository/libcf/include/cf/rest.h"
}

for file in libkai.pot translations/de.po translations/fr.po; do
    diff -u --label "docs/guides/$file" --label "the libraries" \
        <(sed -nE 's/^msgid "(.+)"$/\1/p' "$guides/$file" | sort) <(list_texts | sort -u) || status=1
done
if grep -n '^msgstr ""$' "$guides"/translations/*.po | grep -v ':2:'; then
    echo "these are not translated" >&2
    status=1
fi

entries=$( (list_own_texts && list_fixed_texts && list_result_codes) | sort -u)
[[ $(wc -l <<<"$entries") -gt 30 ]]
while IFS= read -r entry; do
    if ! grep -qF "| \`$entry\` |" "$guides/errors.md"; then
        echo "docs/guides/errors.md does not know: $entry" >&2
        status=1
    fi
done <<<"$entries"
exit "$status"
