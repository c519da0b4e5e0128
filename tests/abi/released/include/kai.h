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
/// blocks its thread until its HTTP exchanges end; the library starts no threads and takes no locks, so a host uses an
/// assistant, its sessions and its properties from one thread at a time. A message and a copy of properties, which may
/// outlive their assistant, belong to one thread at a time too.
///
/// Errors are returned as text beside the result: the text is empty on success; on failure the pointer is null or the
/// list empty. The library throws nothing of its own; what allocation, the platform or a host's callback throws passes
/// through, and conversations and properties are then as they were before the call. Two things stay on an OpenAI
/// assistant when a call fails or throws: a new "api_host", which is taken before the request, and what the service did
/// already.
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

/// What every object of the library is. Objects handed to the host are released with KAIFreeObject.
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
/// - "api_host": a name beyond ASCII must be given in its ASCII form ("xn--..."); requests to another form fail.
/// - "temperature": the string is accepted, but reports a failed check first, because the check expects a double.
/// Nothing
///   else comes of the report. A host that does not want to see it installs a handler that ignores reports whose
///   condition names "CMVariant::ValueType::Double" (cfSetAssertionHandler in cf/assertion.h).
/// - "db_structure": the list that is read holds generated statements in place of the tables, so setting what was read
///   loses the tables. To set a structure again, keep the JSON text or list that it was set with.
class IKAIProperties : public IKAIObject {
public:
    /// The keys with a description of their types, in a fixed order. "db_structure" is described by a template of
    /// its JSON form, in which "optional" marks what may be left out.
    virtual std::vector<std::pair<std::string, std::string>> obtainPropertyDescriptions() = 0;

    /// The value of a key; null for an unknown key. The value is the caller's own copy.
    virtual CMVariant obtainProperty(const std::string& key) = 0;

    /// Sets the value of a key. The key is remembered as assigned even when the value is refused or ignored.
    /// @return false for a refused value (the former one stays) and an unknown key; otherwise true, also for a
    ///         "db_structure" that is neither a string nor a list: it is ignored, and the former one stays
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
    /// When the message was made, in seconds since the Unix epoch; 0 where it is not known.
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
    /// @param fill  called once, during the call, with a fresh properties object that it fills; the object is not the
    ///              host's to keep. The assistant then copies every key that `fill` passed to setProperty; other keys
    ///              keep their values. A key whose value was refused is copied as well: it gets its default value, and
    ///              "db_structure" becomes empty. So do not pass a value that setProperty refuses. An OpenAI assistant
    ///              that is not on the service yet copies all keys.
    /// @return the error text; the settings are then as they were, but for "api_host" of an OpenAI assistant: a new one
    ///         stays. Open sessions see the new values at their next turn.
    virtual std::string setAssistantProperties(std::function<void(IKAIProperties*)> fill) = 0;

    /// The current settings. A new copy owned by the caller (release it with KAIFreeObject), but for an OpenAI
    /// assistant: that one gives its own live object, which the caller must not free.
    virtual IKAIProperties* obtainAssistantProperties() = 0;

    /// Begins a conversation.
    /// @return the session, owned by the caller (call destroySession, then KAIFreeObject, before the assistant is
    ///         freed), and the error text
    virtual std::pair<IKAISession*, std::string> createSession() = 0;

    /// Continues a conversation from the text that serializeSession gave. The settings in the text become the
    /// assistant's settings, for all of its sessions; the temperature is not restored.
    ///
    /// The text names the host that every later request goes to, with the API key in it, and the instructions and
    /// database structure that are sent there. Restore texts of your own storage only. To be sure, parse the text as
    /// JSON before (COJson in cf/json.h) and compare its "api_host" with the hosts that you trust with the key; an
    /// empty one means the provider's default host.
    /// @return as createSession
    virtual std::pair<IKAISession*, std::string> restoreSession(std::string serializedSession) = 0;

