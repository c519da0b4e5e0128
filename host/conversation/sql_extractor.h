#ifndef HOST_SQL_EXTRACTOR_H
#define HOST_SQL_EXTRACTOR_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The SQL in a model's answer, one item per code block, in order.
///
/// It takes blocks marked "sql" or with a mark of the dialect; if there are none, blocks without a mark; if the answer
/// has no code block but begins like a query and ends with a semicolon, the whole answer. It does not check whether
/// this is SQL: the engine does that.
/// @param dialectMarks  in lower case ("postgresql")
[[nodiscard]] std::vector<std::string> extractSql(std::string_view answer,
                                                  const std::vector<std::string_view>& dialectMarks);

}  // namespace host

#endif
