#ifndef HOST_RESULT_OUTPUT_H
#define HOST_RESULT_OUTPUT_H

#include <memory>
#include <string>
#include <vector>

#include "engine/result.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// Takes the results of a run and puts them where the command line wants them: below the answer, alone on standard
/// output in a format, or into the JSON of the turn. Keeps the beginning of the last one.
class ResultOutput : public RowReceiver {
public:
    /// @param keptRows  how many rows are kept for writeKept()
    ResultOutput(const Options& options, Console& console, std::size_t keptRows);

    void beginResult(const std::vector<std::string>& columns) override;
    void addRow(std::vector<Cell> row) override;
    void endResult(ResultCut cut) override;

    /// Throws HostError (SqlFailed) when a result was cut that the caller has to have whole: one that a program reads,
    /// unless --max-rows said where to cut it.
    void checkIsWhole() const;

    /// The results for a turn's JSON.
    [[nodiscard]] std::vector<std::string>& obtainJson() noexcept { return m_json; }
    /// The first rows of the last result as a Markdown table; empty where there are none.
    [[nodiscard]] std::string writeKept() const;

private:
    const Options& m_options;
    Console& m_console;
    std::size_t m_keptRows;
    std::unique_ptr<RowReceiver> m_writer;
    std::string m_text;  ///< of the JSON object that is being written
    std::vector<std::string> m_json;
    ResultTable m_kept;
    ResultCut m_cut = ResultCut::None;
    bool m_isFirst = true;
};

/// The limits for a run whose results go there.
[[nodiscard]] QueryLimits chooseLimits(const Options& options);

}  // namespace host

#endif
