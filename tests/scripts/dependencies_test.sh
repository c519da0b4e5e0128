#!/usr/bin/env bash
# The dependency check lets each directory include what it may, and nothing else.
# shellcheck source=tests/scripts/scratch.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/scratch.sh"

# A tree in which everything is as it should be.
make_good_tree() {
    make_scratch
    write_file include/kai.h '#include <string>' '#include "cf/variant.h"'
    write_file libcf/include/cf/variant.h '#include <map>' '#include "cf/export.h"'
    write_file libcf/src/rest/client.cpp '#include <curl/curl.h>' '#include <zlib.h>' '#include "cf/rest.h"' \
        '#include "rest/client.h"' '#include "text/characters.h"'
    write_file libcf/src/rest/client.h '#include <sys/socket.h>'
    write_file libcf/src/json/reader.cpp '#  include <simdjson.h>' '#include "json/reader.h"'
    write_file libcf/src/json/reader.h '#include "text/characters.h"'
    write_file libcf/src/text/characters.h '#include <string_view>'
    write_file libcf/src/utilities.cpp '#include "text/characters.h"'
    write_file src/kai_http.cpp '#include "kai_http.h"' '#include "kai.h"' '#include "cf/json.h"'
    write_file src/kai_http.h '#include <vector>'
    write_file host/main.cpp '#include <kai.h>' '#include "engine/engine.h"' '#include "table.h"' '#include <CLI/CLI.hpp>'
    write_file host/engine/engine.h '#include "cf/variant.h"' '#include "terminal/text.h"' '#include <spawn.h>'
    write_file host/engine/engine_table.cpp '#include "sqlite/reader.h"' '#include "mariadb/reader.h"'
    write_file host/sqlite/reader.h '#include <sqlite3.h>' '#include "engine/engine.h"' '#include "sqlite/reader.h"'
    write_file host/postgresql/reader.cpp '#include <libpq-fe.h>' '#include "engine/engine.h"'
    write_file host/mariadb/reader.h '#include <mysql.h>' '#include <errmsg.h>' '#include "engine/engine.h"'
    write_file host/terminal/text.h '#include <string>'
    write_file host/table.h '#include "cf/variant.h"'
    write_file libcf/testing/loopback_server.h '#include <string>'
    write_file emulator/service.cpp '#include <nlohmann/json.hpp>' '#include "service.h"' '#include "loopback_server.h"'
    write_file emulator/service.h '#include <thread>'
    write_file emulator/tests/service_test.cpp '#include "service.h"' '#include <gtest/gtest.h>'
    write_file tests/any_test.cpp '#include "kai_http.h"' '#include <curl/curl.h>'
}

# refuse FILE INCLUDE: with the include added to the file, the check fails and names the place.
refuse() {
    make_good_tree
    printf '%s\n' "$2" >>"$1"
    expect_failure "$1:$(wc -l <"$1"): may not include" scripts/checks/dependencies
}

make_good_tree
expect_pass scripts/checks/dependencies

refuse include/kai.h '#include <curl/curl.h>'
refuse include/kai.h '#include "kai_http.h"'
refuse libcf/include/cf/variant.h '#include <simdjson.h>'
refuse libcf/include/cf/variant.h '#include "kai.h"'
refuse libcf/src/json/reader.cpp '#include <curl/curl.h>'
refuse libcf/src/json/reader.cpp '#include "rest/client.h"'
refuse libcf/src/rest/client.cpp '#include "simdjson.h"'
refuse libcf/src/rest/client.cpp '#include "json/reader.h"'
refuse libcf/src/rest/client.h '#include "kai.h"'
refuse libcf/src/text/characters.h '#include "json/reader.h"'
refuse libcf/src/utilities.cpp '#include "rest/client.h"'
refuse src/kai_http.cpp '#include <zlib.h>'
refuse src/kai_http.cpp '#include <curl/curl.h>'
refuse src/kai_http.cpp '#include "rest/client.h"'
refuse src/kai_http.cpp '#include "table.h"'
refuse src/kai_http.h ' # include <simdjson.h>'
refuse host/main.cpp '#include "kai_http.h"'
refuse host/main.cpp '#include "../src/kai_http.h"'
refuse host/main.cpp '#include <sqlite3.h>'
refuse host/main.cpp '#include "sqlite/reader.h"'
refuse host/main.cpp '#include <libpq-fe.h>'
refuse host/engine/engine.h '#include "sqlite/reader.h"'
refuse host/engine/engine.h '#include <mysql.h>'
refuse host/engine/engine_table.cpp '#include <sqlite3.h>'
refuse host/sqlite/reader.h '#include <libpq-fe.h>'
refuse host/sqlite/reader.h '#include "mariadb/reader.h"'
refuse host/postgresql/reader.cpp '#include "sqlite/reader.h"'
refuse host/postgresql/reader.cpp '#include <mysql.h>'
refuse host/mariadb/reader.h '#include <sqlite3.h>'
refuse host/mariadb/reader.h '#include "cf/variant.h"'
refuse host/main.cpp '#include "loopback_server.h"'
refuse host/main.cpp '#include <nlohmann/json.hpp>'
refuse emulator/service.cpp '#include "kai_http.h"'
refuse emulator/service.cpp '#include "cf/json.h"'
refuse emulator/service.h '#include <kai.h>'
refuse emulator/service.h '#include "unheard_of.h"'

finish
