#include "conversation/result_output.h"

#include <utility>

#include "host_error.h"
#include "terminal/result_writer.h"
#include "terminal/terminal_traits.h"

namespace host {
namespace {

bool isAlone(const Options& options) {
    return !options.format.empty();
}

ResultFormat chooseFormat(const Options& options) {
    return options.isJson ? ResultFormat::Json : findResultFormat(options.format).value_or(ResultFormat::Table);
}

ResultStyle chooseStyle(const Options& options, const Console& console) {
    ResultStyle style;
    style.format = chooseFormat(options);
    style.maxCellColumns = options.maxCellColumns;
    style.isForTerminal = console.isOutputTerminal() && !options.isJson;
    // A table that was requested by name stays a table.
    style.maxTableColumns = console.isOutputTerminal() && !isAlone(options) ? measureTerminalColumns() : 0;
    return style;
}

}  // namespace

ResultOutput::ResultOutput(const Options& options, Console& console, std::size_t keptRows)
    : m_options(options), m_console(console), m_keptRows(keptRows) {
    m_writer = makeResultWriter(chooseStyle(options, console), [this](std::string_view text) {
        if (m_options.isJson) {
            m_text += text;
        } else {
            m_console.printPlain(text);
        }
    });
}

void ResultOutput::beginResult(const std::vector<std::string>& columns) {
    m_kept = {columns, {}, ResultCut::None};
    const bool isFirst = std::exchange(m_isFirst, false);
    if (chooseFormat(m_options) != ResultFormat::Json && (!isAlone(m_options) || !isFirst)) {
        m_console.printPlain("\n");
    }
    m_writer->beginResult(columns);
}

void ResultOutput::addRow(std::vector<Cell> row) {
    if (m_kept.rows.size() < m_keptRows) {
        m_kept.rows.push_back(row);
    }
    m_writer->addRow(std::move(row));
}

void ResultOutput::endResult(ResultCut cut) {
    m_writer->endResult(cut);
    m_cut = cut == ResultCut::None ? m_cut : cut;
    if (m_options.isJson) {
        m_text.resize(m_text.find_last_not_of('\n') + 1);
        m_json.push_back(std::exchange(m_text, std::string()));
    } else {
        m_console.flush();
    }
}

std::string ResultOutput::writeKept() const {
    std::string text;
    if (m_kept.rows.empty()) {
        return text;
    }
    const std::unique_ptr<RowReceiver> writer =
        makeResultWriter({.format = ResultFormat::Markdown}, [&](std::string_view part) { text += part; });
    writer->beginResult(m_kept.columns);
    for (const std::vector<Cell>& row : m_kept.rows) {
        writer->addRow(row);
    }
    writer->endResult(ResultCut::None);
    return text;
}

void ResultOutput::checkIsWhole() const {
    const bool isForCaller = isAlone(m_options) || m_options.isJson;
    if (m_cut == ResultCut::None || !isForCaller || (m_cut == ResultCut::Rows && m_options.maxRows)) {
        return;
    }
    throw HostError(ExitCode::SqlFailed,
                    m_cut == ResultCut::Rows
                        ? "a result was cut after " + std::to_string(m_options.limits.maxRows) +
                              " rows; say with --max-rows how many you want"
                        : std::string("a result was cut: its rows are more than is kept at a time; ask for less"));
}

QueryLimits chooseLimits(const Options& options) {
    QueryLimits limits = options.limits;
    if (isAlone(options) && isForPrograms(chooseFormat(options))) {
        // Rows are written completely as they arrive: nothing is kept.
        limits.maxBytes = 0;
        limits.maxCellBytes = 0;
    } else if (options.isJson || options.maxCellColumns == 0) {
        limits.maxCellBytes = 0;
    }
    return limits;
}

}  // namespace host
