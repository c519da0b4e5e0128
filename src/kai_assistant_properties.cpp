#include "kai_assistant_properties.h"

#include "cf/assertion.h"
#include "cf/utilities.h"
#include "kai_database_structure.h"

namespace {

using kai::AssistantSettings;
using kai::InstructionSources;
using kai::Property;
using kai::Recording;
using kai::SavedValue;

void reportMalformedStructure() {
    CF_ASSERT(false);
}

bool isStringValue(const CMVariant& value) {
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::String);
    return value.getValueType() == CMVariant::ValueType::String;
}

template <auto field>
bool setText(AssistantSettings& settings, const CMVariant& value) {
    if (!isStringValue(value)) {
        return false;
    }
    settings.*field = value.stringValue();
    return true;
}

bool setHost(AssistantSettings& settings, const CMVariant& value) {
    if (!isStringValue(value)) {
        return false;
    }
    settings.apiHost = cfTrimAsString(value.stringValue());
    return true;
}

bool setTemperature(AssistantSettings& settings, const CMVariant& value) {
    // The check expects a double, but the accepted type is a string that spells one. Hosts rely on both.
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::Double);
    if (value.getValueType() != CMVariant::ValueType::String) {
        return false;
    }
    settings.temperature = value.doubleValue();
    return true;
}

void writeTemperature(COJsonWriter& writer, const char* key, const AssistantSettings& settings) {
    writer.writeKey(key);
    writer.writeDouble(settings.temperature);
}

std::string describeSystemInstructions() {
    return "CMVariantMap(string, string)";
}

bool mergeSystemInstructions(AssistantSettings& settings, const CMVariant& value) {
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::Map);
    if (value.getValueType() != CMVariant::ValueType::Map) {
        return false;
    }
    CMVariantMap merged = *settings.systemInstructions;
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
    settings.systemInstructions = std::move(merged);
    return true;
}

void writeSystemInstructions(COJsonWriter& writer, const char* key, const AssistantSettings& settings) {
    if (settings.systemInstructions->empty()) {
        return;
    }
    writer.writeKey(key);
    writer.beginArray();
    for (const auto& [name, instruction] : *settings.systemInstructions) {
        writer.beginObject();
        writer.writeMember("key", name);
        writer.writeMember("value", instruction.stringValue());
        writer.endObject();
    }
    writer.endArray();
}

SavedValue readSavedInstructions(const COJsonValue& value) {
    CMVariantMap instructions;
    for (const COJsonValue item : value.obtainItems()) {
        const COJsonValue name = item.obtainMember("key");
        const COJsonValue instruction = item.obtainMember("value");
        if (name.isString() && instruction.isString()) {
            instructions[std::string(name.obtainString())] = std::string(instruction.obtainString());
        }
    }
    return instructions.empty() ? SavedValue() : SavedValue(std::move(instructions));
}

// Stores the instructions unchanged, including empty ones, and does not record the key as assigned.
void restoreSystemInstructions(const Property& /*property*/, AssistantSettings& settings, SavedValue value) {
    auto& merged = std::get<CMVariantMap>(value);
    merged.insert(settings.systemInstructions->begin(), settings.systemInstructions->end());
    settings.systemInstructions = std::move(merged);
}

std::string describeStructure() {
    return "CMVariant - " + kai::buildDatabaseStructureTemplate().obtainJsonString();
}

CMVariant readStructure(const KAIAssistantProperties& properties) {
    return properties.obtainDatabaseStructure();
}

bool setStructureText(AssistantSettings& settings, std::string text) {
    if (text.empty()) {
        return false;
    }
    {
        const COJson json = COJson::readInPlace(text);
        CF_ASSERT(json.getIsValidJson());
        if (!json.getIsValidJson()) {
            return false;
        }
    }
    settings.databaseStructure = std::move(text);
    return true;
}

bool setStructure(AssistantSettings& settings, const CMVariant& value) {
    if (value.getValueType() == CMVariant::ValueType::List) {
        settings.databaseStructure = cfCreateCOJsonFromCMVariant(value).obtainJsonString();
        return true;
    }
    // A value of another type is ignored, not refused.
    return value.getValueType() != CMVariant::ValueType::String || setStructureText(settings, value.stringValue());
}

// Like setProperty(), but without the copies that a variant would make of a large text.
void restoreStructure(const Property& property, AssistantSettings& settings, SavedValue value) {
    settings.assignedKeys.insert(property.key);
    setStructureText(settings, std::get<std::string>(std::move(value)));
}

std::string describeCombinedInstructions() {
    return "string - read only";
}

