#ifndef KAI_ASSISTANT_PROPERTIES_H
#define KAI_ASSISTANT_PROPERTIES_H

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/json.h"
#include "kai.h"
#include "kai_assistant_settings.h"
#include "kai_create_statement.h"
#include "kai_property.h"

/// The record of settings that every assistant owns: read and written by hosts through IKAIProperties, and read
/// directly by the providers.
class KAIAssistantProperties : public IKAIProperties {
public:
    KAIAssistantProperties() = default;
    KAIAssistantProperties(const KAIAssistantProperties& other);

    std::vector<std::pair<std::string, std::string>> obtainPropertyDescriptions() override;
    CMVariant obtainProperty(const std::string& key) override;
    bool setProperty(const std::string& key, const CMVariant& value) override;

    [[nodiscard]] const kai::AssistantSettings& obtainSettings() const noexcept { return m_settings; }

    /// Replaces the settings. All changes go through this function. If the sources of the instructions change, it drops
    /// the cached instructions.
    void replaceSettings(kai::AssistantSettings&& settings) noexcept;

    /// Moves another object's settings here; that object is not used any more.
    void adoptSettings(KAIAssistantProperties&& other) noexcept { replaceSettings(std::move(other.m_settings)); }

    /// Changes the settings. If `change` throws, they stay as they were.
    /// @param change  called with a copy of the settings
    template <class Change>
    void changeSettings(Change change) {
        kai::AssistantSettings settings = m_settings;
        change(settings);
        replaceSettings(std::move(settings));
    }

    /// The properties of every assistant, in the order of their descriptions; and those that a provider adds.
    [[nodiscard]] static std::span<const kai::Property> obtainCommonRows() noexcept;
    [[nodiscard]] std::span<const kai::Property> obtainAddedRows() const noexcept { return m_addedRows; }

    /// Whether the host ever assigned the key.
    [[nodiscard]] bool isAssigned(std::string_view key) const;

    /// Copies the fields whose keys the host assigned here, and records those keys in the target.
    void takeOverAssigned(kai::AssistantSettings& target) const;

    /// Sets in the target what the host assigned here, by the target's own rules. The database structure is copied
    /// unchecked, because it was checked when it was set.
    void copyAssignedProperties(KAIAssistantProperties& target);

    /// The instruction text for the model: the user's instructions, the system instructions in the order of their
    /// names, and the database structure as statements. Empty when nothing is set.
    [[nodiscard]] std::string obtainCombinedInstructions() const;

    /// The instruction text as a JSON string, including quotation marks, in the form in which requests contain it; null
    /// if there is none. It is cached while the settings stay the same, unless the structure is malformed: that is
    /// reported at every call. The returned text stays unchanged when the properties change.
    [[nodiscard]] std::shared_ptr<const std::string> obtainWrittenInstructions() const;

    /// The catalogs of the database structure with the statements made from them.
    [[nodiscard]] CMVariantList obtainDatabaseStructure() const;

    /// The statements of the database structure, one per line.
    [[nodiscard]] std::string obtainDatabaseStructureText() const;

    /// One CREATE statement; empty when the description is malformed.
    /// @param qualifier    the schema's name, may be empty
    /// @param kind         "TABLE", "VIEW" or "MATERIALIZED VIEW"
    /// @param description  the JSON object of the table or view
    [[nodiscard]] static std::string buildCreateStatement(std::string_view qualifier, std::string_view kind,
                                                          const COJsonValue& description);

protected:
    /// @param addedRows  what a provider adds to the common properties; lives as long as the program
    explicit KAIAssistantProperties(std::span<const kai::Property> addedRows) noexcept : m_addedRows(addedRows) {}

private:
    [[nodiscard]] const kai::Property* findRow(std::string_view key) const noexcept;

    std::span<const kai::Property> m_addedRows;
    kai::AssistantSettings m_settings;
    // The cache of obtainWrittenInstructions().
    mutable std::optional<std::shared_ptr<const std::string>> m_writtenInstructions;
};

#endif
