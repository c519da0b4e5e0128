#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "cf/rest.h"
#include "commands/commands.h"
#include "conversation/conversation.h"
#include "conversation/instructions.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// Goes from the database to the model and says of each step whether it works. A step that needs one that failed is
/// left out.
class CheckUp {
public:
    CheckUp(const Options& options, Console& console)
        : m_options(options), m_console(console), m_provider(obtainChosenProvider(options)) {}

    ExitCode run() {
        tell("settings",
             m_options.settings.obtainFileName().empty() ? "no place for a file" : m_options.settings.obtainFileName());
        if (!m_options.database.empty()) {
            step("database", [&] { return checkDatabase(); });
        }
        const bool hasKey = step("key", [&] { return checkKey(); });
        step("name", [&] { return checkName(); });
        if (hasKey && step("service", [&] { return checkService(); })) {
            step("model", [&] { return checkModel(); });
        }
        return m_code;
    }

private:
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
        const std::string leftOut = describeDatabase(settings, database, m_options.structure, "");
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
            m_watch = std::make_unique<ExchangeWatch>(m_console, chooseHttpOptions(m_options, m_provider));
            m_watch->install();
            m_assistant = std::make_unique<Assistant>(m_provider, m_key, chooseApiHost(m_options, m_provider).value,
                                                      *m_watch, m_console);
        }
        return *m_assistant;
    }

    /// The host's name alone, for a look-up of its own: an exchange would say less of what is wrong.
    std::string checkName() {
        const std::string host = obtainAssistant().obtainApiHost();
        if (!chooseHttpOptions(m_options, m_provider).proxy.empty()) {
            return "left to the proxy " + chooseHttpOptions(m_options, m_provider).proxy;
        }
        std::string name = host.substr(0, host.find('/'));
        if (name.starts_with('[')) {
            name = name.substr(1, name.find(']') - 1);
        } else {
            name = name.substr(0, name.find(':'));
        }
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        const int code = getaddrinfo(name.c_str(), nullptr, &hints, &found);
        const std::unique_ptr<addrinfo, void (*)(addrinfo*)> addresses(found, &freeaddrinfo);
        if (code != 0) {
            throw HostError(ExitCode::Provider,
                            name + ": " + gai_strerror(code) + "; check --api-host and the connection to the network");
        }
        std::string address(NI_MAXHOST, '\0');
        getnameinfo(found->ai_addr, found->ai_addrlen, address.data(), NI_MAXHOST, nullptr, 0, NI_NUMERICHOST);
        return name + " is " + address.substr(0, address.find('\0'));
    }

    std::string checkService() {
        m_models = obtainAssistant().listModels();
        const HttpOptions http = chooseHttpOptions(m_options, m_provider);
        const std::string host = obtainAssistant().obtainApiHost();
        const bool isPlain = m_provider.type == KAIAssistantType::OLLAMA ||
                             std::find(http.plainHTTPHosts.begin(), http.plainHTTPHosts.end(),
                                       host.substr(0, host.find('/'))) != http.plainHTTPHosts.end();
        return host + " answers and accepts the key; " +
               (isPlain ? std::string("plain HTTP, unencrypted")
                        : "its certificate is trusted by " +
                              (http.caFile.empty() ? "the system's store" : "the file '" + http.caFile + "'")) +
               "; it lists " + formatCount(m_models.size()) + " models";
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

    const Options& m_options;
    Console& m_console;
    const Provider& m_provider;
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