CMVariant readCombinedInstructions(const KAIAssistantProperties& properties) {
    return properties.obtainCombinedInstructions();
}

bool refuseCombinedInstructions(AssistantSettings& /*settings*/, const CMVariant& /*value*/) {
    CF_ASSERT(false);
    return false;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the rows' functions have one form
void restoreNothing(const Property& /*property*/, AssistantSettings& /*settings*/, SavedValue /*value*/) {}

// In the order of the descriptions and of session texts.
constexpr Property kRows[] = {
    {.key = "api_host",
     .describe = kai::describeText,
     .read = kai::readField<&AssistantSettings::apiHost>,
     .recording = Recording::Always,
     .set = setHost,
     .takeOver = kai::takeOverField<&AssistantSettings::apiHost>,
     .copy = kai::copyByRule,
     .write = kai::writeText<&AssistantSettings::apiHost>,
     .readSaved = kai::readSavedText,
     .restore = kai::restoreByRule},
    {.key = "model",
     .describe = kai::describeText,
     .read = kai::readField<&AssistantSettings::model>,
     .recording = Recording::Always,
     .set = setText<&AssistantSettings::model>,
     .takeOver = kai::takeOverField<&AssistantSettings::model>,
     .copy = kai::copyByRule,
     .write = kai::writeText<&AssistantSettings::model>,
     .readSaved = kai::readSavedText,
     .restore = kai::restoreByRule},
    {.key = "temperature",
     .describe = kai::describeNumber,
     .read = kai::readField<&AssistantSettings::temperature>,
     .recording = Recording::Always,
     .set = setTemperature,
     .takeOver = kai::takeOverField<&AssistantSettings::temperature>,
     .copy = kai::copyByRule,
     .write = writeTemperature,
     .readSaved = kai::readSavedNumber,
     .restore = kai::restoreByRule},
    {.key = "user_instructions",
     .describe = kai::describeText,
     .read = kai::readField<&AssistantSettings::userInstructions>,
     .recording = Recording::Always,
     .set = setText<&AssistantSettings::userInstructions>,
     .takeOver = kai::takeOverField<&AssistantSettings::userInstructions>,
     .copy = kai::copyByRule,
     .write = kai::writeText<&AssistantSettings::userInstructions>,
     .readSaved = kai::readSavedText,
     .restore = kai::restoreByRule},
    {.key = "system_instructions",
     .describe = describeSystemInstructions,
     .read = kai::readField<&AssistantSettings::systemInstructions>,
     .recording = Recording::Always,
     .set = mergeSystemInstructions,
     .takeOver = kai::takeOverField<&AssistantSettings::systemInstructions>,
     .copy = kai::copyByRule,
     .write = writeSystemInstructions,
     .readSaved = readSavedInstructions,
     .restore = restoreSystemInstructions},
    {.key = "db_structure",
     .describe = describeStructure,
     .read = readStructure,
     .recording = Recording::Always,
     .set = setStructure,
     .takeOver = kai::takeOverField<&AssistantSettings::databaseStructure>,
     .copy = kai::copyAsItIs,
     .write = kai::writeText<&AssistantSettings::databaseStructure>,
     .readSaved = kai::readSavedText,
     .restore = restoreStructure},
    {.key = "combined_instructions",
     .describe = describeCombinedInstructions,
     .read = readCombinedInstructions,
     .recording = Recording::Always,
     .set = refuseCombinedInstructions,
     .takeOver = kai::takeOverNothing,
     .copy = kai::copyNothing,
     .write = kai::writeNothing,
     .readSaved = kai::readSavedNothing,
     .restore = restoreNothing},
};
static_assert(kai::areComplete(kRows));

template <class Visitor>
void visitRows(std::span<const Property> addedRows, Visitor visit) {
    for (const std::span<const Property> rows : {std::span<const Property>(kRows), addedRows}) {
        for (const Property& row : rows) {
            visit(row);
        }
    }
}

// The sources are copies that share the texts, so an assertion handler that changes the settings does not free them.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string combineInstructions(InstructionSources sources, kai::MalformedPlaces& malformed) {
    std::string text;
    if (!sources.userInstructions->empty()) {
        text += *sources.userInstructions;
        text += "\n\n";
    }
    for (const auto& [name, instruction] : *sources.systemInstructions) {
        text += instruction.stringValue();
        text += '\n';
    }
    const std::size_t sizeBeforeStructure = text.size();
    kai::appendDatabaseStructureText(text, *sources.databaseStructure, malformed);
    if (text.size() != sizeBeforeStructure) {
        text += '\n';
    }
    return text;
}

