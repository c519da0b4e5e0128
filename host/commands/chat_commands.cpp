#include "commands/chat_commands.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/utilities.h"
#include "conversation/atomic_file.h"
#include "engine/structure.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// How often one question's SQL is sent back for correction: each time is a paid turn.
constexpr int kMaxFixes = 2;

[[noreturn]] void fail(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
}

std::size_t readBlockNumber(const std::string& argument) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), number);
    if (error != std::errc() || end != argument.data() + argument.size() || number == 0) {
        fail("\\run takes the number of a block, from 1");
    }
    return number - 1;
}

std::string describeRelation(const SchemaDescription& schema, const RelationDescription& relation) {
    const std::string name =
        schema.isDefault || schema.name.empty() ? relation.name : schema.name + "." + relation.name;
    return makeVisible(name, LineBreaks::Show) + " (" + std::to_string(relation.columns.size()) + " columns)\n";
}

std::string join(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + makeVisible(name, LineBreaks::Show);
    }
    return text;
}

std::string describeColumns(const RelationDescription& relation) {
    std::string text;
    for (const ColumnDescription& column : relation.columns) {
        text +=
            "  " + makeVisible(column.name, LineBreaks::Show) + " " + makeVisible(column.type, LineBreaks::Show) + "\n";
    }
    if (!relation.primaryKey.empty()) {
        text += "  primary key: " + join(relation.primaryKey) + "\n";
    }
    for (const ForeignKeyDescription& key : relation.foreignKeys) {
        text += "  " + join(key.columns) + " -> " + makeVisible(key.parentTable, LineBreaks::Show) + " (" +
                join(key.parentColumns) + ")\n";
    }
    return text;
}

}  // namespace

struct ChatCommands::Row {
    std::string_view name;
    std::string_view argument;
    std::string_view help;
    void (ChatCommands::*action)(const std::string& argument);
};

const std::vector<ChatCommands::Row>& ChatCommands::listRows() {
    static const std::vector<Row> rows{
        {"run", "[N]", "run the SQL of the last answer, or its Nth block, for reading only", &ChatCommands::runBlock},
        {"sql", "", "show the SQL of the last answer", &ChatCommands::showSql},
        {"edit", "", "edit the SQL of the last answer, then run it", &ChatCommands::edit},
        {"fix", "", "send the database's error back to the model, twice at most", &ChatCommands::fix},
        {"explain", "", "show how the database would run the SQL", &ChatCommands::explain},
        {"tables", "", "list the tables and views", &ChatCommands::showTables},
        {"schema", "NAME", "show the columns and keys of a table or view", &ChatCommands::showSchema},
        {"prompt", "", "show what the model is told of the database", &ChatCommands::showPrompt},
        {"model", "[NAME]", "list the models, or go on with another one", &ChatCommands::chooseModel},
        {"provider", "NAME MODEL", "begin anew with another provider", &ChatCommands::chooseProvider},
        {"save", "FILE", "save the conversation, now and after each answer", &ChatCommands::save},
        {"load", "FILE", "go on with a saved conversation", &ChatCommands::load},
        {"forget", "", "begin anew; what was said is not sent again", &ChatCommands::forget},
        {"export", "FILE", "write questions and answers to a new file, as Markdown", &ChatCommands::exportTranscript},
        {"help", "", "show the commands", &ChatCommands::help},
        {"quit", "", "end; so does the end of the input (Ctrl-D)", &ChatCommands::quit},
        {"exit", "", "", &ChatCommands::quit},
    };
    return rows;
}

ChatCommands::ChatCommands(const Options& options, Console& console)
    : m_options(options), m_console(console), m_conversation(std::make_unique<Conversation>(m_options, console)) {}

bool ChatCommands::isCommand(const std::string& line) {
    return line.starts_with('/') || line.starts_with('\\');
}

