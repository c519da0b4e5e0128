#ifndef KAI_CREATE_STATEMENT_H
#define KAI_CREATE_STATEMENT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "cf/json.h"

namespace kai {

/// Is told of each malformed place in the description of a database.
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

/// Appends the statement of one table or view; nothing when its description is malformed.
///
/// Names and types are written as they came. The columns of a key follow one another with no separator between them:
/// a deliberate saving, and hosts and their prompts count on the exact text.
void appendCreateStatement(std::string& text, std::string_view qualifier, std::string_view kind,
                           const COJsonValue& description, MalformedPlaces& malformed);

}  // namespace kai

#endif
