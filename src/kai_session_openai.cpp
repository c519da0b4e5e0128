#include "kai_session_openai.h"

#include <optional>
#include <utility>

#include "cf/json.h"
#include "kai_http.h"
#include "kai_session_settings.h"

namespace {

struct SavedThread {
    std::string assistantID;
    std::string threadID;
    kai::SavedSettings settings;
};

std::optional<SavedThread> readSavedThread(std::string& serializedSession, const KAIAssistantProperties& properties) {
    const COJson json = COJson::readInPlace(serializedSession);
    const COJsonValue assistantID = json.obtainMember("assistant_id");
    const COJsonValue threadID = json.obtainMember("thread_id");
    for (const COJsonValue& id : {assistantID, threadID}) {
        if (!id.isString() || !kai::isPathSegment(id.obtainString())) {
            return std::nullopt;
        }
    }
    return SavedThread{std::string(assistantID.obtainString()), std::string(threadID.obtainString()),
                       kai::readSessionSettings(json, properties)};
}

}  // namespace

KAISession_OPENAI::KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties, std::string assistantID)
    : m_assistantID(std::move(assistantID)), m_properties(properties) {}

std::string KAISession_OPENAI::serializeSession() {
    std::string text;
    COJsonWriter writer(text);
    writer.reserve(kai::estimateSessionSettings(m_properties.obtainSettings()));
    writer.beginObject();
    writer.writeMember("assistant_id", m_assistantID);
    writer.writeMember("thread_id", m_threadID);
    kai::writeSessionSettings(writer, m_properties);
    writer.endObject();
    writer.finish();
    return text;
}

bool KAISession_OPENAI::loadSession(std::string serializedSession, std::string_view defaultHost,
                                    std::string& assistantID) {
    std::optional<SavedThread> saved = readSavedThread(serializedSession, m_properties);
    if (!saved) {
        return false;
    }
    // Everything that may run out of memory comes before the first change.
    kai::AssistantSettings restored = kai::restoreSettings(m_properties.obtainSettings(), std::move(saved->settings));
    if (restored.apiHost.empty()) {
        restored.apiHost = defaultHost;
    }
    std::string ownAssistantID = saved->assistantID;
    m_properties.replaceSettings(std::move(restored));
    m_assistantID = std::move(ownAssistantID);
    m_threadID = std::move(saved->threadID);
    assistantID = std::move(saved->assistantID);
    return true;
}
