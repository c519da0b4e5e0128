#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "cf/rest.h"
#include "commands/commands.h"
#include "conversation/conversation.h"
#include "conversation/instructions.h"
#include "network/server_probe.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// Checks every step from the database to the model and reports whether it works. A step that needs a failed one is
/// skipped.
class CheckUp {
public:
    CheckUp(const Options& options, Console& console)
        : m_options(options),
          m_console(console),
          m_provider(obtainChosenProvider(options)),
          m_http(chooseHttpOptions(options, m_provider)) {}

    ExitCode run() {
        tell("settings",
             m_options.settings.obtainFileName().empty() ? "no place for a file" : m_options.settings.obtainFileName());
        if (!m_options.database.empty()) {
            step("database", [&] { return checkDatabase(); });
        }
        const bool hasKey = step("key", [&] { return checkKey(); });
        checkWay();
        if (hasKey && step("service", [&] { return checkService(); })) {
            step("model", [&] { return checkModel(); });
        }
        return m_code;
    }

private:
    void checkWay() {
        if (!m_http.proxy.empty()) {
            step("proxy", [&] { return checkProxy(); });
        } else if (step("name", [&] { return checkName(); }) && !isPlain()) {
            step("TLS", [&] { return checkCertificate(); });
        }
    }

    template <typename Check>
    bool step(const std::string& name, Check check) {
        try {
            tell(name, "ok: " + check());
            return true;
        } catch (const HostError& error) {
            if (error.obtainCode() == ExitCode::Cancelled) {
                throw;
            }
            tell(name, "FAILED: " + std::string(error.what()));
            m_code = m_code == ExitCode::Done ? error.obtainCode() : m_code;
            return false;
        }
    }

    void tell(const std::string& name, const std::string& text) {
        m_console.printPlain(name + std::string(10 - name.size(), ' ') + makeOneLine(text, 2000) + "\n");
        m_console.flush();
    }

    std::string checkDatabase() {
        const OpenDatabase database = openDatabase(m_options.database, m_options.structure, m_console);
        AssistantSettings settings;
        const std::string leftOut =
            describeDatabase(settings, database, m_options.structure, obtainChosenBudget(m_options.structure), "");
        const ApiKey none;
        ExchangeWatch watch(m_console, {});
        Assistant assistant(*findProvider("deepseek"), none, "", watch, m_console);
        assistant.configure(settings);
        const std::size_t bytes = assistant.obtainCombinedInstructions().size();
        const std::string warning = m_provider.isContextWindowShort ? warnOfContextWindow(bytes) : std::string();
        return formatCount(countRelations(database.structure)) + " tables and views; the prompt is " +
               formatCount(bytes) + " bytes, about " + formatCount(estimateTokens(bytes)) + " tokens" +
               (leftOut.empty() ? "" : "; " + leftOut) + (warning.empty() ? "" : "; " + warning);
    }

    std::string checkKey() {
        m_key = obtainKey(m_provider, m_options, m_console);
        return m_key.obtainOrigin().empty() ? "this provider takes none" : "from " + m_key.obtainOrigin();
    }

    Assistant& obtainAssistant() {
        if (m_assistant == nullptr) {
            m_watch = std::make_unique<ExchangeWatch>(m_console, m_http);
            m_watch->install();
            m_assistant = std::make_unique<Assistant>(m_provider, m_key, chooseApiHost(m_options, m_provider).value,
                                                      *m_watch, m_console);
        }
        return *m_assistant;
    }

    [[nodiscard]] std::string checkProxy() const {
        tryConnection(readServerAddress(m_http.proxy, "3128"), obtainPatience());
        return m_http.proxy + " takes connections; the host's name and its certificate are left to it";
    }

    std::string checkName() {
        const std::string name = obtainServer().name;
        return name + " is " + resolveName(name);
    }

    /// The issuer shows whether this is the provider's certificate or that of a server in between.
    std::string checkCertificate() {
        const ServerCertificate certificate = readCertificate(obtainServer(), obtainPatience());
        return "the server shows the certificate of " + certificate.subject + ", issued by " + certificate.issuer +
               ", valid until " + certificate.lastDay;
    }

    std::string checkService() {
        m_models = obtainAssistant().listModels();
        const std::string trust =
            isPlain() ? std::string("plain HTTP, unencrypted")
                      : "its certificate is trusted by " +
                            (m_http.caFile.empty() ? "the system's store" : "the file '" + m_http.caFile + "'");
        return obtainAssistant().obtainApiHost() + " answers" +
               (m_key.obtainOrigin().empty() ? "" : " and accepts the key") + "; " + trust + "; it lists " +
               formatCount(m_models.size()) + " models";
    }

    std::string checkModel() {
        const Choice model = chooseModel(m_options, m_provider);
        if (model.value.empty()) {
            throw HostError(ExitCode::Usage, "none is chosen; " + tellHowToSetModel(m_options, m_provider));
        }
        if (!m_models.empty() && std::find(m_models.begin(), m_models.end(), model.value) == m_models.end()) {
            throw HostError(ExitCode::Provider,
                            "the service does not list '" + model.value + "'; 'kai models' shows what it lists");
        }
        return model.value;
    }

    ServerAddress obtainServer() { return readServerAddress(obtainAssistant().obtainApiHost(), "443"); }

    /// Whether the connection to the service is not encrypted.
    bool isPlain() {
        const std::string host = obtainAssistant().obtainApiHost();
        const ServerAddress server = obtainServer();
        return m_provider.type == KAIAssistantType::OLLAMA ||
               std::any_of(m_http.plainHTTPHosts.begin(), m_http.plainHTTPHosts.end(), [&](const std::string& plain) {
                   return plain == server.name || plain == host.substr(0, host.find('/'));
               });
    }

    /// The time limit of one step, which need not be as long as for an answer.
    [[nodiscard]] std::chrono::milliseconds obtainPatience() const {
        return std::min<std::chrono::milliseconds>(m_http.timeout, std::chrono::seconds{15});
    }

    const Options& m_options;
    Console& m_console;
    const Provider& m_provider;
    const HttpOptions m_http;
    ApiKey m_key;
    std::unique_ptr<ExchangeWatch> m_watch;
    std::unique_ptr<Assistant> m_assistant;
    std::vector<std::string> m_models;
    ExitCode m_code = ExitCode::Done;
};

}  // namespace

ExitCode runCheck(const Options& options, Console& console) {
    return CheckUp(options, console).run();
}

}  // namespace host
