#include "kai_session_openai.h"

#include <utility>

#include "cf/json.h"
#include "kai_session_settings.h"

KAISession_OPENAI::KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties, std::string assistantID)
    : m_assistantID(std::move(assistantID)), m_properties(properties) {}

std::string KAISession_OPENAI::serializeSession() {
    const KAIAssistantSettings& settings = m_properties.obtainSettings();
    std::string text;
    COJsonWriter writer(text);
    writer.reserve(estimateSessionSettings(settings));
    writer.beginObject();
    writer.writeMember("assistant_id", m_assistantID);
    writer.writeMember("thread_id", m_threadID);
    writer.writeMember("name", m_properties.obtainName());
    writer.writeMember("description", m_properties.obtainDescription());
    writeSessionSettings(writer, settings);
    writer.endObject();
    writer.finish();
    return text;
}

bool KAISession_OPENAI::loadSession(const std::string& serializedSession) {
    const COJson json(serializedSession);
    const COJsonValue assistantID = json.obtainMember("assistant_id");
    const COJsonValue threadID = json.obtainMember("thread_id");
    if (!assistantID.isString() || !threadID.isString()) {
        return false;
    }
    std::string newAssistantID(assistantID.obtainString());
    std::string newThreadID(threadID.obtainString());
    KAIAssistantProperties_OPENAI restored(m_properties);
    readSessionSettings(json, restored);
    readStringSetting(json, "name", restored);
    readStringSetting(json, "description", restored);
    m_properties.swap(restored);
    m_assistantID = std::move(newAssistantID);
    m_threadID = std::move(newThreadID);
    return true;
}
