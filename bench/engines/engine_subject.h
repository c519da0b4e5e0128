#ifndef BENCH_ENGINES_ENGINE_SUBJECT_H
#define BENCH_ENGINES_ENGINE_SUBJECT_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A database of an engine, made for measuring.
class EngineSubject {
public:
    EngineSubject() = default;
    EngineSubject(const EngineSubject&) = delete;
    EngineSubject& operator=(const EngineSubject&) = delete;
    virtual ~EngineSubject() = default;

    [[nodiscard]] virtual std::string obtainName() const = 0;
    /// What --db is to name.
    [[nodiscard]] virtual std::string obtainSource() const = 0;
    /// Makes a database of so many tables anew: eight columns, a primary key, a foreign key to the table before.
    virtual void makeTables(std::size_t count) = 0;
    /// Connects, asks the catalogue what reading the structure asks, takes all rows and drops them.
    virtual void askCatalogue() = 0;
    /// A query of so many rows of five columns.
    [[nodiscard]] virtual std::string makeRowQuery(std::size_t rows) const = 0;
};

[[nodiscard]] std::vector<std::function<std::unique_ptr<EngineSubject>()>> listEngineSubjects();

/// The statement that makes a table of the database.
[[nodiscard]] std::string makeTableStatement(std::size_t number);

#endif