    /// Ends a conversation on the service, where the provider keeps one (OpenAI). Does not free the object.
    /// @return the error text
    virtual std::string destroySession(IKAISession* session) = 0;

    /// Sends a message and waits for the answer. On failure the conversation is as it was; only in an OpenAI
    /// assistant's thread on the service the user's message may stay.
    /// @param session  a session of this assistant
    /// @return the answer, owned by the caller (it may be freed at any time), and the error text
    virtual std::pair<IKAIMessage*, std::string> addMessage(IKAISession* session, std::string text) = 0;
};

/// What the host's callback gets with the event "KAILocalizeString". Lives during the call.
struct KAICallbackLocalizationInfo {
    /// The library's English text, NUL-terminated; owned by the library, valid during the call.
    const char* sourceText = nullptr;
    /// Receives the translation, NUL-terminated: at most 1023 bytes and a NUL. Zeroes at first; left empty, the
    /// English text is used.
    char answerBuffer[1024] = {};

    KAICallbackLocalizationInfo() = default;
    /// Copies the pointer and all bytes of the buffer, as the assignments do.
    KAICallbackLocalizationInfo(const KAICallbackLocalizationInfo&) = default;
    ~KAICallbackLocalizationInfo() = default;
    /// Copies the pointer and all bytes of the buffer.
    KAI_EXPORT KAICallbackLocalizationInfo& operator=(const KAICallbackLocalizationInfo& other);
    /// Copies as well: the source stays as it is.
    KAI_EXPORT KAICallbackLocalizationInfo& operator=(KAICallbackLocalizationInfo&& other);
};

/// Creates an assistant.
/// @param type        the provider
/// @param poolCenter  a pool of connections for this assistant alone (cfCreateHTTPPoolCenter), owned by the assistant
///                    from here on; null: every request makes a connection of its own. It stays the host's when the
///                    result is null.
/// @param apiKey      the provider's credential, used as it is; ignored by OLLAMA
/// @param host        host and optional port of the service, without scheme; blank: the provider's public service,
///                    for OLLAMA the local machine
/// @return the assistant, owned by the caller; null for an unknown type
/// An exception of a constructor passes through; nothing leaks then.
KAI_EXPORT IKAIAssistant* KAICreateAssistant(KAIAssistantType type, ICSHTTPPoolCenter* poolCenter,
                                             const std::string& apiKey, const std::string& host);

/// Frees an object that the library handed to the host. A null pointer is ignored.
KAI_EXPORT void KAIFreeObject(IKAIObject* object);

/// Frees an object of the library when its std::unique_ptr goes.
struct KAIObjectDeleter {
    /// Frees the object; null is ignored.
    void operator()(IKAIObject* object) const { KAIFreeObject(object); }
};

/// Owns an object that the library handed to the host: `KAIPtr<IKAISession>
/// session(assistant->createSession().first);`. Not for the properties of an OpenAI assistant, which stay the
/// assistant's.
template <class Object>
using KAIPtr = std::unique_ptr<Object, KAIObjectDeleter>;

/// Sets the process-wide callback; null removes it. It is called on the thread of the library operation with the name
/// of an event and its data; the only event is "KAILocalizeString" (see KAICallbackLocalizationInfo), by which the host
/// may translate the library's own messages. Set it before using the library, or while no operation runs. The callback
/// must not free the assistant whose operation calls it.
KAI_EXPORT void KAIRegisterCallback(void (*callback)(const char* eventName, void* data));

/// Sets the process-wide HTTP settings, copied; every later request of every assistant runs with them. `cancelled` is
/// also asked while an OpenAI assistant waits between two looks at a run. The functions in the settings must not free
/// the assistant whose operation calls them. They are destroyed when other settings replace them and when the library
/// is unloaded, but not when the process ends. Set them while no operation runs on another thread.
KAI_EXPORT void KAISetHTTPSettings(const CMRestGlobalSettings& settings);

#endif
