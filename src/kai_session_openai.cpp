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

bool KAISession_OPENAI::loadSession(const std::string& serializedSession, std::string& assistantID) {
    const COJson json(serializedSession);
    const COJsonValue savedAssistantID = json.obtainMember("assistant_id");
    const COJsonValue savedThreadID = json.obtainMember("thread_id");
    if (!savedAssistantID.isString() || !savedThreadID.isString()) {
        return false;
    }
    // Whatever may run out of memory comes before the first change.
    std::string newAssistantID(savedAssistantID.obtainString());
    std::string ownAssistantID(newAssistantID);
    std::string newThreadID(savedThreadID.obtainString());
    KAIAssistantProperties_OPENAI restored(m_properties);
    readSessionSettings(json, restored);
    readStringSetting(json, "name", restored);
    readStringSetting(json, "description", restored);
    m_properties.swap(restored);
    m_assistantID = std::move(ownAssistantID);
    m_threadID = std::move(newThreadID);
    assistantID = std::move(newAssistantID);
    return true;
}
