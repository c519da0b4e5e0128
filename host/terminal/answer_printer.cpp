#include "terminal/answer_printer.h"

#include <utility>

#include "terminal/terminal_traits.h"

namespace host {

AnswerPrinter::AnswerPrinter(Console& console)
    : m_console(console), m_isColoured(console.isOutputTerminal() && hasTerminalEscapes() && areColoursWanted()) {}

AnswerPrinter::~AnswerPrinter() {
    // After a failed turn, the cursor is at the beginning of a line, and no colour is on.
    finish();
}

void AnswerPrinter::add(std::string_view piece) {
    const std::string text = m_visible.add(piece);
    print(m_isColoured ? m_markdown.add(text) : text);
    m_console.flush();
}

void AnswerPrinter::finish() {
    if (std::exchange(m_isFinished, true)) {
        return;
    }
    const std::string rest = m_visible.finish();
    print(m_isColoured ? m_markdown.add(rest) + m_markdown.finish() : rest);
    if (!m_isLineEnded) {
        m_console.printPlain("\n");
    }
}

void AnswerPrinter::print(const std::string& text) {
    if (!text.empty()) {
        m_console.printPlain(text);
        m_hasPrinted = true;
        m_isLineEnded = text.ends_with('\n');
    }
}

}  // namespace host
