#include <gtest/gtest.h>
#include <kai.h>

#include <array>
#include <cstring>
#include <type_traits>

// A host's binary calls an operation by its place in the table of virtual functions, so order and types must stay.

namespace {

/// The place of a virtual function in its class's table, from the pointer to it as the Itanium C++ ABI lays it out: two
/// words, of which one holds the byte offset in the table. x86 marks a virtual function by the lowest bit of the first
/// word, Arm by the lowest bit of the second.
template <class Pointer>
std::ptrdiff_t obtainSlot(Pointer pointer) {
    std::array<std::ptrdiff_t, 2> words{};
    static_assert(sizeof words == sizeof pointer);
    std::memcpy(words.data(), &pointer, sizeof pointer);
#if defined(__aarch64__) || defined(__arm__)
    const bool isVirtual = (words[1] & 1) != 0;
    const std::ptrdiff_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1) != 0;
    const std::ptrdiff_t offset = words[0] - 1;
#endif
    return isVirtual ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

/// Slots 0 and 1 are the destructor's: one for an object as it stands, one that frees it too.
constexpr std::ptrdiff_t firstOperation = 2;

/// Derives from an interface without adding anything and counts its table's words by what follows in memory: the slot
/// of a function declared behind all others.
template <class Interface>
struct Extended : Interface {
    virtual void follow() = 0;
};

template <class Interface>
std::ptrdiff_t countOperations() {
    return obtainSlot(&Extended<Interface>::follow) - firstOperation;
}

template <class Pointer, class Expected>
constexpr bool isOfType = std::is_same_v<Pointer, Expected>;

using Models = std::pair<std::vector<std::string>, std::string>;
using Fill = std::function<void(IKAIProperties*)>;
using SessionResult = std::pair<IKAISession*, std::string>;
using MessageResult = std::pair<IKAIMessage*, std::string>;
using Descriptions = std::vector<std::pair<std::string, std::string>>;
using Sections = std::vector<IKAIMessageSection*>;

static_assert(std::has_virtual_destructor_v<IKAIObject>);
static_assert(!std::is_constructible_v<IKAIObject>, "only the library's own classes are made");
static_assert(std::is_base_of_v<IKAIObject, IKAIAssistant>);
static_assert(std::is_base_of_v<IKAIObject, IKAISession>);
static_assert(std::is_base_of_v<IKAIObject, IKAIMessage>);
static_assert(std::is_base_of_v<IKAIObject, IKAIMessageSection>);
static_assert(std::is_base_of_v<IKAIObject, IKAIProperties>);

static_assert(isOfType<decltype(&IKAIAssistant::obtainAvailableModels), Models (IKAIAssistant::*)()>);
static_assert(isOfType<decltype(&IKAIAssistant::setAssistantProperties), std::string (IKAIAssistant::*)(Fill)>);
static_assert(isOfType<decltype(&IKAIAssistant::obtainAssistantProperties), IKAIProperties* (IKAIAssistant::*)()>);
static_assert(isOfType<decltype(&IKAIAssistant::createSession), SessionResult (IKAIAssistant::*)()>);
static_assert(isOfType<decltype(&IKAIAssistant::restoreSession), SessionResult (IKAIAssistant::*)(std::string)>);
static_assert(isOfType<decltype(&IKAIAssistant::destroySession), std::string (IKAIAssistant::*)(IKAISession*)>);
static_assert(
    isOfType<decltype(&IKAIAssistant::addMessage), MessageResult (IKAIAssistant::*)(IKAISession*, std::string)>);
static_assert(isOfType<decltype(&IKAISession::serializeSession), std::string (IKAISession::*)()>);
static_assert(isOfType<decltype(&IKAIMessage::obtainTime), std::int64_t (IKAIMessage::*)()>);
static_assert(isOfType<decltype(&IKAIMessage::obtainRole), std::int32_t (IKAIMessage::*)()>);
static_assert(isOfType<decltype(&IKAIMessage::obtainSections), Sections& (IKAIMessage::*)()>);
static_assert(isOfType<decltype(&IKAIMessageSection::obtainType), std::int32_t (IKAIMessageSection::*)()>);
static_assert(isOfType<decltype(&IKAIMessageSection::obtainText), std::string_view (IKAIMessageSection::*)()>);
static_assert(isOfType<decltype(&IKAIProperties::obtainPropertyDescriptions), Descriptions (IKAIProperties::*)()>);
static_assert(isOfType<decltype(&IKAIProperties::obtainProperty), CMVariant (IKAIProperties::*)(const std::string&)>);
static_assert(
    isOfType<decltype(&IKAIProperties::setProperty), bool (IKAIProperties::*)(const std::string&, const CMVariant&)>);

}  // namespace

TEST(IKAIObject, HasOnlyADestructor) {
    EXPECT_EQ(countOperations<IKAIObject>(), 0);
    EXPECT_EQ(sizeof(IKAIObject), sizeof(void*));
}

TEST(IKAIAssistant, KeepsItsOperationsInOrder) {
    EXPECT_EQ(obtainSlot(&IKAIAssistant::obtainAvailableModels), firstOperation + 0);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::setAssistantProperties), firstOperation + 1);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::obtainAssistantProperties), firstOperation + 2);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::createSession), firstOperation + 3);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::restoreSession), firstOperation + 4);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::destroySession), firstOperation + 5);
    EXPECT_EQ(obtainSlot(&IKAIAssistant::addMessage), firstOperation + 6);
    EXPECT_EQ(countOperations<IKAIAssistant>(), 7);
}

TEST(IKAISession, KeepsItsOperationsInOrder) {
    EXPECT_EQ(obtainSlot(&IKAISession::serializeSession), firstOperation + 0);
    EXPECT_EQ(countOperations<IKAISession>(), 1);
}

TEST(IKAIMessage, KeepsItsOperationsInOrder) {
    EXPECT_EQ(obtainSlot(&IKAIMessage::obtainTime), firstOperation + 0);
    EXPECT_EQ(obtainSlot(&IKAIMessage::obtainRole), firstOperation + 1);
    EXPECT_EQ(obtainSlot(&IKAIMessage::obtainSections), firstOperation + 2);
    EXPECT_EQ(countOperations<IKAIMessage>(), 3);
}

TEST(IKAIMessageSection, KeepsItsOperationsInOrder) {
    EXPECT_EQ(obtainSlot(&IKAIMessageSection::obtainType), firstOperation + 0);
    EXPECT_EQ(obtainSlot(&IKAIMessageSection::obtainText), firstOperation + 1);
    EXPECT_EQ(countOperations<IKAIMessageSection>(), 2);
}

TEST(IKAIProperties, KeepsItsOperationsInOrder) {
    EXPECT_EQ(obtainSlot(&IKAIProperties::obtainPropertyDescriptions), firstOperation + 0);
    EXPECT_EQ(obtainSlot(&IKAIProperties::obtainProperty), firstOperation + 1);
    EXPECT_EQ(obtainSlot(&IKAIProperties::setProperty), firstOperation + 2);
    EXPECT_EQ(countOperations<IKAIProperties>(), 3);
}
