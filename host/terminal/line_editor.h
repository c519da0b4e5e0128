#ifndef HOST_LINE_EDITOR_H
#define HOST_LINE_EDITOR_H

#include <histedit.h>
#include <termios.h>

#include <memory>
#include <string>

#include "terminal/history_file.h"
#include "terminal/line_source.h"

namespace host {

/// Turns off the kernel's line editing (which cuts lines at 4,095 bytes) and echo on the terminal of the standard
/// input, until this object or the process ends.
class RawTerminal {
public:
    RawTerminal();
    ~RawTerminal();
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;
};

/// Lines typed on a terminal: editing, history, search (Ctrl-R), questions with several lines (Alt-Enter, or pasted).
/// One object at a time; it occupies the terminal while it lives.
class LineEditor : public LineSource {
public:
    LineEditor();
    ~LineEditor() override;

    [[nodiscard]] Outcome readLine(const std::string& prompt, std::string& line) override;
    void remember(const std::string& line) override;
    void offer(const std::string& text) override { m_offered = text; }

private:
    struct EditorCloser {
        void operator()(EditLine* editor) const noexcept { el_end(editor); }
    };
    struct HistoryCloser {
        void operator()(HistoryW* history) const noexcept { history_wend(history); }
    };

    static LineEditor& find(EditLine* editor);
    static wchar_t* obtainPrompt(EditLine* editor);
    static int readCharacter(EditLine* editor, wchar_t* character);
    static unsigned char insertPaste(EditLine* editor, wint_t key);
    static unsigned char insertLineBreak(EditLine* editor, wint_t key);

    void bindKeys();
    void addToHistory(const std::string& line);
    [[nodiscard]] bool readByte(unsigned char& byte);

    RawTerminal m_terminal;
    std::unique_ptr<EditLine, EditorCloser> m_editor;
    std::unique_ptr<HistoryW, HistoryCloser> m_history;
    HistoryFile m_historyFile;
    std::wstring m_prompt;
    std::string m_offered;
    std::string m_bytes;  ///< read from the terminal, not processed yet
    bool m_isInterrupted = false;
    bool m_hasBracketedPaste;
};

}  // namespace host

#endif
