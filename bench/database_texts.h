#ifndef BENCH_DATABASE_TEXTS_H
#define BENCH_DATABASE_TEXTS_H

#include <cstddef>
#include <string>

/// The JSON description of a database of that many tables, about 1,140 bytes each: 14 to 18 columns, a primary key of
/// one or two of them, and up to two foreign keys. The catalog has no name; a schema holds 500 tables.
[[nodiscard]] std::string buildDatabaseStructure(std::size_t tables);

#endif
