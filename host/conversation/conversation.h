#ifndef HOST_CONVERSATION_H
#define HOST_CONVERSATION_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "conversation/assistant.h"
#include "conversation/conversation_setup.h"
#include "conversation/exchange_watch.h"
#include "conversation/turn_report.h"
#include "open_database.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// A conversation as the user sees it: questions in, answers printed, SQL run on the database, the file kept up to
/// date. Every failure is a HostError; the conversation and its file are then as they were.
class Conversation {
public:
    /// Opens the database, reads the key and the saved conversation, and begins or resumes. Whatever can be found wrong
    /// without the provider is found before the first request.
    /// @param options  borrowed
    Conversation(const Options& options, Console& console);

    /// Asks a question, prints what the command line wants of the answer, saves the conversation, and runs the answer's
    /// SQL where --run says so.
    void takeTurn(const std::string& question);

    /// The SQL of the last answer, one item a code block.
    [[nodiscard]] const std::vector<std::string>& obtainSql() const noexcept { return m_report.sql; }
    /// Why the last SQL failed; empty when it did not.
    [[nodiscard]] const std::string& obtainSqlError() const noexcept { return m_sqlError; }

    /// Runs SQL of the last answer and prints the rows.
    /// @param block  which block, from 0; nothing: all of them
    void runSql(std::optional<std::size_t> block);
    /// Runs a text of the user's own in the same way.
    void runText(const std::string& sql);

    /// Changes the model from the next question on.
    void setModel(const std::string& model);
    [[nodiscard]] const std::string& obtainModel() const noexcept { return m_setup.settings.model; }
    [[nodiscard]] const Provider& obtainProvider() const noexcept { return *m_setup.provider; }
    [[nodiscard]] std::vector<std::string> listModels() { return m_assistant->listModels(); }

    /// The database; null without one.
    [[nodiscard]] const OpenDatabase* obtainDatabase() const noexcept { return m_database ? &*m_database : nullptr; }
    /// What the model is told of the database.
    [[nodiscard]] std::string obtainPrompt() const { return m_assistant->obtainCombinedInstructions(); }

    /// Saves the conversation to a file.
    void saveTo(const std::string& fileName);
    /// The questions and answers so far as Markdown; empty where the service keeps them.
    [[nodiscard]] std::string writeTranscript() const;

private:
    /// Prints the answer as it comes.
    [[nodiscard]] std::string askAndPrint(const std::string& question);
    void ask(const std::string& question);
    void printSql() const;
    void fitStructure(const std::string& question);
    [[nodiscard]] Budget chooseBudget();
    [[nodiscard]] std::string addSharedRows(const std::string& question) const;
    void checkModel() const;
    void saySwitch() const;
    void warnOfLongPrompt(const std::string& question);
    void runBlocks(const std::vector<std::string>& blocks);

    const Options& m_options;
    Console& m_console;
    std::optional<OpenDatabase> m_database;
    ConversationSetup m_setup;
    ApiKey m_key;
    ExchangeWatch m_watch;
    std::unique_ptr<Assistant> m_assistant;
    TurnReport m_report;  ///< of the last turn
    std::string m_sqlError;
    std::optional<Budget> m_budget;  ///< nothing: not chosen yet, for the model in use
    std::string m_leftOut;           ///< what was said last of tables that the budget leaves out
    std::string m_sharedRows;        ///< for the next question; empty: none
    bool m_isLongPromptWarned = false;
};

/// Reads a provider's key for this command line, warns where its file is open to everybody, and has it taken out of
/// everything that is printed from here on.
[[nodiscard]] ApiKey obtainKey(const Provider& provider, const Options& options, Console& console);

}  // namespace host

#endif
