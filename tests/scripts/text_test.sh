#!/usr/bin/env bash
# The text check finds what it is there to find.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

make_good_tree() {
    make_scratch
    write_file VERSION 1.2.3
    write_file CHANGELOG.md '# Changes' '' '## 1.2.3 - not released yet' '' '## 1.2.2' '' '- &#39; is an entity.'
    write_file docs/page.md 'See [the changes](../CHANGELOG.md#123) and [this](https://example.com/page).'
    write_file src/a.cpp '// A colour is #1234567, a heading begins with # and a blank.'
}

# refuse EXPECTED FILE TEXT...: with the file written anew, the check fails and says why.
refuse() {
    local expected=$1
    shift
    make_good_tree
    write_file "$@"
    expect_failure "$expected" scripts/checks/text
}

make_good_tree
expect_pass scripts/checks/text

refuse 'VERSION is not three numbers' VERSION 1.2
refuse 'CHANGELOG.md begins with 1.2.3' VERSION 1.2.4
refuse 'CHANGELOG.md begins with no version' CHANGELOG.md '# Changes'
refuse 'docs/page.md: there is no CHANGELOG.md' docs/page.md 'See [the changes](CHANGELOG.md).'
refuse 'src/a.cpp:1:' src/a.cpp 'int a; '
refuse 'src/a.cpp:2:' src/a.cpp 'int a;' "$(printf '\tint b;')"
# Put together from pieces, so that this file passes the check itself.
refuse 'src/a.cpp:1:' src/a.cpp "// See issue ""12."
refuse 'src/a.cpp:1:' src/a.cpp "// Fixes #""12."
refuse 'src/a.cpp:1:' src/a.cpp "// As Part ""3.1 says."
refuse 'something of this machine' src/a.cpp "// Read $scratch/notes."

make_good_tree
printf 'int a;' >src/a.cpp
expect_failure 'src/a.cpp: does not end with a line feed' scripts/checks/text

make_good_tree
head -c 300000 /dev/zero | tr '\0' 'a' >src/large.txt
expect_failure 'src/large.txt: larger than' scripts/checks/text

make_good_tree
write_file run.sh '#!/bin/sh' 'true'
expect_failure 'run.sh: begins like a program but is not executable' scripts/checks/text

make_good_tree
chmod +x src/a.cpp
expect_failure 'src/a.cpp: is executable but does not say what runs it' scripts/checks/text

finish
