#include "engine/result.h"

#include <algorithm>
#include <utility>

namespace host {

Cell makeCell(Cell::Kind kind, std::string_view value, const QueryLimits& limits) {
    const std::size_t kept = limits.maxCellBytes == 0 ? value.size() : std::min(value.size(), limits.maxCellBytes);
    return {kind, std::string(value.substr(0, kept)), value.size()};
}

void ResultCollector::beginResult(const std::vector<std::string>& columns) {
    m_table = {};
    m_table.columns = columns;
}

void ResultCollector::addRow(std::vector<Cell> row) {
    m_table.rows.push_back(std::move(row));
}

void ResultCollector::endResult(ResultCut cut) {
    m_table.cut = cut;
    m_receive(m_table);
    m_table = {};
}

void LimitedReceiver::beginResult(const std::vector<std::string>& columns) {
    m_rowCount = 0;
    m_cut = ResultCut::None;
    m_receiver.beginResult(columns);
}

bool LimitedReceiver::addRow(std::vector<Cell> row) {
    if (m_limits.maxRows != 0 && m_rowCount == m_limits.maxRows) {
        m_cut = ResultCut::Rows;
        return false;
    }
    std::size_t bytes = row.size() * sizeof(Cell);
    for (const Cell& cell : row) {
        bytes += cell.bytes.size();
    }
    if (m_limits.maxBytes != 0 && bytes > m_limits.maxBytes - m_byteCount) {
        m_cut = ResultCut::Bytes;
        return false;
    }
    ++m_rowCount;
    m_byteCount += bytes;
    m_receiver.addRow(std::move(row));
    return true;
}

void LimitedReceiver::endResult() {
    m_receiver.endResult(m_cut);
}

}  // namespace host
