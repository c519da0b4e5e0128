#include <memory>
#include <optional>
#include <string>

#include "cf/utilities.h"
#include "commands/chat_commands.h"
#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/interrupts.h"
#include "terminal/line_source.h"

namespace host {
namespace {

/// The chat's loop: each line, or pasted text, is a question or a command.
class Chat {
public:
    Chat(const Options& options, Console& console)
        : m_console(console), m_commands(options, console), m_lines(makeLineSource(console.isInteractive())) {}

    ExitCode run() {
        if (m_console.isInteractive()) {
            m_console.printPlain("A line is a question; \\help shows the commands, Ctrl-D ends.\n");
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
                takeLine(cfTrimAsString(line));
        }
    }

    void takeLine(const std::string& line) {
        if (!line.empty()) {
            m_lines->remember(line);
            guard([&] {
                if (ChatCommands::isCommand(line)) {
                    m_isEnded = m_commands.run(line) == ChatCommands::Next::End;
                } else {
                    ask(line);
                }
            });
        }
        guard([&] { offerToRun(); });
    }

    /// A failure does not end the chat; the exit code is that of the last failure.
    template <typename Action>
    void guard(Action action) {
        try {
            action();
            m_console.flush();
        } catch (const HostError& error) {
            m_commands.dropOffers();
            m_console.note(error.what());
            if (error.obtainCode() == ExitCode::SqlFailed && m_console.isInteractive() && m_commands.canFix()) {
                m_console.printPlain("\\fix sends this to the model.\n");
            }
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
        if (m_hasAnswer && !m_console.isInteractive() && m_commands.isAnswerPrinted()) {
            m_console.printPlain("\n");  // between two turns, if there is no prompt
        }
        m_commands.ask(question);
        m_hasAnswer = true;
    }

    /// On a terminal, SQL runs only if the user agrees, unchanged or edited.
    void offerToRun() {
        if (!m_console.isInteractive() || m_isEnded) {
            return;
        }
        if (const std::optional<std::string> sql = m_commands.takeSqlToEdit()) {
            m_lines->offer(*sql);
            if (std::string edited; m_lines->readLine("sql> ", edited) == LineSource::Outcome::Line) {
                m_commands.runEdited(edited);
            } else {
                Interrupts::clear();
                endLine();
            }
        } else if (m_commands.takeOfferToRun()) {
            std::string reply;
            const LineSource::Outcome outcome = m_lines->readLine("Run this SQL, for reading only? [y/N] ", reply);
            if (outcome == LineSource::Outcome::Line && (reply == "y" || reply == "yes" || reply == "Y")) {
                m_commands.runAll();
            } else if (outcome != LineSource::Outcome::Line) {
                Interrupts::clear();
                endLine();
            }
        }
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

    Console& m_console;
    ChatCommands m_commands;
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