ChatCommands::Next ChatCommands::run(const std::string& line) {
    const std::size_t blank = std::min(line.find_first_of(" \t\n"), line.size());
    const std::string name = line.substr(1, blank - 1);
    const std::vector<Row>& rows = listRows();
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return row.name == name; });
    if (found == rows.end()) {
        fail("there is no such command; \\help shows them");
    }
    const std::string argument = cfTrimAsString(line.substr(blank));
    if (argument.empty() && !found->argument.empty() && !found->argument.starts_with('[')) {
        fail("\\" + name + " takes " + std::string(found->argument));
    }
    (this->*found->action)(argument);
    return m_isEnded ? Next::End : Next::Line;
}

void ChatCommands::ask(const std::string& question) {
    m_fixCount = 0;
    takeTurn(question);
}

void ChatCommands::takeTurn(const std::string& question) {
    m_conversation->takeTurn(question);
    m_hasOffer =
        !m_options.isRun && !m_conversation->obtainSql().empty() && m_conversation->obtainDatabase() != nullptr;
}

bool ChatCommands::isAnswerPrinted() const {
    return m_options.format.empty() && !m_options.isJson && !m_options.isSqlOnly;
}

std::optional<std::string> ChatCommands::takeSqlToEdit() {
    return std::exchange(m_sqlToEdit, std::nullopt);
}

bool ChatCommands::takeOfferToRun() {
    return std::exchange(m_hasOffer, false);
}

void ChatCommands::dropOffers() {
    m_hasOffer = false;
    m_sqlToEdit.reset();
}

bool ChatCommands::canFix() const {
    return !m_conversation->obtainSqlError().empty() && m_fixCount < kMaxFixes;
}

void ChatCommands::runEdited(const std::string& sql) {
    m_conversation->runText(sql);
}

void ChatCommands::runAll() {
    m_conversation->runSql(std::nullopt);
}

void ChatCommands::quit(const std::string& /*argument*/) {
    m_isEnded = true;
}

void ChatCommands::help(const std::string& /*argument*/) {
    constexpr std::size_t kNameColumns = 21;
    for (const Row& row : listRows()) {
        if (!row.help.empty()) {
            std::string name = "\\" + std::string(row.name) + " " + std::string(row.argument);
            name.resize(std::max(name.size(), kNameColumns), ' ');
            m_console.printPlain(name + std::string(row.help) + "\n");
        }
    }
    m_console.printPlain(
        "Any other line is a question; Alt-Enter begins another line of it. Ctrl-C cancels a turn; twice it ends the "
        "chat. A slash does as well as a backslash.\n");
}

void ChatCommands::showSql(const std::string& /*argument*/) {
    if (m_conversation->obtainSql().empty()) {
        m_console.note("the last answer has no SQL");
    }
    for (const std::string& sql : m_conversation->obtainSql()) {
        m_console.printText(sql);
    }
}

void ChatCommands::runBlock(const std::string& argument) {
    m_conversation->runSql(argument.empty() ? std::nullopt : std::optional<std::size_t>(readBlockNumber(argument)));
}

void ChatCommands::edit(const std::string& /*argument*/) {
    if (!m_console.isInteractive()) {
        fail("\\edit needs a terminal");
    }
    std::string sql;
    for (const std::string& block : m_conversation->obtainSql()) {
        sql += block;
    }
    if (sql.empty()) {
        fail("the last answer has no SQL");
    }
    m_sqlToEdit = cfTrimAsString(sql);
}

void ChatCommands::fix(const std::string& /*argument*/) {
    const std::string error = m_conversation->obtainSqlError();
    if (error.empty()) {
        fail("the last SQL did not fail");
    }
    if (m_fixCount == kMaxFixes) {
        fail("the SQL was sent back " + std::to_string(kMaxFixes) + " times already; ask in other words");
    }
    ++m_fixCount;
    const std::string question = "Your SQL did not work. The database says: " + error + "\nCorrect it.";
    m_console.printPlain("Sent back (" + std::to_string(m_fixCount) + " of " + std::to_string(kMaxFixes) +
                         "): " + makeOneLine(error) + "\n");
    takeTurn(question);
}

