#ifndef HOST_CONVERSATION_FILE_H
#define HOST_CONVERSATION_FILE_H

#include <string>

namespace host {

/// A conversation on disk: the library's session text inside a small JSON object that names the provider.
///
///     {"kai_conversation":1,"provider":"deepseek","temperature":"0.2","session":{...}}
///
/// "temperature" is there if the user chose one, because restoring a session text does not restore it. The file never
/// contains a key.
struct ConversationRecord {
    std::string provider;
    std::string temperature;  ///< as the user typed it; empty: none chosen
    std::string sessionText;
};

/// The file's content for a conversation.
[[nodiscard]] std::string writeConversation(const ConversationRecord& conversation);

/// Reads a file. Throws HostError (Usage) if it cannot be read or is not a conversation of this program.
[[nodiscard]] ConversationRecord readConversationFile(const std::string& fileName);

/// Throws HostError (Usage) if the file exists and is not a conversation, so that it is not overwritten.
void checkSaveTarget(const std::string& fileName);

}  // namespace host

#endif
