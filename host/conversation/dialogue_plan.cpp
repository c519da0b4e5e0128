#include "conversation/dialogue_plan.h"

#include <utility>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr std::string_view kUsualProvider = "deepseek";

[[noreturn]] void fail(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
}

const Provider& findSavedProvider(const SavedConversation& saved) {
    const Provider* provider = findProvider(saved.provider);
    if (provider == nullptr) {
        fail("the conversation was held with '" + makeOneLine(saved.provider) +
             "', which this kai does not know; the providers are " + listProviderNames());
    }
    return *provider;
}

/// Whether a conversation may go on with another provider than the one it was held with.
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

void checkKeeping(const DialoguePlan& plan, const Options& options) {
    if (plan.provider->isHistoryLocal) {
        if (options.isKept) {
            fail("--keep is for openai; a conversation with " + std::string(plan.provider->name) +
                 " is kept by --save alone");
        }
        return;
    }
    if (plan.saved) {
        return;
    }
    if (options.isKept && options.saveFile.empty()) {
        fail("--keep needs --save FILE: without the file nothing could find the conversation on the service again");
    }
    if (!options.isKept && !options.saveFile.empty()) {
        fail("--save needs --keep with " + std::string(plan.provider->name) +
             ": the conversation is on the service and would be deleted there at the end");
    }
}

void chooseProvider(DialoguePlan& plan, const Options& options) {
    if (!plan.saved) {
        plan.provider = findProvider(options.provider.empty() ? kUsualProvider : options.provider);
        return;
    }
    const Provider& savedProvider = findSavedProvider(*plan.saved);
    plan.provider = options.provider.empty() ? &savedProvider : findProvider(options.provider);
    plan.isSwitched = plan.provider != &savedProvider;
    if (plan.isSwitched) {
        checkSwitch(savedProvider, *plan.provider, options);
    }
}

/// What the command line says goes before what was saved.
void chooseSettings(DialoguePlan& plan, const Options& options, const OpenDatabase* database) {
    if (plan.saved) {
        plan.settings = plan.savedSession.settings;
        plan.settings.temperature = plan.saved->temperature;
    }
    plan.settings.apiHost = options.apiHost.value_or("");
    if (!options.model.empty()) {
        plan.settings.model = options.model;
    }
    if (!options.temperature.empty()) {
        plan.settings.temperature = options.temperature;
    }
    if (options.instructions) {
        plan.settings.userInstructions = options.instructions;
    }
    if (database != nullptr) {
        describeDatabase(plan.settings, *database);
    }
}

}  // namespace

SavedConversation DialoguePlan::describe(std::string sessionText) const {
    return {std::string(provider->name), settings.temperature, std::move(sessionText)};
}

DialoguePlan planDialogue(const Options& options, const OpenDatabase* database) {
    DialoguePlan plan;
    if (!options.continueFile.empty()) {
        plan.saved = readConversationFile(options.continueFile);
        plan.savedSession = readSavedSession(plan.saved->sessionText);
    }
    chooseProvider(plan, options);
    checkKeeping(plan, options);
    chooseSettings(plan, options, database);
    if (options.command != Command::Forget && plan.settings.model.empty()) {
        fail("the saved conversation names no model; name one with --model");
    }
    return plan;
}

void checkSavedHost(const DialoguePlan& plan, const Options& options, const std::string& chosenHost) {
    if (!plan.saved || plan.isSwitched || options.apiHost) {
        return;
    }
    const std::string& savedHost = plan.savedSession.settings.apiHost;
    if (!savedHost.empty() && savedHost != chosenHost) {
        fail("the conversation was held at the host '" + makeOneLine(savedHost) + "'; say --api-host " +
             makeOneLine(savedHost) + " to go on there, or --api-host with another host");
    }
}

}  // namespace host
