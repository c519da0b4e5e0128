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
/// | Json | an object with "columns", "rows" (lists) and "truncated", on a line of its own | null | "NULL" |
/// | Markdown | a table | *NULL* | NULL |
/// | Vertical | the values of a row, one below the other | NULL | 'NULL' |
///
/// If the output is not a terminal, Csv and Json contain the exact values, without the hidden secret. Blobs are written
/// as x'1B5B': complete in Csv and Json, otherwise their first bytes.
enum class ResultFormat { Table, Csv, Json, Markdown, Vertical };

/// The format with this name; nothing for an unknown name.
[[nodiscard]] std::optional<ResultFormat> findResultFormat(std::string_view name);
/// The names with commas between them.
[[nodiscard]] std::string listResultFormats();
/// Whether the format is for programs: then its values must not be abbreviated.
[[nodiscard]] bool isForPrograms(ResultFormat format) noexcept;

struct ResultStyle {
    ResultFormat format = ResultFormat::Table;
    std::size_t maxCellColumns = 80;  ///< longer values are abbreviated with U+2026; 0: never
    std::size_t maxTableColumns = 0;  ///< wider tables are printed vertically; 0: never
    bool isForTerminal = true;        ///< everything is made visible
};

/// Receives results and prints them. The caller prints separators between results.
/// @param print  called with each text that is ready
[[nodiscard]] std::unique_ptr<RowReceiver> makeResultWriter(const ResultStyle& style,
                                                            std::function<void(std::string_view)> print);

}  // namespace host

#endif
