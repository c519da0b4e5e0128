#ifndef HOST_CHAT_COMMANDS_H
#define HOST_CHAT_COMMANDS_H

#include <memory>
#include <optional>
#include <string>

#include "conversation/conversation.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// Handles the lines of a chat: questions, and commands, which begin with a backslash or a slash. A new command is one
/// row of the table in chat_commands.cpp.
class ChatCommands {
public:
    enum class Next { Line, End };

    ChatCommands(const Options& options, Console& console);

    [[nodiscard]] static bool isCommand(const std::string& line);

    /// Runs a command. Throws HostError if it fails or does not exist.
    [[nodiscard]] Next run(const std::string& line);
    void ask(const std::string& question);

    /// Whether answers are printed, and not only their SQL or results.
    [[nodiscard]] bool isAnswerPrinted() const;

    /// The SQL that the user wants to edit before it runs; nothing if there is none.
    [[nodiscard]] std::optional<std::string> takeSqlToEdit();
    /// Whether to ask the user to run the SQL of the last answer.
    [[nodiscard]] bool takeOfferToRun();
    void dropOffers();
    /// Whether SQL has just failed and the model can be asked to correct it.
    [[nodiscard]] bool canFix() const;

    void runEdited(const std::string& sql);
    void runAll();

private:
    struct Row;
    [[nodiscard]] static const std::vector<Row>& listRows();

    void quit(const std::string& argument);
    void help(const std::string& argument);
    void showSql(const std::string& argument);
    void runBlock(const std::string& argument);
    void edit(const std::string& argument);
    void fix(const std::string& argument);
    void explain(const std::string& argument);
    void showTables(const std::string& argument);
    void showSchema(const std::string& argument);
    void showPrompt(const std::string& argument);
    void chooseModel(const std::string& argument);
    void chooseProvider(const std::string& argument);
    void save(const std::string& argument);
    void load(const std::string& argument);
    void forget(const std::string& argument);
    void exportTranscript(const std::string& argument);

    void takeTurn(const std::string& question);
    [[nodiscard]] const OpenDatabase& obtainDatabase() const;
    /// Continues with other options. If they do not work, the former conversation stays.
    void restart(const Options& options);

    Options m_options;
    Console& m_console;
    std::unique_ptr<Conversation> m_conversation;
    std::optional<std::string> m_sqlToEdit;
    bool m_hasOffer = false;
    int m_fixCount = 0;  ///< corrections requested since the user's last question
    bool m_isEnded = false;
};

}  // namespace host

#endif
