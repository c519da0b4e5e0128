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

/// The limits of a run of statements. 0 means no limit, except for the time.
struct QueryLimits {
    std::size_t maxRows = 100;                                    ///< kept rows of one result
    std::size_t maxCellBytes = 64 * 1024;                         ///< kept bytes of one value
    std::size_t maxBytes = std::size_t{64} * 1024 * 1024;         ///< memory of all results of a run together
    std::chrono::milliseconds maxTime{std::chrono::seconds{30}};  ///< for all statements of a run together
};

/// One value of a row.
struct Cell {
    enum class Kind : std::uint8_t {
        Null,
        Number,
        Text,
        Blob,
        Boolean,  ///< `bytes` is "true" or "false"
    };
    Kind kind = Kind::Null;
    std::string bytes;       ///< a number as the engine writes it; at most maxCellBytes
    std::uint64_t size = 0;  ///< bytes of the complete value
};

/// A cell that keeps at most maxCellBytes of a value.
[[nodiscard]] Cell makeCell(Cell::Kind kind, std::string_view value, const QueryLimits& limits);

/// Why a result is truncated.
enum class ResultCut : std::uint8_t {
    None,
    Rows,   ///< maxRows
    Bytes,  ///< maxBytes
};

/// Receives the results of a run as they arrive: for each statement beginResult(), its rows, endResult(). An exception
/// ends the run and reaches the caller.
class RowReceiver {
public:
    RowReceiver() = default;
    RowReceiver(const RowReceiver&) = delete;
    RowReceiver& operator=(const RowReceiver&) = delete;
    virtual ~RowReceiver() = default;

    /// @param columns  empty for a statement that returns no rows at all
    virtual void beginResult(const std::vector<std::string>& columns) = 0;
    virtual void addRow(std::vector<Cell> row) = 0;
    virtual void endResult(ResultCut cut) = 0;
};

/// The result of one statement.
struct ResultTable {
    std::vector<std::string> columns;  ///< empty for a statement that returns no rows at all
    std::vector<std::vector<Cell>> rows;
    ResultCut cut = ResultCut::None;
};

/// Collects the rows of each result and passes it on as a whole.
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

/// Passes results to a receiver, within the limits of rows and bytes.
class LimitedReceiver {
public:
    /// Both are borrowed.
    LimitedReceiver(const QueryLimits& limits, RowReceiver& receiver) : m_limits(limits), m_receiver(receiver) {}

    void beginResult(const std::vector<std::string>& columns);
    /// @return whether more rows are wanted; if not, the row was not passed on, and the caller must end the result
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
