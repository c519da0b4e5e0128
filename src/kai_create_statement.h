#ifndef KAI_CREATE_STATEMENT_H
#define KAI_CREATE_STATEMENT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "cf/json.h"

namespace kai {

/// Counts and reports the malformed places in the description of a database.
class MalformedPlaces {
public:
    /// @param reporter  called once for each place
    explicit MalformedPlaces(void (*reporter)()) noexcept : m_reporter(reporter) {}

    void report() {
        ++m_count;
        m_reporter();
    }

    [[nodiscard]] std::size_t obtainCount() const noexcept { return m_count; }

private:
    void (*m_reporter)();
    std::size_t m_count = 0;
};

/// Appends the statement of one table or view; nothing if its description is malformed.
///
/// Names and types are written unchanged. The columns of a key have no separator between them. This deliberately saves
/// text, and hosts and their prompts rely on the exact text.
void appendCreateStatement(std::string& text, std::string_view qualifier, std::string_view kind,
                           const COJsonValue& description, MalformedPlaces& malformed);

}  // namespace kai

#endif
