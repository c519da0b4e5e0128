#ifndef HOST_ENGINE_RESULT_H
#define HOST_ENGINE_RESULT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What bounds a run of statements. 0 means no limit, except for the time.
struct QueryLimits {
    std::size_t maxRows = 100;                                    ///< rows of one result that are kept
    std::size_t maxCellBytes = 64 * 1024;                         ///< bytes of one value that are kept
    std::size_t maxBytes = std::size_t{64} * 1024 * 1024;         ///< memory that all results of a run take together
    std::chrono::milliseconds maxTime{std::chrono::seconds{30}};  ///< for all statements of a run together
};

/// One value of a row.
struct Cell {
    enum class Kind : std::uint8_t {
        Null,
        Number,
        Text,
        Blob,
        Boolean,  ///< bytes is "true" or "false"
    };
    Kind kind = Kind::Null;
    std::string bytes;       ///< a number as the engine writes it; at most maxCellBytes
    std::uint64_t size = 0;  ///< bytes of the whole value
};

/// A cell that keeps at most maxCellBytes of a value.
[[nodiscard]] Cell makeCell(Cell::Kind kind, std::string_view value, const QueryLimits& limits);

/// Why a result ends before its last row.
enum class ResultCut : std::uint8_t {
    None,
    Rows,   ///< maxRows
    Bytes,  ///< maxBytes
};

/// Takes the results of a run as they come: for each statement beginResult(), its rows, endResult(). What it throws
/// ends the run and passes through.
class RowReceiver {
public:
    RowReceiver() = default;
    RowReceiver(const RowReceiver&) = delete;
    RowReceiver& operator=(const RowReceiver&) = delete;
    virtual ~RowReceiver() = default;

    /// @param columns  empty for a statement that gives no rows at all
    virtual void beginResult(const std::vector<std::string>& columns) = 0;
    virtual void addRow(std::vector<Cell> row) = 0;
    virtual void endResult(ResultCut cut) = 0;
};

/// What one statement gave.
struct ResultTable {
    std::vector<std::string> columns;  ///< empty for a statement that gives no rows at all
    std::vector<std::vector<Cell>> rows;
    ResultCut cut = ResultCut::None;
};

/// Collects the rows of each result and hands it out whole.
class ResultCollector : public RowReceiver {
public:
    explicit ResultCollector(std::function<void(const ResultTable&)> receive) : m_receive(std::move(receive)) {}

    void beginResult(const std::vector<std::string>& columns) override;
    void addRow(std::vector<Cell> row) override;
    void endResult(ResultCut cut) override;

private:
    std::function<void(const ResultTable&)> m_receive;
    ResultTable m_table;
};

/// Passes results on to a receiver within the limits of rows and bytes.
class LimitedReceiver {
public:
    /// Both are borrowed.
    LimitedReceiver(const QueryLimits& limits, RowReceiver& receiver) : m_limits(limits), m_receiver(receiver) {}

    void beginResult(const std::vector<std::string>& columns);
    /// @return whether more rows are wanted; false: the row was not passed on, and the result is to be ended
    [[nodiscard]] bool addRow(std::vector<Cell> row);
    void endResult();

private:
    const QueryLimits& m_limits;
    RowReceiver& m_receiver;
    std::size_t m_rowCount = 0;
    std::size_t m_byteCount = 0;
    ResultCut m_cut = ResultCut::None;
};

}  // namespace host

#endif
