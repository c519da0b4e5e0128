#include "conversation/conversation.h"

#include "conversation/atomic_file.h"
#include "conversation/instructions.h"
#include "conversation/sql_extractor.h"
#include "engine/engine_table.h"
#include "host_error.h"
#include "terminal/answer_printer.h"
#include "terminal/interrupts.h"
#include "terminal/secret_text.h"
#include "terminal/table_printer.h"
#include "terminal/text_safety.h"

#include <iostream>
#include <sstream>

namespace host {
namespace {

/// A key shorter than this is not looked for in a session text, where it could be a word of the format.
constexpr std::size_t kMinKeyLengthInFiles = 16;

constexpr const char* kNotKept = "; what was shown of the answer is not kept";

std::optional<OpenDatabase> openNamedDatabase(const Options& options, Console& console) {
    if (options.database.empty()) {
        return std::nullopt;
    }
    return openDatabase(options.database, console);
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

/// Without a model the service's are listed: that is what the user needs next.
void Conversation::checkModel() const {
    if (!m_setup.settings.model.empty()) {
        return;
    }
    std::string models;
    for (const std::string& model : m_assistant->listModels()) {
        models += (models.empty() ? "" : ", ") + model;
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

void Conversation::ask(const std::string& question) {
    warnOfLongPrompt(question);
    const std::string answer = askAndPrint(question);
    m_sql = extractSql(answer, m_database ? m_database->database.obtainEngine().blockMarks : listBlockMarks());
    if (answer.empty()) {
        m_console.note(
            "the model gave an empty answer: the service may have blocked the question or the answer, or the answer's "
            "length was used up before its first word; ask in other words or choose another --model");
    }
    save();
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

void Conversation::save() {
    if (m_options.saveFile.empty()) {
        return;
    }
    const std::string sessionText = m_key.redact(m_assistant->serialize(), kMinKeyLengthInFiles);
    replaceFileContent(m_options.saveFile, writeConversation(m_setup.describe(sessionText)));
    if (m_options.isKept) {
        m_assistant->keepOnService();
    }
}

void Conversation::runSql(std::optional<std::size_t> block) {
    if (!m_database) {
        throw HostError(ExitCode::Usage, "no database to run the SQL on; name it with --db");
    }
    if (m_sql.empty()) {
        throw HostError(ExitCode::SqlFailed, "the answer has no SQL to run");
    }
    if (block && *block >= m_sql.size()) {
        throw HostError(ExitCode::Usage,
                        "the answer has no block of SQL with this number; it has " + std::to_string(m_sql.size()));
    }
    for (std::size_t i = 0; i < m_sql.size(); ++i) {
        if (!block || *block == i) {
            runBlock(m_sql[i]);
        }
    }
}

void Conversation::runBlock(const std::string& sql) {
    ResultCollector results([&](const ResultTable& table) {
        std::ostringstream text;
        printTable(text, table, m_options.maxCellColumns);
        m_console.printPlain("\n" + text.str());
        m_console.flush();
    });
    const std::size_t count = m_database->database.run(sql, m_options.limits, results, &Interrupts::isRequested);
    if (count == 0) {
        throw HostError(ExitCode::SqlFailed, "the block of SQL has no statement in it");
    }
}

}  // namespace host
