#ifndef HOST_SQL_EXTRACTOR_H
#define HOST_SQL_EXTRACTOR_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The SQL in a model's answer, one item a code block, in order.
///
/// Blocks marked "sql", or with a mark of the dialect, are taken; where there are none, blocks without a mark; where
/// the answer has no code block at all but begins like a query and ends with a semicolon, the whole answer. Whether it
/// is SQL is not judged here: the engine does that.
/// @param dialectMarks  in lower case ("postgresql")
[[nodiscard]] std::vector<std::string> extractSql(std::string_view answer,
                                                  const std::vector<std::string_view>& dialectMarks);

}  // namespace host

#endif
