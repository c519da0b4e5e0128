// A key that a table of properties gains works everywhere by its row alone.

#include "kai_property.h"

#include <gtest/gtest.h>

#include <span>
#include <string>

#include "kai_session_deepseek.h"

namespace {

using kai::AssistantSettings;
using kai::Property;
using kai::Recording;

bool setLanguage(AssistantSettings& settings, const CMVariant& value) {
    if (value.getValueType() != CMVariant::ValueType::String) {
        return false;
    }
    settings.description = value.stringValue();
    return true;
}

constexpr Property kLanguage = {.key = "language",
                                .describe = kai::describeText,
                                .read = kai::readField<&AssistantSettings::description>,
                                .recording = Recording::Always,
                                .set = setLanguage,
                                .takeOver = kai::takeOverField<&AssistantSettings::description>,
                                .copy = kai::copyByRule,
                                .write = kai::writeText<&AssistantSettings::description>,
                                .readSaved = kai::readSavedText,
                                .restore = kai::restoreByRule};
static_assert(kai::isComplete(kLanguage));

/// The properties of every assistant and one more key.
class LanguageProperties : public KAIAssistantProperties {
public:
    LanguageProperties() : KAIAssistantProperties(std::span(&kLanguage, 1)) {}
};

/// The row without one of its parts.
template <class Part>
constexpr Property leaveOut(Part Property::*part) {
    Property row = kLanguage;
    row.*part = Part{};
    return row;
}

// A table asserts that its rows are complete, so a part that is left out does not compile.
static_assert(!kai::isComplete(leaveOut(&Property::key)));
static_assert(!kai::isComplete(leaveOut(&Property::describe)));
static_assert(!kai::isComplete(leaveOut(&Property::read)));
static_assert(!kai::isComplete(leaveOut(&Property::recording)));
static_assert(!kai::isComplete(leaveOut(&Property::set)));
static_assert(!kai::isComplete(leaveOut(&Property::takeOver)));
static_assert(!kai::isComplete(leaveOut(&Property::copy)));
static_assert(!kai::isComplete(leaveOut(&Property::write)));
static_assert(!kai::isComplete(leaveOut(&Property::readSaved)));
static_assert(!kai::isComplete(leaveOut(&Property::restore)));

}  // namespace

TEST(KAIProperty, IsDescribedBehindTheCommonOnes) {
    const auto descriptions = LanguageProperties().obtainPropertyDescriptions();
    ASSERT_EQ(descriptions.size(), 8U);
    EXPECT_EQ(descriptions.back(), (std::pair<std::string, std::string>("language", "string")));
}

TEST(KAIProperty, IsSetAndReadByItsRule) {
    LanguageProperties properties;
    EXPECT_FALSE(properties.setProperty("language", 1.0));
    EXPECT_TRUE(properties.isAssigned("language"));
    EXPECT_EQ(properties.obtainProperty("language").stringValue(), "");
    EXPECT_TRUE(properties.setProperty("language", "German"));
    EXPECT_EQ(properties.obtainProperty("language").stringValue(), "German");
}

TEST(KAIProperty, IsTakenOverFromAFilledObjectWhereItWasAssigned) {
    LanguageProperties filled;
    AssistantSettings settings;
    settings.description = "former";
    filled.takeOverAssigned(settings);
    EXPECT_EQ(settings.description, "former");
    filled.setProperty("language", "German");
    filled.takeOverAssigned(settings);
    EXPECT_EQ(settings.description, "German");
    EXPECT_TRUE(settings.assignedKeys.contains("language"));
}

TEST(KAIProperty, IsCopiedToOtherPropertiesWhereItWasAssigned) {
    LanguageProperties source;
    LanguageProperties target;
    target.setProperty("language", "former");
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainProperty("language").stringValue(), "former");
    source.setProperty("language", "German");
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainProperty("language").stringValue(), "German");
    EXPECT_EQ(LanguageProperties(source).obtainProperty("language").stringValue(), "German");
}

TEST(KAIProperty, IsWrittenToASessionTextAndRestoredFromIt) {
    LanguageProperties properties;
    properties.setProperty("language", "German");
    const std::string text = KAISession_DEEPSEEK(properties).serializeSession();
    EXPECT_NE(text.find(R"("language":"German")"), std::string::npos) << text;
    LanguageProperties restored;
    KAISession_DEEPSEEK session(restored);
    ASSERT_TRUE(session.loadSession(text));
    EXPECT_EQ(restored.obtainProperty("language").stringValue(), "German");
    EXPECT_TRUE(restored.isAssigned("language"));
    ASSERT_TRUE(session.loadSession(R"({"language":1})"));
    EXPECT_EQ(restored.obtainProperty("language").stringValue(), "German");
}
