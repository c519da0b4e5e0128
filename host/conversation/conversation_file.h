#ifndef HOST_CONVERSATION_FILE_H
#define HOST_CONVERSATION_FILE_H

#include <string>

namespace host {

/// A conversation on disk: the library's session text inside a small JSON object that says whose it is.
///
///     {"kai_conversation":1,"provider":"deepseek","temperature":"0.2","session":{...}}
///
/// "temperature" is there when the user chose one: a session text is restored without it. No key is ever in the file.
struct ConversationRecord {
    std::string provider;
    std::string temperature;  ///< as the user wrote it; empty: none chosen
    std::string sessionText;
};

/// The file's content for a conversation.
[[nodiscard]] std::string writeConversation(const ConversationRecord& conversation);

/// Reads a file. Throws HostError (Usage): it cannot be read, or is not a conversation of this program.
[[nodiscard]] ConversationRecord readConversationFile(const std::string& fileName);

/// Refuses, by HostError (Usage), to save over an existing file that holds anything but a conversation.
void checkSaveTarget(const std::string& fileName);

}  // namespace host

#endif
