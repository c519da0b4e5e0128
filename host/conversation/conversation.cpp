#include "conversation/conversation.h"

#include <chrono>
#include <string_view>
#include <utility>

#include "cf/json.h"
#include "cf/utilities.h"
#include "conversation/atomic_file.h"
#include "conversation/instructions.h"
#include "conversation/model_window.h"
#include "conversation/result_output.h"
#include "conversation/sql_extractor.h"
#include "engine/engine_table.h"
#include "host_error.h"
#include "terminal/answer_printer.h"
#include "terminal/interrupts.h"
#include "terminal/secret_text.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// A shorter key is not searched in a session text, because it could be a word of the format.
constexpr std::size_t kMinKeyLengthInFiles = 16;

/// The tokens of a prompt that every model accepts today.
constexpr std::size_t kFitsEveryWindow = 1500;

constexpr const char* kNotKept = "; what was shown of the answer is not kept";

std::optional<OpenDatabase> openNamedDatabase(const Options& options, Console& console) {
    if (options.database.empty()) {
        return std::nullopt;
    }
    return openDatabase(options.database, options.structure, console);
}

}  // namespace

ApiKey obtainKey(const Provider& provider, const Options& options, Console& console) {
    std::string warning;
    ApiKey key = ApiKey::obtain(provider, chooseKeySource(options, provider), warning);
    setHiddenSecret(key.obtainText());
    if (!warning.empty()) {
        console.note(warning);
    }
    return key;
}

Conversation::Conversation(const Options& options, Console& console)
    : m_options(options),
      m_console(console),
      m_database(openNamedDatabase(options, console)),
      m_setup(setUpConversation(options, m_database ? &*m_database : nullptr)),
      m_key(obtainKey(*m_setup.provider, options, console)),
      m_watch(console, chooseHttpOptions(options, *m_setup.provider)) {
    if (!options.saveFile.empty()) {
        checkSaveTarget(options.saveFile);
    }
    m_watch.install();
    m_assistant = std::make_unique<Assistant>(*m_setup.provider, m_key, m_setup.settings.apiHost, m_watch, console);
    checkSavedHost(m_setup, options, m_assistant->obtainApiHost());
    m_setup.settings.apiHost = m_assistant->obtainApiHost();
    checkModel();
    if (m_setup.saved) {
        saySwitch();
        m_assistant->resume(m_setup.saved->sessionText);
        m_assistant->configure(m_setup.settings);
    } else {
        m_assistant->configure(m_setup.settings);
        m_assistant->begin();
    }
}

/// Without a model, lists the service's models: the user needs them next.
void Conversation::checkModel() const {
    if (!m_setup.settings.model.empty()) {
        return;
    }
    std::string models;
    try {
        for (const std::string& model : m_assistant->listModels()) {
            models += (models.empty() ? "" : ", ") + model;
        }
    } catch (const HostError& error) {
        if (error.obtainCode() == ExitCode::Cancelled) {
            throw;
        }
    }
    throw HostError(ExitCode::Usage,
                    "no model; " + tellHowToSetModel(m_options, *m_setup.provider) +
                        (models.empty() ? std::string() : "; the service lists: " + makeOneLine(models, 2000)));
}

void Conversation::saySwitch() const {
    const AssistantSettings& former = m_setup.savedSummary.settings;
    const AssistantSettings& now = m_setup.settings;
    const auto describe = [](const std::string& before, const std::string& after) {
        return makeOneLine(before == after ? after : "'" + before + "' -> '" + after + "'");
    };
    m_console.note("continuing with " + describe(m_setup.saved->provider, std::string(m_setup.provider->name)) +
                   ", model " + describe(former.model, now.model) + ", host " + describe(former.apiHost, now.apiHost));
}

void Conversation::takeTurn(const std::string& question) {
    m_report = {};
    m_report.question = question;
    m_report.provider = m_setup.provider->name;
    m_report.model = m_setup.settings.model;
    m_sqlError.clear();
    fitStructure(question);
    ask(addSharedRows(question));
    m_sharedRows.clear();
    const CODefer printReport([&] {
        if (m_options.isJson) {
            m_console.printPlain(writeTurnReport(m_report));
        }
    });
    if (m_options.isSqlOnly) {
        printSql();
    }
    if (m_options.isRun) {
        runSql(std::nullopt);
    }
}

void Conversation::fitStructure(const std::string& question) {
    if (!m_database) {
        return;
    }
    if (!m_budget) {
        m_budget = chooseBudget();
    }
    if (m_budget->tokens == 0) {
        return;
    }
    AssistantSettings settings;
    const std::string leftOut = describeDatabase(settings, *m_database, m_options.structure, *m_budget, question);
    m_assistant->configure(settings);
    if (leftOut != std::exchange(m_leftOut, leftOut) && !leftOut.empty()) {
        m_console.note(leftOut);
    }
}

/// Without --budget: half of the model's window, if its service tells it. The other half is for the conversation and
/// the answer. A short structure fits every window.
Budget Conversation::chooseBudget() {
    Budget budget = obtainChosenBudget(m_options.structure);
    if (budget.tokens == 0 && estimateTokens(m_assistant->obtainCombinedInstructions().size()) > kFitsEveryWindow) {
        budget.tokens =
            askModelWindow(*m_setup.provider, m_key, m_setup.settings.apiHost, m_setup.settings.model, m_watch) / 2;
        budget.reason = "for half of the model's window, as --budget " + std::to_string(budget.tokens) + " does";
    }
    return budget;
}

