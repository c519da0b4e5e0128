#include "kai_assistant_properties.h"

#include "cf/assertion.h"
#include "cf/utilities.h"
#include "kai_database_structure.h"

namespace {

void reportMalformedStructure() {
    CF_ASSERT(false);
}

bool isStringValue(const CMVariant& value) {
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::String);
    return value.getValueType() == CMVariant::ValueType::String;
}

bool storeString(std::string& field, const CMVariant& value) {
    if (!isStringValue(value)) {
        return false;
    }
    field = value.stringValue();
    return true;
}

}  // namespace

KAIAssistantProperties::KAIAssistantProperties(const KAIAssistantProperties& other)
    : IKAIProperties(), m_settings(other.m_settings) {}

std::vector<std::pair<std::string, std::string>> KAIAssistantProperties::obtainPropertyDescriptions() {
    return {
        {"api_host", "string"},
        {"model", "string"},
        {"temperature", "double"},
        {"user_instructions", "string"},
        {"system_instructions", "CMVariantMap(string, string)"},
        {"db_structure", "CMVariant - " + buildDatabaseStructureTemplate().obtainJsonString()},
        {"combined_instructions", "string - read only"},
    };
}

CMVariant KAIAssistantProperties::obtainProperty(const std::string& key) {
    if (key == "api_host") {
        return m_settings.apiHost;
    }
    if (key == "model") {
        return m_settings.model;
    }
    if (key == "temperature") {
        return m_settings.temperature;
    }
    if (key == "user_instructions") {
        return m_settings.userInstructions;
    }
    if (key == "system_instructions") {
        return m_settings.systemInstructions;
    }
    if (key == "db_structure") {
        return obtainDatabaseStructure();
    }
    if (key == "combined_instructions") {
        return obtainCombinedInstructions();
    }
    return {};
}

bool KAIAssistantProperties::setProperty(const std::string& key, const CMVariant& value) {
    m_settings.assignedKeys.insert(key);
    if (key == "api_host") {
        if (!isStringValue(value)) {
            return false;
        }
        m_settings.apiHost = cfTrimAsString(value.stringValue());
        return true;
    }
    if (key == "model") {
        return storeString(m_settings.model, value);
    }
    if (key == "temperature") {
        return setTemperature(value);
    }
    if (key == "user_instructions") {
        return storeString(m_settings.userInstructions, value);
    }
    if (key == "system_instructions") {
        return mergeSystemInstructions(value);
    }
    if (key == "db_structure") {
        return setDatabaseStructure(value);
    }
    if (key == "combined_instructions") {
        CF_ASSERT(false);
    }
    return false;
}

bool KAIAssistantProperties::setTemperature(const CMVariant& value) {
    // The check names a double, yet what is taken is a string that spells one. Hosts rely on it.
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::Double);
    if (value.getValueType() != CMVariant::ValueType::String) {
        return false;
    }
    m_settings.temperature = value.doubleValue();
    return true;
}

bool KAIAssistantProperties::mergeSystemInstructions(const CMVariant& value) {
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::Map);
    if (value.getValueType() != CMVariant::ValueType::Map) {
        return false;
    }
    CMVariantMap merged = m_settings.systemInstructions;
    for (const auto& kv : value.mapValue()) {
        CF_ASSERT(kv.second.getValueType() == CMVariant::ValueType::String);
        if (kv.second.getValueType() != CMVariant::ValueType::String) {
            continue;
        }
        if (kv.second.stringValue().empty()) {
            merged.erase(kv.first);
        } else {
            merged[kv.first] = kv.second;
        }
    }
    m_settings.systemInstructions = std::move(merged);
    return true;
}

bool KAIAssistantProperties::setDatabaseStructure(const CMVariant& value) {
    if (value.getValueType() == CMVariant::ValueType::List) {
        m_settings.databaseStructure = cfCreateCOJsonFromCMVariant(value).obtainJsonString();
        return true;
    }
    if (value.getValueType() != CMVariant::ValueType::String) {
        return true;
    }
    std::string text = value.stringValue();
    if (text.empty()) {
        return false;
    }
    const COJson json(text);
    CF_ASSERT(json.getIsValidJson());
    if (!json.getIsValidJson()) {
        return false;
    }
    m_settings.databaseStructure = std::move(text);
    return true;
}

bool KAIAssistantProperties::isAssigned(std::string_view key) const {
    return m_settings.assignedKeys.find(key) != m_settings.assignedKeys.end();
}

void KAIAssistantProperties::copyAssignedProperties(KAIAssistantProperties& target) {
    for (const auto& [key, description] : obtainPropertyDescriptions()) {
        if (!isAssigned(key) || key == "combined_instructions") {
            continue;
        }
        if (key == "db_structure") {
            target.m_settings.databaseStructure = m_settings.databaseStructure;
            target.m_settings.assignedKeys.insert(key);
        } else {
            target.setProperty(key, obtainProperty(key));
        }
    }
}

std::string KAIAssistantProperties::obtainCombinedInstructions() const {
    std::string instructions;
    if (!m_settings.userInstructions.empty()) {
        instructions += m_settings.userInstructions;
        instructions += "\n\n";
    }
    for (const auto& [name, instruction] : m_settings.systemInstructions) {
        instructions += instruction.stringValue();
        instructions += '\n';
    }
    const std::size_t sizeBeforeStructure = instructions.size();
    appendDatabaseStructureText(instructions, m_settings.databaseStructure, reportMalformedStructure);
    if (instructions.size() != sizeBeforeStructure) {
        instructions += '\n';
    }
    return instructions;
}

std::shared_ptr<const std::string> KAIAssistantProperties::obtainWrittenInstructions() const {
    const std::string instructions = obtainCombinedInstructions();
    if (instructions.empty()) {
        return nullptr;
    }
    auto written = std::make_shared<std::string>();
    COJsonWriter writer(*written);
    writer.writeString(instructions);
    writer.finish();
    return written;
}

CMVariantList KAIAssistantProperties::obtainDatabaseStructure() const {
    return readDatabaseStructure(m_settings.databaseStructure, reportMalformedStructure);
}

std::string KAIAssistantProperties::obtainDatabaseStructureText() const {
    std::string text;
    appendDatabaseStructureText(text, m_settings.databaseStructure, reportMalformedStructure);
    return text;
}

std::string KAIAssistantProperties::buildCreateStatement(std::string_view qualifier, std::string_view kind,
                                                         const COJsonValue& description) {
    std::string statement;
    appendCreateStatement(statement, qualifier, kind, description, reportMalformedStructure);
    return statement;
}
