#include "kai_session_settings.h"

namespace {

void writeSystemInstructions(COJsonWriter& writer, const CMVariantMap& instructions) {
    writer.writeKey("system_instructions");
    writer.beginArray();
    for (const auto& [name, instruction] : instructions) {
        writer.beginObject();
        writer.writeMember("key", name);
        writer.writeMember("value", instruction.stringValue());
        writer.endObject();
    }
    writer.endArray();
}

// Stored as they are, past setProperty: an instruction that was saved empty stays one.
void readSystemInstructions(const COJson& json, KAIAssistantSettings& settings) {
    for (const COJsonValue item : json.obtainMember("system_instructions").obtainItems()) {
        const COJsonValue key = item.obtainMember("key");
        const COJsonValue value = item.obtainMember("value");
        if (key.isString() && value.isString()) {
            settings.systemInstructions[std::string(key.obtainString())] = std::string(value.obtainString());
        }
    }
}

}  // namespace

void writeSessionSettings(COJsonWriter& writer, const KAIAssistantSettings& settings) {
    writer.writeMember("api_host", settings.apiHost);
    writer.writeMember("model", settings.model);
    writer.writeKey("temperature");
    writer.writeDouble(settings.temperature);
    writer.writeMember("user_instructions", settings.userInstructions);
    if (!settings.systemInstructions.empty()) {
        writeSystemInstructions(writer, settings.systemInstructions);
    }
    writer.writeMember("db_structure", settings.databaseStructure);
}

void readStringSetting(const COJson& json, const char* key, KAIAssistantProperties& properties) {
    const COJsonValue value = json.obtainMember(key);
    if (value.isString()) {
        properties.setProperty(key, std::string(value.obtainString()));
    }
}

void readSessionSettings(const COJson& json, KAIAssistantProperties& properties) {
    readStringSetting(json, "api_host", properties);
    readStringSetting(json, "model", properties);
    const COJsonValue temperature = json.obtainMember("temperature");
    if (temperature.isNumber()) {
        properties.setProperty("temperature", temperature.obtainDouble());
    }
    readStringSetting(json, "user_instructions", properties);
    readSystemInstructions(json, properties.changeSettings());
    readStringSetting(json, "db_structure", properties);
}

std::size_t estimateSessionSettings(const KAIAssistantSettings& settings) {
    constexpr std::size_t kKeysAndNumbers = 256;
    constexpr std::size_t kBytesAnInstruction = 128;
    // A database structure is JSON itself: about every sixth byte of it is a quotation mark that needs escaping.
    return kKeysAndNumbers + settings.userInstructions.size() + settings.databaseStructure.size() / 4 * 5 +
           settings.systemInstructions.size() * kBytesAnInstruction;
}
