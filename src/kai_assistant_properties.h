#ifndef KAI_ASSISTANT_PROPERTIES_H
#define KAI_ASSISTANT_PROPERTIES_H

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/json.h"
#include "kai.h"

/// The settings behind the properties, as the providers read them.
struct KAIAssistantSettings {
    /// Every key ever passed to setProperty, whatever came of it.
    std::set<std::string, std::less<>> assignedKeys;
    std::string apiHost;
    std::string model;
    double temperature = 1.0;
    std::string userInstructions;
    /// Instruction texts by name; every value is a string.
    CMVariantMap systemInstructions;
    /// JSON text, as the host gave it; empty or valid.
    std::string databaseStructure;
};

/// The record of settings that every assistant owns: read and written by hosts through IKAIProperties, and read
/// directly by the providers.
class KAIAssistantProperties : public IKAIProperties {
public:
    KAIAssistantProperties() = default;
    KAIAssistantProperties(const KAIAssistantProperties& other);

    std::vector<std::pair<std::string, std::string>> obtainPropertyDescriptions() override;
    CMVariant obtainProperty(const std::string& key) override;
    bool setProperty(const std::string& key, const CMVariant& value) override;

    [[nodiscard]] const KAIAssistantSettings& obtainSettings() const noexcept { return m_settings; }
    KAIAssistantSettings& changeSettings() noexcept { return m_settings; }

    /// Whether the host ever assigned the key.
    [[nodiscard]] bool isAssigned(std::string_view key) const;

    /// Writes what the host assigned here into the target, through the target's own rules; the database structure is
    /// copied as it is, since it was checked when it was set.
    void copyAssignedProperties(KAIAssistantProperties& target);

    /// The instruction text for the model: the user's instructions, the system instructions in the order of their
    /// names, and the database structure as statements. Empty when nothing is set.
    [[nodiscard]] std::string obtainCombinedInstructions() const;

    /// The instruction text as a JSON string, quotation marks included, as it stands in a request; null when there is
    /// none. The caller's share of the text stays as it is whatever happens to the properties.
    [[nodiscard]] std::shared_ptr<const std::string> obtainWrittenInstructions() const;

    /// The catalogs of the database structure with the statements made from them.
    [[nodiscard]] CMVariantList obtainDatabaseStructure() const;

    /// The statements of the database structure, one a line.
    [[nodiscard]] std::string obtainDatabaseStructureText() const;

    /// One CREATE statement; empty when the description is malformed.
    /// @param qualifier    the schema's name, may be empty
    /// @param kind         "TABLE", "VIEW" or "MATERIALIZED VIEW"
    /// @param description  the JSON object of the table or view
    [[nodiscard]] static std::string buildCreateStatement(std::string_view qualifier, std::string_view kind,
                                                          const COJsonValue& description);

private:
    bool setTemperature(const CMVariant& value);
    bool mergeSystemInstructions(const CMVariant& value);
    bool setDatabaseStructure(const CMVariant& value);

    KAIAssistantSettings m_settings;
};

#endif
