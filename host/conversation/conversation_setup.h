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
    AssistantSettings settings;  ///< with the host of the command line or of the saved text
    std::optional<ConversationRecord> saved;
    SessionSummary savedSummary;  ///< the summary of `saved`
    bool isSwitched = false;      ///< whether the provider differs from that of the saved conversation

    /// The record of this conversation for its file.
    [[nodiscard]] ConversationRecord describe(std::string sessionText) const;
};

/// A setting's current value and its source.
struct Choice {
    std::string value;   ///< empty: none is chosen
    std::string origin;  ///< "the command line", the settings file's line, or empty for a default
};

/// The provider from the command line, otherwise from the settings file, otherwise the default one.
[[nodiscard]] Choice chooseProviderName(const Options& options);
[[nodiscard]] const Provider& obtainChosenProvider(const Options& options);

/// The model from the command line, otherwise from the settings file for this provider.
[[nodiscard]] Choice chooseModel(const Options& options, const Provider& provider);
[[nodiscard]] Choice chooseApiHost(const Options& options, const Provider& provider);
[[nodiscard]] KeySource chooseKeySource(const Options& options, const Provider& provider);
[[nodiscard]] HttpOptions chooseHttpOptions(const Options& options, const Provider& provider);

/// A text that tells the user how to set a model permanently.
[[nodiscard]] std::string tellHowToSetModel(const Options& options, const Provider& provider);

/// Combines the command line, the saved conversation and the database.
/// Throws HostError (Usage) if they do not fit: another provider than that of the conversation, no model, a
/// conversation that would be lost on its service.
[[nodiscard]] ConversationSetup setUpConversation(const Options& options, const OpenDatabase* database);

/// Checks the host of a continued conversation.
///
/// A saved text must not be able to send the key, or the conversation, to a host that the user did not name: every host
/// except the provider's own must be on the command line.
/// @param chosenHost  the host of the command line, or the provider's own
/// Throws HostError (Usage) if the saved conversation used another host and the command line names none.
void checkSavedHost(const ConversationSetup& setup, const Options& options, const std::string& chosenHost);

}  // namespace host

#endif
