#!/usr/bin/env bash
# The check for global names finds functions, variables and classes outside of namespaces, and passes the fixed names.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

# compile TEXT...: a source with these lines after names that are allowed.
compile() {
    make_scratch
    write_file names.cpp '#include <functional>' '#include <string>' \
        'namespace kai { int count = 0; inline int next() { static int last = 0; return last += ++count; } }' \
        'namespace cf { struct Base { virtual ~Base() = default; virtual int run() { return kai::next(); } }; }' \
        'class KAIReader : public std::function<int()>, public cf::Base { int run() override { return 2; } };' \
        'int cfRun(int (*action)()) { return std::function<int(int (*)())>([](int (*f)()) { return f(); })(action); }' \
        'std::string localizeString(const std::string& text) { return KAIReader() ? text : "other"; }' \
        'namespace { int hidden() { return 1; } }' 'static int alsoHidden() { return hidden(); }' \
        'int cfCount() { return alsoHidden(); }' "$@"
    "${CXX:-g++}" -std=c++20 -O0 -c names.cpp -o names.o
}

compile
expect_pass scripts/checks/names .

compile 'int countBlanks() { return 1; }'
expect_failure "names.o: countBlanks() is a global name" scripts/checks/names .
compile 'extern "C" int count_blanks() { return 1; }'
expect_failure "count_blanks" scripts/checks/names .
compile 'inline int blanks = 0;' 'int* cfBlanks() { return &blanks; }'
expect_failure "blanks" scripts/checks/names .
compile 'struct Reader { int read() const { return 2; } };' 'int cfRead() { return Reader().read(); }'
expect_failure "Reader::read() const" scripts/checks/names .
compile 'struct Engine { virtual void run() {} };' 'Engine* cfEngine() { return new Engine; }'
expect_failure "vtable for Engine" scripts/checks/names .
compile 'template <class Value> Value twice(Value value) { return value + value; }' 'int cfTwice() { return twice(1); }'
expect_failure "int twice<int>(int)" scripts/checks/names .
compile 'bool operator<(const cf::Base&, const cf::Base&) { return false; }'
expect_failure "operator<(cf::Base const&, cf::Base const&)" scripts/checks/names .
# A fixed prefix is not part of another word.
compile 'struct COpened { int read() { return 2; } };' 'int COUNT = COpened().read();'
expect_failure "COUNT" scripts/checks/names .

# Nothing to read is no success.
make_scratch
expect_failure "no object files" scripts/checks/names .
write_file empty.cpp 'static int one = 1;'
"${CXX:-g++}" -c empty.cpp -o empty.o
expect_failure "no external names" scripts/checks/names .

finish
