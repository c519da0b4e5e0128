#ifndef KAI_H
#define KAI_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/rest.h"
#include "cf/variant.h"

/// libkai: an AI assistant for database tools.
///
/// A host creates an assistant for a provider, sets its properties, opens sessions and adds messages. Every operation
/// blocks its thread until its HTTP exchanges end. The library starts no threads and takes no locks, so use an
/// assistant, its sessions and its properties from one thread at a time. Messages and copies of properties may outlive
/// their assistant; use each of them from one thread at a time too.
///
/// Errors are returned as text together with the result: the text is empty on success; on failure the pointer is null
/// or the list empty. The library throws nothing of its own. An exception of memory allocation, the platform or a
/// host's callback reaches the caller, and conversations and properties are then as they were before the call. With an
/// OpenAI assistant, two things remain after a call that fails or throws: a new "api_host", which is set before the
/// request, and what the service has already done.
///
/// Texts are UTF-8. Ill-formed text is accepted and sent with U+FFFD in place of each ill-formed sequence.

#define KAI_EXPORT __attribute__((visibility("default")))

/// The providers.
enum class KAIAssistantType : std::int32_t {
    OPENAI = 0,    ///< the OpenAI Assistants protocol: assistants, threads and runs kept on the service
    GOOGLE = 1,    ///< the Google Generative Language API (Gemini, "generateContent")
    DEEPSEEK = 2,  ///< the DeepSeek chat-completions API and services that speak the same
    OLLAMA = 3,    ///< an Ollama server, by default on the local machine
};

/// The base of all objects of the library. The host releases objects that it received with KAIFreeObject.
class IKAIObject {
public:
    virtual ~IKAIObject() = default;

    IKAIObject& operator=(const IKAIObject&) = delete;

protected:
    IKAIObject() = default;
    /// For the library's own copies; hosts cannot copy an object.
    IKAIObject(const IKAIObject&) = default;
};

/// A record of settings, read and written one key at a time. Keys are exact, case-sensitive byte strings:
///
/// | key                     | value                                                                                 |
/// |-------------------------|---------------------------------------------------------------------------------------|
/// | "api_host"              | string: host and optional port, without scheme; blanks around it are removed           |
/// | "model"                 | string                                                                                |
/// | "temperature"           | set as a string that spells a number (a double is refused), read as a double          |
/// | "user_instructions"     | string                                                                                |
/// | "system_instructions"   | map of strings, merged by name; an empty string removes its name                      |
/// | "db_structure"          | set as JSON text or as a list of catalogs; read as the list with generated statements |
/// | "combined_instructions" | string, read only: the instruction text that goes to the model                        |
///
/// OpenAI assistants add "name" and "description" (strings).
///
/// Three keys need care:
/// - "api_host": a host name with non-ASCII characters must be given in its ASCII form ("xn--..."); otherwise requests
///   fail.
/// - "temperature": the string is accepted, but first reports a failed check, because the check expects a double. The
///   report has no other effect. To hide it, install a handler (cfSetAssertionHandler in cf/assertion.h) that ignores
///   reports whose condition names "CMVariant::ValueType::Double".
/// - "db_structure": the value that is read contains generated statements instead of the tables, so setting it again
///   loses the tables. To set a structure again, keep the JSON text or list that it was set with.
class IKAIProperties : public IKAIObject {
public:
    /// The keys with a description of their types, in a fixed order. "db_structure" is described by a template of its
    /// JSON form, in which "optional" marks what may be omitted.
    virtual std::vector<std::pair<std::string, std::string>> obtainPropertyDescriptions() = 0;

    /// The value of a key; null for an unknown key. The value is the caller's own copy.
    virtual CMVariant obtainProperty(const std::string& key) = 0;

    /// Sets the value of a key. The key counts as assigned even if the value is refused or ignored.
    /// @return false if the value is refused (the former one stays) or the key is unknown; otherwise true. A
    ///         "db_structure" that is neither a string nor a list is ignored (the former one stays), with the result
    ///         true.
    virtual bool setProperty(const std::string& key, const CMVariant& value) = 0;
};

/// One part of a message.
class IKAIMessageSection : public IKAIObject {
public:
    /// The type of the section: 0, text, is the only one.
    virtual std::int32_t obtainType() = 0;

    /// The text, valid while the section lives.
    virtual std::string_view obtainText() = 0;
};

/// A message of a conversation. It owns its sections: freeing the message frees them.
class IKAIMessage : public IKAIObject {
public:
    /// When the message was made, in seconds since the Unix epoch; 0 if unknown.
    virtual std::int64_t obtainTime() = 0;

    /// Who speaks: 0 the user, 1 the assistant.
    virtual std::int32_t obtainRole() = 0;

    /// The sections, in order; owned by the message.
    virtual std::vector<IKAIMessageSection*>& obtainSections() = 0;
};

/// A conversation. It refers to its assistant's properties and must not outlive the assistant.
class IKAISession : public IKAIObject {
public:
    /// The conversation and the assistant's settings as text, for IKAIAssistant::restoreSession. The text holds no
    /// API key.
    virtual std::string serializeSession() = 0;
};

/// An assistant of one provider.
class IKAIAssistant : public IKAIObject {
public:
    /// Asks the service for its models.
    /// @return the identifiers that may be set as "model", and the error text
    virtual std::pair<std::vector<std::string>, std::string> obtainAvailableModels() = 0;

