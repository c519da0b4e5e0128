#!/usr/bin/env bash
# The check for names that are defined twice finds functions whose definitions differ, and passes those that sources share.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

# Two sources with a header each, and one that they share.
make_good_tree() {
    make_scratch
    write_file shared.h '#include <string_view>' \
        'template <typename T> T twice(T value) { return value + value; }' \
        'inline int sharedCount = 0;' \
        'struct Shared { virtual ~Shared() = default; int count = twice(++sharedCount); };'
    write_file people.h '#include "shared.h"'
    write_file http.h '#include "shared.h"'
    write_file people.cpp '#include "people.h"' 'int makePeople() { return Shared().count; }'
    write_file http.cpp '#include "http.h"' 'int makeHTTP() { return Shared().count; }'
}

compile() {
    local source
    for source in *.cpp; do
        "${CXX:-g++}" -std=c++20 -O0 -g -c "$source" -o "${source%.cpp}.o"
    done
}

make_good_tree
compile
expect_pass scripts/checks/odr .

# A function with a different set of blanks in each header.
make_good_tree
printf '%s\n' 'inline std::string_view trimBlanks(std::string_view text) noexcept {' \
    '    constexpr std::string_view kBlanks = " \t\r\n\v\f";' \
    '    const auto first = text.find_first_not_of(kBlanks);' \
    '    if (first == std::string_view::npos) return {};' \
    '    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);' '}' >>people.h
printf '%s\n' 'constexpr std::string_view trimBlanks(std::string_view text) noexcept {' \
    '    constexpr std::string_view kBlanks = " \t\r\n";' \
    '    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);' \
    '    const auto first = text.find_first_not_of(kBlanks);' \
    '    text.remove_prefix(first < text.size() ? first : text.size());' \
    '    return text;' '}' >>http.h
printf '%s\n' 'bool isEmpty(std::string_view text) { return trimBlanks(text).empty(); }' >>people.cpp
printf '%s\n' 'bool isEmptyValue(std::string_view text) { return trimBlanks(text).empty(); }' >>http.cpp
compile
expect_failure "trimBlanks(" scripts/checks/odr .

# A class of the same name in two sources, with members that differ.
make_good_tree
printf '%s\n' 'struct Reader { int value = 1; int read() { return value; } };' \
    'int readPeople() { return Reader().read(); }' >>people.cpp
printf '%s\n' 'struct Reader { int read() { return 2; } };' 'int readHTTP() { return Reader().read(); }' >>http.cpp
compile
expect_failure "Reader::read()" scripts/checks/odr .

# Nothing to compare is no success.
make_good_tree
expect_failure "no object files" scripts/checks/odr .
"${CXX:-g++}" -std=c++20 -c people.cpp -o people.o
expect_failure "no debug information" scripts/checks/odr .

finish
