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

/// A conversation as the user sees it: it asks questions, prints answers, runs SQL on the database and keeps the file
/// up to date. Every failure is a HostError; the conversation and its file are then unchanged.
class Conversation {
public:
    /// Opens the database, reads the key and the saved conversation, and begins or resumes. Errors that can be found
    /// without the provider are found before the first request.
    /// @param options  borrowed
    Conversation(const Options& options, Console& console);

    /// Asks a question, prints the parts of the answer that the command line selects, saves the conversation, and with
    /// --run runs the answer's SQL.
    void takeTurn(const std::string& question);

    /// The SQL of the last answer, one item per code block.
    [[nodiscard]] const std::vector<std::string>& obtainSql() const noexcept { return m_report.sql; }
    /// Why the last SQL failed; empty if it did not.
    [[nodiscard]] const std::string& obtainSqlError() const noexcept { return m_sqlError; }

    /// Runs SQL of the last answer and prints the rows.
    /// @param block  the index of the block, from 0; nothing: all blocks
    void runSql(std::optional<std::size_t> block);
    /// Runs the user's own SQL in the same way.
    void runText(const std::string& sql);

    /// Changes the model from the next question on.
    void setModel(const std::string& model);
    [[nodiscard]] const std::string& obtainModel() const noexcept { return m_setup.settings.model; }
    [[nodiscard]] const Provider& obtainProvider() const noexcept { return *m_setup.provider; }
    [[nodiscard]] std::vector<std::string> listModels() { return m_assistant->listModels(); }

    /// The database; null without one.
    [[nodiscard]] const OpenDatabase* obtainDatabase() const noexcept { return m_database ? &*m_database : nullptr; }
    /// The instructions that the model gets about the database.
    [[nodiscard]] std::string obtainPrompt() const { return m_assistant->obtainCombinedInstructions(); }

    /// Saves the conversation to a file.
    void saveTo(const std::string& fileName);
    /// The questions and answers so far as Markdown; empty if the service keeps them.
    [[nodiscard]] std::string writeTranscript() const;

private:
    /// Prints the answer as it arrives.
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
    std::optional<Budget> m_budget;  ///< nothing: not chosen yet for the current model
    std::string m_leftOut;           ///< the last message about tables that the budget leaves out
    std::string m_sharedRows;        ///< for the next question; empty: none
    bool m_isLongPromptWarned = false;
};

/// Reads a provider's key for this command line, warns if everybody can read its file, and removes it from everything
/// that is printed from now on.
[[nodiscard]] ApiKey obtainKey(const Provider& provider, const Options& options, Console& console);

}  // namespace host

#endif
