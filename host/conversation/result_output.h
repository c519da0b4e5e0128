#ifndef HOST_RESULT_OUTPUT_H
#define HOST_RESULT_OUTPUT_H

#include <memory>
#include <string>
#include <vector>

#include "engine/result.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// Receives the results of a run and writes them where the command line says: after the answer, alone on standard
/// output in a format, or into the JSON of the turn. Keeps the beginning of the last result.
class ResultOutput : public RowReceiver {
public:
    /// @param keptRows  how many rows are kept for writeKept()
    ResultOutput(const Options& options, Console& console, std::size_t keptRows);

    void beginResult(const std::vector<std::string>& columns) override;
    void addRow(std::vector<Cell> row) override;
    void endResult(ResultCut cut) override;

    /// Throws HostError (SqlFailed) if a result was truncated that must be complete: one that a program reads, unless
    /// --max-rows set the limit.
    void checkIsWhole() const;

    /// The results for a turn's JSON.
    [[nodiscard]] std::vector<std::string>& obtainJson() noexcept { return m_json; }
    /// The first rows of the last result as a Markdown table; empty if there are none.
    [[nodiscard]] std::string writeKept() const;

private:
    const Options& m_options;
    Console& m_console;
    std::size_t m_keptRows;
    std::unique_ptr<RowReceiver> m_writer;
    std::string m_text;  ///< the JSON object being written
    std::vector<std::string> m_json;
    ResultTable m_kept;
    ResultCut m_cut = ResultCut::None;
    bool m_isFirst = true;
};

/// The limits for a run, according to where its results go.
[[nodiscard]] QueryLimits chooseLimits(const Options& options);

}  // namespace host

#endif