std::shared_ptr<const std::string> writeInstructions(const std::string& instructions) {
    if (instructions.empty()) {
        return nullptr;
    }
    auto written = std::make_shared<std::string>();
    COJsonWriter writer(*written);
    // Escaped line feeds take two bytes. The text is kept for many turns, so it gets little spare space.
    writer.reserve(instructions.size() + instructions.size() / 16);
    writer.writeString(instructions);
    writer.finish();
    return written;
}

}  // namespace

KAIAssistantProperties::KAIAssistantProperties(const KAIAssistantProperties& other)
    : IKAIProperties(),
      m_addedRows(other.m_addedRows),
      m_settings(other.m_settings),
      m_writtenInstructions(other.m_writtenInstructions) {}

std::span<const Property> KAIAssistantProperties::obtainCommonRows() noexcept {
    return kRows;
}

const Property* KAIAssistantProperties::findRow(std::string_view key) const noexcept {
    const Property* found = nullptr;
    visitRows(m_addedRows, [&](const Property& row) {
        if (row.key == key) {
            found = &row;
        }
    });
    return found;
}

std::vector<std::pair<std::string, std::string>> KAIAssistantProperties::obtainPropertyDescriptions() {
    std::vector<std::pair<std::string, std::string>> descriptions;
    visitRows(m_addedRows, [&](const Property& row) { descriptions.emplace_back(row.key, row.describe()); });
    return descriptions;
}

CMVariant KAIAssistantProperties::obtainProperty(const std::string& key) {
    const Property* const row = findRow(key);
    return row != nullptr ? row->read(*this) : CMVariant();
}

bool KAIAssistantProperties::setProperty(const std::string& key, const CMVariant& value) {
    AssistantSettings settings = m_settings;
    bool isTaken = false;
    if (const Property* const row = findRow(key)) {
        isTaken = kai::setByRule(*row, settings, value);
    } else {
        settings.assignedKeys.insert(key);
    }
    replaceSettings(std::move(settings));
    return isTaken;
}

void KAIAssistantProperties::replaceSettings(AssistantSettings&& settings) noexcept {
    const InstructionSources& former = m_settings;
    const InstructionSources& sources = settings;
    if (former != sources) {
        m_writtenInstructions.reset();
    }
    m_settings = std::move(settings);
}

bool KAIAssistantProperties::isAssigned(std::string_view key) const {
    return m_settings.assignedKeys.find(key) != m_settings.assignedKeys.end();
}

void KAIAssistantProperties::takeOverAssigned(AssistantSettings& target) const {
    visitRows(m_addedRows, [&](const Property& row) {
        if (isAssigned(row.key)) {
            row.takeOver(row, target, m_settings);
        }
    });
}

void KAIAssistantProperties::copyAssignedProperties(KAIAssistantProperties& target) {
    visitRows(m_addedRows, [&](const Property& row) {
        if (isAssigned(row.key)) {
            row.copy(row, target, *this);
        }
    });
}

std::string KAIAssistantProperties::obtainCombinedInstructions() const {
    kai::MalformedPlaces malformed(reportMalformedStructure);
    return combineInstructions(static_cast<const InstructionSources&>(m_settings), malformed);
}

std::shared_ptr<const std::string> KAIAssistantProperties::obtainWrittenInstructions() const {
    if (m_writtenInstructions) {
        return *m_writtenInstructions;
    }
    kai::MalformedPlaces malformed(reportMalformedStructure);
    std::shared_ptr<const std::string> written =
        writeInstructions(combineInstructions(static_cast<const InstructionSources&>(m_settings), malformed));
    if (malformed.obtainCount() == 0) {
        m_writtenInstructions = written;
    }
    return written;
}

CMVariantList KAIAssistantProperties::obtainDatabaseStructure() const {
    const kai::SharedText structure = m_settings.databaseStructure;
    kai::MalformedPlaces malformed(reportMalformedStructure);
    return kai::readDatabaseStructure(*structure, malformed);
}

std::string KAIAssistantProperties::obtainDatabaseStructureText() const {
    const kai::SharedText structure = m_settings.databaseStructure;
    std::string text;
    kai::MalformedPlaces malformed(reportMalformedStructure);
    kai::appendDatabaseStructureText(text, *structure, malformed);
    return text;
}

std::string KAIAssistantProperties::buildCreateStatement(std::string_view qualifier, std::string_view kind,
                                                         const COJsonValue& description) {
    std::string statement;
    kai::MalformedPlaces malformed(reportMalformedStructure);
    kai::appendCreateStatement(statement, qualifier, kind, description, malformed);
    return statement;
}
