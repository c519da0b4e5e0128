#ifndef HOST_CHAT_COMMANDS_H
#define HOST_CHAT_COMMANDS_H

#include <memory>
#include <optional>
#include <string>

#include "conversation/conversation.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// What can be done in a chat: questions, and lines that begin with a backslash or a slash. A new command is one row of
/// the table in chat_commands.cpp.
class ChatCommands {
public:
    enum class Next { Line, End };

    ChatCommands(const Options& options, Console& console);

    [[nodiscard]] static bool isCommand(const std::string& line);

    /// Runs a command. Throws HostError for one that fails or does not exist.
    [[nodiscard]] Next run(const std::string& line);
    void ask(const std::string& question);

    /// Whether answers are printed, and not only what is made of them.
    [[nodiscard]] bool isAnswerPrinted() const;

    /// The SQL that the user wants to edit before it runs; nothing when none was asked for.
    [[nodiscard]] std::optional<std::string> takeSqlToEdit();
    /// Whether the last answer has SQL that the user is to be asked about.
    [[nodiscard]] bool takeOfferToRun();
    void dropOffers();
    /// Whether SQL has just failed that the model can be asked to correct.
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
    /// Goes on with other options; the former conversation stays where these do not work.
    void restart(const Options& options);

    Options m_options;
    Console& m_console;
    std::unique_ptr<Conversation> m_conversation;
    std::optional<std::string> m_sqlToEdit;
    bool m_hasOffer = false;
    int m_fixCount = 0;  ///< corrections asked for since the user's last question
    bool m_isEnded = false;
};

}  // namespace host

#endif
