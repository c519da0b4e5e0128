#include <charconv>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/interrupts.h"
#include "terminal/line_source.h"

namespace host {
namespace {

constexpr std::string_view kChatHelp =
    "/run [N]  run the SQL of the last answer, or its Nth block\n"
    "/sql      show the SQL of the last answer\n"
    "/help     show the commands\n"
    "/quit     end\n"
    "Any other line is a question. Ctrl-C cancels a turn; twice here it ends the chat.\n";

std::string trimBlanks(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n\v\f");
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(" \t\r\n\v\f") - first + 1);
}

/// The chat's loop: one line, one turn.
class Chat {
public:
    Chat(const Options& options, Console& console)
        : m_options(options),
          m_console(console),
          m_conversation(options, console),
          m_lines(makeLineSource(console.isInteractive())) {}

    ExitCode run() {
        if (m_console.isInteractive()) {
            m_console.printPlain("A line is a question; /help shows the commands, Ctrl-D ends.\n");
        }
        while (!m_isEnded) {
            readTurn();
        }
        return m_code;
    }

private:
    void readTurn() {
        m_console.flush();
        std::string line;
        switch (m_lines->readLine("kai> ", line)) {
            case LineSource::Outcome::Interrupted:
                handleInterrupt();
                return;
            case LineSource::Outcome::EndOfInput:
                endLine();
                m_isEnded = true;
                return;
            case LineSource::Outcome::Line:
                m_wasInterrupted = false;
                takeLine(trimBlanks(line));
        }
    }

    void takeLine(const std::string& line) {
        if (!line.empty()) {
            m_lines->remember(line);
        }
        runTurn(line);
    }

    void handleInterrupt() {
        Interrupts::clear();
        endLine();
        if (m_wasInterrupted || Interrupts::isEndRequested()) {
            end(ExitCode::Cancelled);
            return;
        }
        m_wasInterrupted = true;
        m_console.note("Ctrl-C once more ends the chat");
    }

    void endLine() {
        if (m_console.isInteractive()) {
            m_console.printPlain("\n");
        }
    }

    void end(ExitCode code) {
        m_code = code;
        m_isEnded = true;
    }

    /// A failed turn does not end the chat; the last failure is its exit code.
    void runTurn(const std::string& line) {
        try {
            if (line.starts_with('/')) {
                runCommand(line);
            } else if (!line.empty()) {
                ask(line);
            }
            m_console.flush();
        } catch (const HostError& error) {
            m_console.note(error.what());
            if (error.obtainCode() == ExitCode::Cancelled) {
                Interrupts::clear();
            } else {
                m_code = error.obtainCode();
            }
        }
        if (Interrupts::isEndRequested()) {
            end(ExitCode::Cancelled);
        }
    }

    void ask(const std::string& question) {
        if (m_hasAnswer && !m_console.isInteractive()) {
            m_console.printPlain("\n");  // between two turns, where no prompt stands
        }
        m_conversation.ask(question);
        m_hasAnswer = true;
        if (m_options.isRun) {
            m_conversation.runSql(std::nullopt);
        } else if (m_console.isInteractive() && !m_conversation.obtainSql().empty() && !m_options.database.empty()) {
            m_console.printPlain("(/run runs the SQL on the database, for reading only)\n");
        }
    }

    void runCommand(const std::string& line) {
        const std::size_t blank = line.find_first_of(" \t");
        const std::string name = line.substr(0, blank);
        const std::string argument = blank == std::string::npos ? std::string() : trimBlanks(line.substr(blank));
        if (name == "/quit" || name == "/exit") {
            m_isEnded = true;
        } else if (name == "/help") {
            m_console.printPlain(kChatHelp);
        } else if (name == "/sql") {
            showSql();
        } else if (name == "/run") {
            m_conversation.runSql(readBlockNumber(argument));
        } else {
            m_console.note("there is no such command; /help shows them");
        }
    }

    void showSql() {
        if (m_conversation.obtainSql().empty()) {
            m_console.note("the last answer has no SQL");
        }
        for (const std::string& sql : m_conversation.obtainSql()) {
            m_console.printText(sql);
        }
    }

    [[nodiscard]] static std::optional<std::size_t> readBlockNumber(const std::string& argument) {
        if (argument.empty()) {
            return std::nullopt;
        }
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), number);
        if (error != std::errc() || end != argument.data() + argument.size() || number == 0) {
            throw HostError(ExitCode::Usage, "/run takes the number of a block, from 1");
        }
        return number - 1;
    }

    const Options& m_options;
    Console& m_console;
    Conversation m_conversation;
    std::unique_ptr<LineSource> m_lines;
    ExitCode m_code = ExitCode::Done;
    bool m_wasInterrupted = false;
    bool m_hasAnswer = false;
    bool m_isEnded = false;
};

}  // namespace

ExitCode runChat(const Options& options, Console& console) {
    return Chat(options, console).run();
}

}  // namespace host
