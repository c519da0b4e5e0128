#ifndef KAI_ASSISTANT_PROPERTIES_OPENAI_H
#define KAI_ASSISTANT_PROPERTIES_OPENAI_H

#include "kai_assistant_properties.h"

/// The settings of an OpenAI assistant: those of every assistant, and the name and description that it has on the
/// service.
///
/// Neither of the two is ever recorded as assigned: they are stored here and in session texts, and not sent.
class KAIAssistantProperties_OPENAI : public KAIAssistantProperties {
public:
    std::vector<std::pair<std::string, std::string>> obtainPropertyDescriptions() override;
    CMVariant obtainProperty(const std::string& key) override;
    /// A name or description of another type is taken as its text.
    bool setProperty(const std::string& key, const CMVariant& value) override;

    [[nodiscard]] const std::string& obtainName() const noexcept { return m_name; }
    [[nodiscard]] const std::string& obtainDescription() const noexcept { return m_description; }

    /// Exchanges every setting, the record of assigned keys included.
    void swap(KAIAssistantProperties_OPENAI& other) noexcept;

private:
    std::string m_name = "Keltrix Assistant";
    std::string m_description;
};

#endif
