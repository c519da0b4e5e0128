#ifndef HOST_ANSWER_PRINTER_H
#define HOST_ANSWER_PRINTER_H

#include <string>
#include <string_view>

#include "terminal/console.h"
#include "terminal/markdown_stream.h"
#include "terminal/visible_stream.h"

namespace host {

/// Prints an answer as it comes: made safe, coloured where the output is a terminal that wants colours.
class AnswerPrinter {
public:
    explicit AnswerPrinter(Console& console);
    AnswerPrinter(const AnswerPrinter&) = delete;
    AnswerPrinter& operator=(const AnswerPrinter&) = delete;
    ~AnswerPrinter();

    void add(std::string_view piece);
    /// Prints what was held back and ends the line.
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
