#include "kai_assistant_properties_openai.h"

#include "cf/assertion.h"

std::vector<std::pair<std::string, std::string>> KAIAssistantProperties_OPENAI::obtainPropertyDescriptions() {
    std::vector<std::pair<std::string, std::string>> descriptions =
        KAIAssistantProperties::obtainPropertyDescriptions();
    descriptions.emplace_back("name", "string");
    descriptions.emplace_back("description", "string");
    return descriptions;
}

CMVariant KAIAssistantProperties_OPENAI::obtainProperty(const std::string& key) {
    if (key == "name") {
        return m_name;
    }
    if (key == "description") {
        return m_description;
    }
    return KAIAssistantProperties::obtainProperty(key);
}

bool KAIAssistantProperties_OPENAI::setProperty(const std::string& key, const CMVariant& value) {
    if (key != "name" && key != "description") {
        return KAIAssistantProperties::setProperty(key, value);
    }
    // No guard behind the check: a value of another type is stored as its text.
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::String);
    (key == "name" ? m_name : m_description) = value.stringValue();
    return true;
}

void KAIAssistantProperties_OPENAI::swap(KAIAssistantProperties_OPENAI& other) noexcept {
    std::swap(changeSettings(), other.changeSettings());
    m_name.swap(other.m_name);
    m_description.swap(other.m_description);
}
