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
    Conversation(const Options& options, Console& console);

    /// Asks a question, prints the answer as it comes and saves the conversation.
    void ask(const std::string& question);

    /// The SQL of the last answer, one item a code block.
    [[nodiscard]] const std::vector<std::string>& obtainSql() const noexcept { return m_sql; }

    /// Runs SQL of the last answer and prints the rows.
    /// @param block  which block, from 0; nothing: all of them
    void runSql(std::optional<std::size_t> block);

private:
    /// Prints the answer as it comes.
    [[nodiscard]] std::string askAndPrint(const std::string& question);
    void checkModel() const;
    void saySwitch() const;
    void warnOfLongPrompt(const std::string& question);
    void save();
    void runBlock(const std::string& sql);

    const Options& m_options;
    Console& m_console;
    std::optional<OpenDatabase> m_database;
    ConversationSetup m_setup;
    ApiKey m_key;
    ExchangeWatch m_watch;
    std::unique_ptr<Assistant> m_assistant;
    std::vector<std::string> m_sql;
    bool m_isLongPromptWarned = false;
};

/// Reads a provider's key for this command line, warns where its file is open to everybody, and has it taken out of
/// everything that is printed from here on.
[[nodiscard]] ApiKey obtainKey(const Provider& provider, const Options& options, Console& console);

}  // namespace host

#endif
