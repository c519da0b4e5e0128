#ifndef HOST_RESULT_WRITER_H
#define HOST_RESULT_WRITER_H

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/result.h"

namespace host {

/// How results are printed.
///
/// | format | a result | NULL | a text that spells NULL |
/// |---|---|---|---|
/// | Table | aligned columns, a line that counts the rows | NULL | 'NULL' |
/// | Csv | RFC 4180 with line feeds | an empty field | NULL; an empty text is "" |
/// | Json | an object of "columns", "rows" (lists) and "truncated", on a line of its own | null | "NULL" |
/// | Markdown | a table | *NULL* | NULL |
/// | Vertical | a row's values below each other | NULL | 'NULL' |
///
/// Csv and Json hold the values exactly where the output is no terminal, without the hidden secret. Blobs are written
/// as x'1B5B': whole in Csv and Json, else their first bytes.
enum class ResultFormat { Table, Csv, Json, Markdown, Vertical };

/// The format of a name; nothing for an unknown one.
[[nodiscard]] std::optional<ResultFormat> findResultFormat(std::string_view name);
/// The names with commas between them.
[[nodiscard]] std::string listResultFormats();
/// Whether programs read the format: its values must not be abbreviated.
[[nodiscard]] bool isForPrograms(ResultFormat format) noexcept;

struct ResultStyle {
    ResultFormat format = ResultFormat::Table;
    std::size_t maxCellColumns = 80;  ///< longer values are cut off with U+2026; 0: never
    std::size_t maxTableColumns = 0;  ///< a wider table is printed vertically; 0: never
    bool isForTerminal = true;        ///< everything is made visible
};

/// Takes results and prints them. What stands between two results is the caller's.
/// @param print  called with text as it becomes ready
[[nodiscard]] std::unique_ptr<RowReceiver> makeResultWriter(const ResultStyle& style,
                                                            std::function<void(std::string_view)> print);

}  // namespace host

#endif
