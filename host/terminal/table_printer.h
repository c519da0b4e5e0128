#ifndef HOST_TABLE_PRINTER_H
#define HOST_TABLE_PRINTER_H

#include <cstddef>
#include <ostream>
#include <string>

#include "engine/result.h"

namespace host {

/// Prints a result as an aligned table and a line that counts its rows.
///
/// Columns of numbers are right-aligned. Nothing in a value can control the terminal.
/// @param maxCellColumns  longer values are abbreviated with U+2026; 0: never
void printTable(std::ostream& output, const ResultTable& table, std::size_t maxCellColumns);

/// Prints the rows of a result one after another, each value on a line after its column's name.
void printVertically(std::ostream& output, const ResultTable& table, std::size_t maxCellColumns);

/// The width in terminal columns that printTable needs.
[[nodiscard]] std::size_t measureTable(const ResultTable& table, std::size_t maxCellColumns);

/// A value as the functions above print it: NULL as NULL, a text that spells NULL in quotes, a blob as its first bytes
/// and its size.
[[nodiscard]] std::string describeCell(const Cell& cell, std::size_t maxCellColumns);

}  // namespace host

#endif
