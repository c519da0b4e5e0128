#!/usr/bin/env bash
# The release script refuses a release with its reasons, and makes the tag when there is none.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

# A repository that is ready. Scripts that need a build are replaced.
make_good_tree() {
    make_scratch
    git config user.name tester
    git config user.email tester@localhost
    write_file .gitignore build
    write_file VERSION 1.2.3
    write_file CHANGELOG.md '# Changes' '' '## 1.2.3 - 2026-11-21' '' '## 1.2.2 - 2026-01-01'
    write_file SECURITY.md 'Write to security@localhost.'
    write_file include/kai.h '// kai'
    write_file libcf/include/cf/rest.h '// rest'
    write_file scripts/abi '#!/bin/sh' 'exit 0'
    write_file scripts/sbom '#!/bin/sh' 'exit 0'
    write_file tests/install/host/app.cpp '// host'
    mkdir -p build/release build/debug/src
    cp -- /bin/true build/debug/src/libkai.so
    git add -A
    git commit --quiet -m good
}

# refuse EXPECTED FILE TEXT...: with the file written anew and committed, the script says what is in the way.
refuse() {
    local expected=$1
    shift
    make_good_tree
    write_file "$@"
    git commit --quiet -am changed
    expect_failure "$expected" scripts/release
}

make_good_tree
expect_pass scripts/release
[[ -z $(git tag) ]]
expect_pass scripts/release --tag
[[ $(git tag) == v1.2.3 && -f tests/abi/released/include/cf/rest.h && -f tests/abi/released/host.cpp ]]
expect_failure "the tag v1.2.3 exists" scripts/release

refuse "is not '## 1.2.4 - DATE'" VERSION 1.2.4
refuse "is not three numbers" VERSION 1.2
refuse "is not '## 1.2.3 - DATE' but '## 1.2.3 - not released yet'" CHANGELOG.md '## 1.2.3 - not released yet'
refuse "the contact in SECURITY.md is a placeholder" SECURITY.md 'Write to contact-to-be-named.'
refuse "the binary interface differs" scripts/abi '#!/bin/sh' 'exit 1'
refuse "a linked library is not in THIRD_PARTY.md" scripts/sbom '#!/bin/sh' 'exit 1'

make_good_tree
write_file VERSION 1.2.3 'more'
expect_failure "changes that are not committed" scripts/release

finish