/// The question with the rows that the user agreed to send. They are shown before they are sent.
std::string Conversation::addSharedRows(const std::string& question) const {
    if (m_sharedRows.empty()) {
        return question;
    }
    m_console.note("sent with the question, as --share-rows says: " + makeOneLine(m_sharedRows, 2000));
    return "The first rows of the result of your SQL:\n\n" + m_sharedRows + "\n" + question;
}

void Conversation::ask(const std::string& question) {
    warnOfLongPrompt(question);
    const auto start = std::chrono::steady_clock::now();
    const bool isAnswerPrinted = m_options.format.empty() && !m_options.isSqlOnly && !m_options.isJson;
    m_report.answer = isAnswerPrinted ? askAndPrint(question) : m_assistant->ask(question, [](std::string_view) {});
    m_report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m_report.sql =
        extractSql(m_report.answer, m_database ? m_database->database.obtainEngine().blockMarks : listBlockMarks());
    if (m_report.answer.empty()) {
        m_console.note(
            "the model gave an empty answer: the service may have blocked the question or the answer, or the answer's "
            "length was used up before its first word; ask in other words or choose another --model");
    }
    if (!m_options.saveFile.empty()) {
        saveTo(m_options.saveFile);
    }
}

void Conversation::printSql() const {
    if (m_report.sql.empty()) {
        throw HostError(ExitCode::SqlFailed, "the answer has no SQL");
    }
    for (const std::string& sql : m_report.sql) {
        m_console.printText(sql);
    }
}

std::string Conversation::askAndPrint(const std::string& question) {
    AnswerPrinter printer(m_console);
    try {
        std::string answer = m_assistant->ask(question, [&](std::string_view piece) { printer.add(piece); });
        printer.finish();
        m_console.flush();
        return answer;
    } catch (const HostError& error) {
        printer.finish();
        throw printer.hasPrinted() ? HostError(error.obtainCode(), std::string(error.what()) + kNotKept) : error;
    }
}

void Conversation::warnOfLongPrompt(const std::string& question) {
    if (!m_setup.provider->isContextWindowShort || m_isLongPromptWarned) {
        return;
    }
    const std::string warning = warnOfContextWindow(m_assistant->measurePrompt() + question.size());
    m_isLongPromptWarned = !warning.empty();
    if (m_isLongPromptWarned) {
        m_console.note(warning);
    }
}

void Conversation::saveTo(const std::string& fileName) {
    const std::string sessionText = m_key.redact(m_assistant->serialize(), kMinKeyLengthInFiles);
    replaceFileContent(fileName, writeConversation(m_setup.describe(sessionText)));
    if (m_options.isKept) {
        m_assistant->keepOnService();
    }
}

std::string Conversation::writeTranscript() const {
    const COJson session{std::string_view(m_assistant->serialize())};
    std::string text;
    for (const COJsonValue message : session.obtainMember("messages").obtainItems()) {
        const std::string content = m_key.redact(message.obtainMember("content").obtainString());
        text += text.empty() ? "" : "\n";
        text += message.obtainMember("role").obtainString() == "user" ? "## " + makeOneLine(content) + "\n"
                                                                      : makeVisible(content, LineBreaks::Keep) + "\n";
    }
    return text;
}

void Conversation::setModel(const std::string& model) {
    AssistantSettings settings;
    settings.model = model;
    m_assistant->configure(settings);
    m_setup.settings.model = model;
    m_budget.reset();
}

void Conversation::runSql(std::optional<std::size_t> block) {
    const std::vector<std::string>& sql = m_report.sql;
    if (sql.empty()) {
        throw HostError(ExitCode::SqlFailed, "the answer has no SQL to run");
    }
    if (block && *block >= sql.size()) {
        throw HostError(ExitCode::Usage,
                        "the answer has no block of SQL with this number; it has " + std::to_string(sql.size()));
    }
    runBlocks(block ? std::vector<std::string>{sql[*block]} : sql);
}

void Conversation::runText(const std::string& sql) {
    runBlocks({sql});
}

void Conversation::runBlocks(const std::vector<std::string>& blocks) {
    if (!m_database) {
        throw HostError(ExitCode::Usage, "no database to run the SQL on; name it with --db");
    }
    m_sqlError.clear();
    ResultOutput output(m_options, m_console, m_options.sharedRows);
    const CODefer keepResults([&] { m_report.results = std::move(output.obtainJson()); });
    m_console.beginProgress();
    const CODefer endProgress([&] { m_console.endProgress(); });
    const auto isStopped = [&] {
        m_console.updateProgress();
        return Interrupts::isRequested();
    };
    try {
        for (const std::string& sql : blocks) {
            if (m_database->database.run(sql, chooseLimits(m_options), output, isStopped) == 0) {
                throw HostError(ExitCode::SqlFailed, "the block of SQL has no statement in it");
            }
        }
    } catch (const HostError& error) {
        m_sqlError = error.obtainCode() == ExitCode::SqlFailed ? error.what() : "";
        throw;
    }
    if (m_options.sharedRows > 0) {
        m_sharedRows = output.writeKept();
    }
    output.checkIsWhole();
}

}  // namespace host
