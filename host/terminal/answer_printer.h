#ifndef HOST_ANSWER_PRINTER_H
#define HOST_ANSWER_PRINTER_H

#include <string>
#include <string_view>

#include "terminal/console.h"
#include "terminal/markdown_stream.h"
#include "terminal/visible_stream.h"

namespace host {

/// Prints an answer as it arrives: without unsafe characters, and coloured if the output is a terminal with colours.
class AnswerPrinter {
public:
    explicit AnswerPrinter(Console& console);
    AnswerPrinter(const AnswerPrinter&) = delete;
    AnswerPrinter& operator=(const AnswerPrinter&) = delete;
    ~AnswerPrinter();

    void add(std::string_view piece);
    /// Prints the rest and ends the line.
    void finish();
    [[nodiscard]] bool hasPrinted() const noexcept { return m_hasPrinted; }

private:
    void print(const std::string& text);

    Console& m_console;
    VisibleStream m_visible;
    MarkdownStream m_markdown;
    bool m_isColoured;
    bool m_hasPrinted = false;
    bool m_isLineEnded = true;
    bool m_isFinished = false;
};

}  // namespace host

#endif
