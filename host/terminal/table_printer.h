#ifndef HOST_TABLE_PRINTER_H
#define HOST_TABLE_PRINTER_H

#include <cstddef>
#include <ostream>

#include "engine/result.h"

namespace host {

/// Prints a result as an aligned table and a line that counts its rows.
///
/// Columns of numbers are aligned to the right. NULL is written as NULL, a blob as its first bytes and its size, and
/// nothing in a value can act on the terminal.
/// @param maxCellColumns  longer values are cut off with U+2026; 0: never
void printTable(std::ostream& output, const ResultTable& table, std::size_t maxCellColumns);

}  // namespace host

#endif
