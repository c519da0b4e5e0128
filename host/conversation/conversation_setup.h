#ifndef HOST_CONVERSATION_SETUP_H
#define HOST_CONVERSATION_SETUP_H

#include <optional>
#include <string>

#include "conversation/assistant.h"
#include "conversation/conversation_file.h"
#include "open_database.h"
#include "options.h"

namespace host {

/// How a conversation begins: the provider, the assistant's settings, and the saved conversation that it continues.
struct ConversationSetup {
    const Provider* provider = nullptr;
    AssistantSettings settings;  ///< the host as the command line or the saved text has it
    std::optional<ConversationRecord> saved;
    SessionSummary savedSummary;  ///< what `saved` says of itself
    bool isSwitched = false;      ///< another provider than the saved conversation was held with

    /// Which conversation this is, for the file that it is saved to.
    [[nodiscard]] ConversationRecord describe(std::string sessionText) const;
};

/// A value that is in force and where it is from.
struct Choice {
    std::string value;   ///< empty: none is chosen
    std::string origin;  ///< "the command line", the settings file's line, or empty for what goes without saying
};

/// What the command line says, else the settings file, else the usual provider.
[[nodiscard]] Choice chooseProviderName(const Options& options);
[[nodiscard]] const Provider& obtainChosenProvider(const Options& options);

/// What the command line says, else the settings file for this provider.
[[nodiscard]] Choice chooseModel(const Options& options, const Provider& provider);
[[nodiscard]] Choice chooseApiHost(const Options& options, const Provider& provider);
[[nodiscard]] KeySource chooseKeySource(const Options& options, const Provider& provider);
[[nodiscard]] HttpOptions chooseHttpOptions(const Options& options, const Provider& provider);

/// How the user names a model for good.
[[nodiscard]] std::string tellHowToSetModel(const Options& options, const Provider& provider);

/// Puts the command line, the saved conversation and the database together.
/// Throws HostError (Usage) where they do not fit: a provider that the conversation was not held with, no model, a
/// conversation that would be lost on its service.
[[nodiscard]] ConversationSetup setUpConversation(const Options& options, const OpenDatabase* database);

/// The host that a continued conversation goes to.
///
/// A saved text must not be able to send the key, or the conversation, to a host that nobody named: one other than the
/// provider's own has to stand on the command line.
/// @param chosenHost  the host of the command line, or the provider's own
/// Throws HostError (Usage) where the saved conversation was held at another host and the command line names none.
void checkSavedHost(const ConversationSetup& setup, const Options& options, const std::string& chosenHost);

}  // namespace host

#endif
