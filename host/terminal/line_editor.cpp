#include "terminal/line_editor.h"

#include <locale.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "terminal/interrupts.h"
#include "terminal/pipe_lines.h"
#include "terminal/terminal_traits.h"
#include "terminal/utf8.h"

namespace host {
namespace {

constexpr std::wstring_view kPasteEnd = L"\033[201~";

termios s_formerModes{};

void restoreModes() {
    tcsetattr(STDIN_FILENO, TCSADRAIN, &s_formerModes);
}

void writeToTerminal(std::string_view text) {
    [[maybe_unused]] const ssize_t ignored = write(STDOUT_FILENO, text.data(), text.size());
}

/// Does nothing; but because there is a handler, the signal ends the wait for a key, and the editor checks the terminal
/// again.
void noteChange(int /*signal*/) {}

void wakeAt(int signal) {
    struct sigaction action {};
    action.sa_handler = noteChange;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

std::wstring widen(std::string_view text) {
    std::wstring wide;
    for (std::size_t position = 0; position < text.size();) {
        wide += static_cast<wchar_t>(decodeCharacter(text, position));
    }
    return wide;
}

std::string narrow(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t character : text) {
        appendCharacter(narrow, static_cast<char32_t>(character));
    }
    return narrow;
}

/// The number of bytes of a character after its first one.
std::size_t countContinuations(unsigned char lead) {
    return lead < 0xC2 || lead > 0xF4 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
}

}  // namespace

RawTerminal::RawTerminal() {
    tcgetattr(STDIN_FILENO, &s_formerModes);
    termios modes = s_formerModes;
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSADRAIN, &modes);
    Interrupts::setLastAction(&restoreModes);
}

RawTerminal::~RawTerminal() {
    Interrupts::setLastAction(nullptr);
    restoreModes();
}

LineEditor::LineEditor() : m_hasBracketedPaste(hasTerminalEscapes()) {
    // The editor prints characters according to the locale, but the program always uses UTF-8.
    setlocale(LC_CTYPE, "C.UTF-8");
    m_editor.reset(el_init("kai", stdin, stdout, stderr));
    m_history.reset(history_winit());
    HistEventW event{};
    history_w(m_history.get(), &event, H_SETSIZE, HistoryFile::kMaxLines);
    history_w(m_history.get(), &event, H_SETUNIQUE, 1);
    el_wset(m_editor.get(), EL_CLIENTDATA, this);
    el_wset(m_editor.get(), EL_PROMPT, &LineEditor::obtainPrompt);
    el_wset(m_editor.get(), EL_GETCFN, &LineEditor::readCharacter);
    el_wset(m_editor.get(), EL_SIGNAL, 0);
    // Between two lines too: otherwise the kernel's line editing would cut input that is typed meanwhile.
    el_wset(m_editor.get(), EL_SETTY, L"-x", L"-icanon", L"-echo", nullptr);
    el_wset(m_editor.get(), EL_HIST, history_w, m_history.get());
    bindKeys();
    for (const std::string& line : m_historyFile.read()) {
        addToHistory(line);
    }
    wakeAt(SIGWINCH);
    wakeAt(SIGCONT);
}

LineEditor::~LineEditor() = default;

void LineEditor::bindKeys() {
    EditLine* editor = m_editor.get();
    el_wset(editor, EL_EDITOR, L"emacs");
    el_wset(editor, EL_ADDFN, L"kai-paste", L"Insert a pasted text", &LineEditor::insertPaste);
    el_wset(editor, EL_ADDFN, L"kai-line-break", L"Insert a line break", &LineEditor::insertLineBreak);
    struct Binding {
        const wchar_t* key;
        const wchar_t* command;
    };
    constexpr std::array<Binding, 7> kBindings{{{L"\033[200~", L"kai-paste"},
                                                {L"\033\n", L"kai-line-break"},
                                                {L"\033\r", L"kai-line-break"},
                                                {L"^R", L"em-inc-search-prev"},
                                                {L"^W", L"ed-delete-prev-word"},
                                                {L"\033[1;5D", L"ed-prev-word"},
                                                {L"\033[1;5C", L"em-next-word"}}};
    for (const Binding& binding : kBindings) {
        el_wset(editor, EL_BIND, binding.key, binding.command, nullptr);
    }
}

