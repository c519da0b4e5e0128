#include "conversation/conversation_setup.h"

#include <string_view>
#include <utility>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr std::string_view kUsualProvider = "deepseek";
constexpr const char* kCommandLine = "the command line";

Choice readSetting(const Options& options, const Provider& provider, std::string_view name) {
    const std::optional<Setting> usual = options.settings.find("provider");
    const bool isUsual = provider.name == (usual ? std::string_view(usual->value) : kUsualProvider);
    const std::optional<Setting> setting = options.settings.findFor(provider.name, isUsual, name);
    return setting ? Choice{setting->value, setting->origin} : Choice();
}

[[noreturn]] void fail(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
}

const Provider& findSavedProvider(const ConversationRecord& saved) {
    const Provider* provider = findProvider(saved.provider);
    if (provider == nullptr) {
        fail("the conversation was held with '" + makeOneLine(saved.provider) +
             "', which this kai does not know; the providers are " + listProviderNames());
    }
    return *provider;
}

/// Checks whether a conversation may continue with another provider.
void checkSwitch(const Provider& from, const Provider& to, const Options& options) {
    const std::string both = std::string(from.name) + " and " + std::string(to.name);
    if (!options.isSwitchAllowed) {
        fail("the conversation was held with " + std::string(from.name) +
             "; add --switch-provider to send all of it to " + std::string(to.name));
    }
    if (!from.isHistoryLocal || !to.isHistoryLocal) {
        fail("a conversation cannot go on between " + both + ": one of them keeps it on its service; begin a new one");
    }
    if (options.model.empty()) {
        fail("no model; name one of " + std::string(to.name) + " with --model");
    }
}

void checkKeeping(const ConversationSetup& setup, const Options& options) {
    if (setup.provider->isHistoryLocal) {
        if (options.isKept) {
            fail("--keep is for openai; a conversation with " + std::string(setup.provider->name) +
                 " is kept by --save alone");
        }
        return;
    }
    if (setup.saved) {
        return;
    }
    if (options.isKept && options.saveFile.empty()) {
        fail("--keep needs --save FILE: without the file nothing could find the conversation on the service again");
    }
    if (!options.isKept && !options.saveFile.empty()) {
        fail("--save needs --keep with " + std::string(setup.provider->name) +
             ": the conversation is on the service and would be deleted there at the end");
    }
}

void chooseProvider(ConversationSetup& setup, const Options& options) {
    if (!setup.saved) {
        setup.provider = &obtainChosenProvider(options);
        return;
    }
    const Provider& savedProvider = findSavedProvider(*setup.saved);
    setup.provider = options.provider.empty() ? &savedProvider : findProvider(options.provider);
    setup.isSwitched = setup.provider != &savedProvider;
    if (setup.isSwitched) {
        checkSwitch(savedProvider, *setup.provider, options);
    }
}

/// The command line takes precedence over saved settings.
void chooseSettings(ConversationSetup& setup, const Options& options, const OpenDatabase* database) {
    if (setup.saved) {
        setup.settings = setup.savedSummary.settings;
        setup.settings.temperature = setup.saved->temperature;
    }
    setup.settings.apiHost = chooseApiHost(options, *setup.provider).value;
    if (!options.model.empty() || !setup.saved) {
        setup.settings.model = chooseModel(options, *setup.provider).value;
    }
    if (!options.temperature.empty()) {
        setup.settings.temperature = options.temperature;
    }
    if (options.instructions) {
        setup.settings.userInstructions = options.instructions;
    }
    if (database != nullptr) {
        // Tables that a budget leaves out are reported later, with the question.
        static_cast<void>(
            describeDatabase(setup.settings, *database, options.structure, obtainChosenBudget(options.structure), ""));
    }
}

}  // namespace

Choice chooseProviderName(const Options& options) {
    if (!options.provider.empty()) {
        return {options.provider, kCommandLine};
    }
    const std::optional<Setting> setting = options.settings.find("provider");
    return setting ? Choice{setting->value, setting->origin} : Choice{std::string(kUsualProvider), ""};
}

const Provider& obtainChosenProvider(const Options& options) {
    return *findProvider(chooseProviderName(options).value);
}

Choice chooseModel(const Options& options, const Provider& provider) {
    return options.model.empty() ? readSetting(options, provider, "model") : Choice{options.model, kCommandLine};
}

Choice chooseApiHost(const Options& options, const Provider& provider) {
    return options.apiHost ? Choice{*options.apiHost, kCommandLine} : readSetting(options, provider, "host");
}

KeySource chooseKeySource(const Options& options, const Provider& provider) {
    if (!options.key.keyFile.empty() || !options.key.keyVariable.empty()) {
        return options.key;
    }
    return {readSetting(options, provider, "key-file").value, readSetting(options, provider, "key-env").value};
}

HttpOptions chooseHttpOptions(const Options& options, const Provider& provider) {
    HttpOptions http = options.http;
    const auto fill = [&](std::string& value, std::string_view name) {
        const std::optional<Setting> setting = options.settings.find(name);
        value = value.empty() && setting ? setting->value : value;
    };
    fill(http.caFile, "ca-file");
    fill(http.proxy, "proxy");
    if (const Choice host = readSetting(options, provider, "plain-http"); !host.value.empty()) {
        http.plainHTTPHosts.push_back(host.value);
    }
    return http;
}

std::string tellHowToSetModel(const Options& options, const Provider& provider) {
    const std::string& fileName = options.settings.obtainFileName();
    return "name one with --model" + (fileName.empty()
                                          ? std::string()
                                          : ", or for good with the line 'model = NAME' under [" +
                                                std::string(provider.name) + "] in " + makeOneLine(fileName));
}

ConversationRecord ConversationSetup::describe(std::string sessionText) const {
    return {std::string(provider->name), settings.temperature, std::move(sessionText)};
}

ConversationSetup setUpConversation(const Options& options, const OpenDatabase* database) {
    ConversationSetup setup;
    if (!options.continueFile.empty()) {
        setup.saved = readConversationFile(options.continueFile);
        setup.savedSummary = summarizeSession(setup.saved->sessionText);
    }
    chooseProvider(setup, options);
    checkKeeping(setup, options);
    chooseSettings(setup, options, database);
    if (options.command != Command::Forget && setup.saved && setup.settings.model.empty()) {
        fail("the saved conversation names no model; name one with --model");
    }
    return setup;
}

void checkSavedHost(const ConversationSetup& setup, const Options& options, const std::string& chosenHost) {
    if (!setup.saved || setup.isSwitched || options.apiHost) {
        return;
    }
    const std::string& savedHost = setup.savedSummary.settings.apiHost;
    if (!savedHost.empty() && savedHost != chosenHost) {
        fail("the conversation was held at the host '" + makeOneLine(savedHost) + "'; say --api-host " +
             makeOneLine(savedHost) + " to go on there, or --api-host with another host");
    }
}

}  // namespace host
