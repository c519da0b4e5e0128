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

/// The provider that the command line names, or the usual one.
[[nodiscard]] const Provider& obtainChosenProvider(const Options& options);

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