LineEditor& LineEditor::find(EditLine* editor) {
    void* self = nullptr;
    el_wget(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

wchar_t* LineEditor::obtainPrompt(EditLine* editor) {
    return find(editor).m_prompt.data();
}

bool LineEditor::readByte(unsigned char& byte) {
    while (m_bytes.empty()) {
        if (!waitForInput(true)) {
            if (Interrupts::isRequested()) {
                m_isInterrupted = true;
                return false;
            }
            el_resize(m_editor.get());
            el_wset(m_editor.get(), EL_PREP_TERM, 1);
            el_wset(m_editor.get(), EL_REFRESH);
            continue;
        }
        std::array<char, 4096> bytes{};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count > 0) {
            // The bytes are stored in reverse: the next one is the last.
            m_bytes.assign(bytes.rend() - count, bytes.rend());
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    byte = static_cast<unsigned char>(m_bytes.back());
    m_bytes.pop_back();
    return true;
}

int LineEditor::readCharacter(EditLine* editor, wchar_t* character) {
    LineEditor& self = find(editor);
    std::string bytes(1, '\0');
    unsigned char byte = 0;
    if (!self.readByte(byte)) {
        return 0;
    }
    bytes.front() = static_cast<char>(byte);
    for (std::size_t left = countContinuations(byte); left > 0 && self.readByte(byte); --left) {
        bytes += static_cast<char>(byte);
    }
    std::size_t position = 0;
    *character = static_cast<wchar_t>(decodeCharacter(bytes, position));
    return 1;
}

unsigned char LineEditor::insertPaste(EditLine* editor, wint_t /*key*/) {
    std::wstring text;
    for (wchar_t character = 0; !text.ends_with(kPasteEnd);) {
        if (readCharacter(editor, &character) != 1) {
            return CC_EOF;
        }
        text += character;
    }
    text.resize(text.size() - kPasteEnd.size());
    std::wstring clean;
    for (const wchar_t character : text) {
        if (character == L'\r' || character == L'\n') {
            clean += L'\n';
        } else if (character >= L' ' && character != 0x7F) {
            clean += character;
        } else if (character == L'\t') {
            clean += L' ';
        }
    }
    // The last line end is not part of the question.
    clean.resize(clean.find_last_not_of(L'\n') + 1);
    return el_winsertstr(editor, clean.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

unsigned char LineEditor::insertLineBreak(EditLine* editor, wint_t /*key*/) {
    return el_winsertstr(editor, L"\n") == 0 ? CC_REFRESH : CC_ERROR;
}

LineEditor::Outcome LineEditor::readLine(const std::string& prompt, std::string& line) {
    m_prompt = widen(prompt);
    m_isInterrupted = false;
    if (!m_offered.empty()) {
        el_wpush(m_editor.get(), widen(std::exchange(m_offered, std::string())).c_str());
    }
    if (m_hasBracketedPaste) {
        writeToTerminal("\033[?2004h");
    }
    int length = 0;
    const wchar_t* text = el_wgets(m_editor.get(), &length);
    if (m_hasBracketedPaste) {
        writeToTerminal("\033[?2004l");
    }
    if (m_isInterrupted) {
        el_wset(m_editor.get(), EL_PREP_TERM, 0);
        el_reset(m_editor.get());
        return Outcome::Interrupted;
    }
    if (text == nullptr || length <= 0) {
        return Outcome::EndOfInput;
    }
    line = narrow({text, static_cast<std::size_t>(length)});
    if (line.ends_with('\n')) {
        line.pop_back();
    }
    return Outcome::Line;
}

void LineEditor::addToHistory(const std::string& line) {
    HistEventW event{};
    history_w(m_history.get(), &event, H_ENTER, widen(line).c_str());
}

void LineEditor::remember(const std::string& line) {
    addToHistory(line);
    m_historyFile.append(line);
}

std::unique_ptr<LineSource> makeLineSource(bool isTerminal) {
    if (isTerminal) {
        return std::make_unique<LineEditor>();
    }
    return std::make_unique<PipeLines>();
}

}  // namespace host