void ChatCommands::explain(const std::string& /*argument*/) {
    if (m_conversation->obtainSql().empty()) {
        fail("the last answer has no SQL");
    }
    const std::string prefix(obtainDatabase().database.obtainEngine().explainPrefix);
    for (const std::string& sql : m_conversation->obtainSql()) {
        m_conversation->runText(prefix + " " + sql);
    }
}

const OpenDatabase& ChatCommands::obtainDatabase() const {
    if (m_conversation->obtainDatabase() == nullptr) {
        fail("no database; name it with --db");
    }
    return *m_conversation->obtainDatabase();
}

void ChatCommands::showTables(const std::string& /*argument*/) {
    visitRelations(obtainDatabase().structure,
                   [&](const SchemaDescription& schema, const RelationDescription& relation) {
                       m_console.printPlain(describeRelation(schema, relation));
                   });
}

void ChatCommands::showSchema(const std::string& argument) {
    bool isFound = false;
    visitRelations(obtainDatabase().structure,
                   [&](const SchemaDescription& schema, const RelationDescription& relation) {
                       if (relation.name == argument || schema.name + "." + relation.name == argument) {
                           m_console.printPlain(describeRelation(schema, relation) + describeColumns(relation));
                           isFound = true;
                       }
                   });
    if (!isFound) {
        fail("there is no table or view '" + makeOneLine(argument) + "'; \\tables lists them");
    }
}

void ChatCommands::showPrompt(const std::string& /*argument*/) {
    m_console.printText(m_conversation->obtainPrompt());
}

void ChatCommands::chooseModel(const std::string& argument) {
    if (!argument.empty()) {
        m_conversation->setModel(argument);
        m_console.note("going on with the model " + makeOneLine(argument));
        return;
    }
    for (const std::string& model : m_conversation->listModels()) {
        const bool isCurrent = model == m_conversation->obtainModel();
        m_console.printPlain((isCurrent ? "* " : "  ") + makeVisible(model, LineBreaks::Show) + "\n");
    }
}

void ChatCommands::chooseProvider(const std::string& argument) {
    const std::size_t blank = std::min(argument.find_first_of(" \t"), argument.size());
    Options options = m_options;
    options.provider = argument.substr(0, blank);
    options.model = cfTrimAsString(argument.substr(blank));
    options.apiHost.reset();
    options.saveFile.clear();
    options.continueFile.clear();
    if (findProvider(options.provider) == nullptr) {
        fail("unknown provider; choose one of " + listProviderNames());
    }
    restart(options);
    m_console.note("a new conversation with " + options.provider + ", model " + m_conversation->obtainModel());
}

void ChatCommands::save(const std::string& argument) {
    checkSaveTarget(argument);
    m_conversation->saveTo(argument);
    m_options.saveFile = argument;
    m_console.note("saved, and again after each answer, to " + makeOneLine(argument));
}

void ChatCommands::load(const std::string& argument) {
    Options options = m_options;
    options.continueFile = argument;
    options.saveFile = argument;
    options.provider.clear();
    options.model.clear();
    restart(options);
}

void ChatCommands::forget(const std::string& /*argument*/) {
    Options options = m_options;
    options.provider = m_conversation->obtainProvider().name;
    options.model = m_conversation->obtainModel();
    options.continueFile.clear();
    options.saveFile.clear();
    restart(options);
    m_console.note("a new conversation; nothing of the former one is sent again, and no file is written");
}

void ChatCommands::exportTranscript(const std::string& argument) {
    const std::string transcript = m_conversation->writeTranscript();
    if (transcript.empty()) {
        fail("there is nothing to write: no answer yet, or the service keeps the conversation");
    }
    struct stat status {};
    if (stat(argument.c_str(), &status) == 0) {
        fail("'" + makeOneLine(argument) + "' exists; name a new file");
    }
    replaceFileContent(argument, transcript);
    m_console.note("written to " + makeOneLine(argument));
}

void ChatCommands::restart(const Options& options) {
    const Options former = std::exchange(m_options, options);
    try {
        m_conversation = std::make_unique<Conversation>(m_options, m_console);
    } catch (...) {
        m_options = former;
        throw;
    }
}

}  // namespace host