    /// Changes the assistant's settings.
    /// @param fill  called once, during the call, with a new properties object to fill; the host must not keep the
    ///              object. The assistant then copies every key that `fill` passed to setProperty; other keys keep
    ///              their values. A key whose value was refused is copied as well and gets its default value
    ///              ("db_structure" becomes empty), so do not pass a value that setProperty refuses. An OpenAI
    ///              assistant that does not exist on the service yet copies all keys.
    /// @return the error text. After an error the settings are as they were, except that an OpenAI assistant keeps a
    ///         new "api_host". Open sessions use new values from their next turn on.
    virtual std::string setAssistantProperties(std::function<void(IKAIProperties*)> fill) = 0;

    /// The current settings, as a new copy owned by the caller (release it with KAIFreeObject). An OpenAI assistant
    /// returns its own live object instead, which the caller must not free.
    virtual IKAIProperties* obtainAssistantProperties() = 0;

    /// Begins a conversation.
    /// @return the session, owned by the caller (call destroySession, then KAIFreeObject, before the assistant is
    ///         freed), and the error text
    virtual std::pair<IKAISession*, std::string> createSession() = 0;

    /// Continues a conversation from the text that serializeSession returned. The settings in the text become the
    /// assistant's settings, for all of its sessions; the temperature is not restored.
    ///
    /// The text decides which host later requests go to, together with the API key, and which instructions and database
    /// structure are sent there. So restore only texts from your own storage. To be sure, first parse the text as JSON
    /// (COJson in cf/json.h) and compare its "api_host" with the hosts that you trust with the key; an empty value
    /// means the provider's default host.
    ///
    /// A string that is moved in and has 64 bytes of capacity beyond its size is parsed without a copy. The strings of
    /// serializeSession have them, but for OpenAI's, which are short.
    /// @return as createSession
    virtual std::pair<IKAISession*, std::string> restoreSession(std::string serializedSession) = 0;

    /// Ends a conversation on the service, where the provider keeps one (OpenAI). Does not free the object.
    /// @return the error text
    virtual std::string destroySession(IKAISession* session) = 0;

    /// Sends a message and waits for the answer. After an error the conversation is as it was, except that the user's
    /// message may remain in an OpenAI assistant's thread on the service.
    /// @param session  a session of this assistant
    /// @return the answer, owned by the caller (it may be freed at any time), and the error text
    virtual std::pair<IKAIMessage*, std::string> addMessage(IKAISession* session, std::string text) = 0;
};

/// The data of the event "KAILocalizeString". Valid during the callback.
struct KAICallbackLocalizationInfo {
    /// The library's English text, NUL-terminated; owned by the library, valid during the call.
    const char* sourceText = nullptr;
    /// Receives the translation, NUL-terminated: at most 1023 bytes and a NUL. Zeros at first; if it is left empty, the
    /// English text is used.
    char answerBuffer[1024] = {};

    KAICallbackLocalizationInfo() = default;
    /// Copies the pointer and all bytes of the buffer, as the assignments do.
    KAICallbackLocalizationInfo(const KAICallbackLocalizationInfo&) = default;
    ~KAICallbackLocalizationInfo() = default;
    /// Copies the pointer and all bytes of the buffer.
    KAI_EXPORT KAICallbackLocalizationInfo& operator=(const KAICallbackLocalizationInfo& other);
    /// Copies as well: the source is unchanged.
    KAI_EXPORT KAICallbackLocalizationInfo& operator=(KAICallbackLocalizationInfo&& other);
};

/// Creates an assistant.
/// @param type        the provider
/// @param poolCenter  a pool of connections for this assistant alone (cfCreateHTTPPoolCenter); the assistant takes the
///                    ownership, unless the result is null. Null: every request makes its own connection.
/// @param apiKey      the provider's credential, used as it is; ignored by OLLAMA
/// @param host        host and optional port of the service, without scheme; blank: the provider's public service, for
///                    OLLAMA the local machine
/// @return the assistant, owned by the caller; null for an unknown type
/// An exception of a constructor reaches the caller; nothing leaks then.
KAI_EXPORT IKAIAssistant* KAICreateAssistant(KAIAssistantType type, ICSHTTPPoolCenter* poolCenter,
                                             const std::string& apiKey, const std::string& host);

/// Frees an object that the library handed to the host. A null pointer is ignored.
KAI_EXPORT void KAIFreeObject(IKAIObject* object);

/// A std::unique_ptr deleter for objects of the library.
struct KAIObjectDeleter {
    /// Frees the object; null is ignored.
    void operator()(IKAIObject* object) const { KAIFreeObject(object); }
};

/// Owns an object that the library handed to the host, for example
/// `KAIPtr<IKAISession> session(assistant->createSession().first);`. Do not use it for the properties of an OpenAI
/// assistant: the assistant owns them.
template <class Object>
using KAIPtr = std::unique_ptr<Object, KAIObjectDeleter>;

/// Sets the process-wide callback; null removes it. It is called on the thread of the library operation with the name
/// of an event and its data. The only event is "KAILocalizeString" (see KAICallbackLocalizationInfo), with which the
/// host may translate the library's own messages. Set the callback before using the library, or while no operation
/// runs. It must not free the assistant whose operation calls it.
KAI_EXPORT void KAIRegisterCallback(void (*callback)(const char* eventName, void* data));

/// Sets the process-wide HTTP settings (copied); every later request of every assistant uses them. `cancelled` is also
/// called while an OpenAI assistant waits between two polls of a run. The functions in the settings must not free the
/// assistant whose operation calls them. They are destroyed when other settings replace them and when the library is
/// unloaded, but not when the process ends. Set them while no operation runs on another thread.
KAI_EXPORT void KAISetHTTPSettings(const CMRestGlobalSettings& settings);

#endif
