#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "cf/json.h"
#include "cf/variant.h"

namespace {

/// How many allocations succeed from now on; negative: all.
thread_local long allocationsLeft = -1;
thread_local long allocationCount = 0;

void* allocateOrNull(std::size_t size) noexcept {
    ++allocationCount;
    if (allocationsLeft == 0) {
        return nullptr;
    }
    allocationsLeft -= allocationsLeft > 0 ? 1 : 0;
    return std::malloc(size == 0 ? 1 : size);
}

void* allocate(std::size_t size) {
    if (void* memory = allocateOrNull(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace {

/// Runs an action with one allocation less than it needs, then two, and so on; each time it must throw.
/// @return how many allocations it needs
template <typename Action>
long failAtEachAllocation(Action action) {
    for (long allowed = 0;; ++allowed) {
        allocationsLeft = allowed;
        bool hasFailed = false;
        try {
            action();
        } catch (const std::bad_alloc&) {
            hasFailed = true;
        }
        allocationsLeft = -1;
        if (!hasFailed) {
            return allowed;
        }
    }
}

TEST(AllocationFailure, IsThrownWhenATextIsRead) {
    for (const std::string_view text : {R"({"a":[1,2,{"b":"text"}]})", "[1e400]"}) {
        bool isValid = false;
        EXPECT_GT(failAtEachAllocation([&] { isValid = COJson(text).getIsValidJson(); }), 3) << text;
        EXPECT_TRUE(isValid) << text;
    }
}

TEST(AllocationFailure, LeavesATextThatIsReadInPlaceAsItWas) {
    std::string text = R"({"a":[1,2,{"b":"text"}]})";
    const std::string before = text;
    text.reserve(200);
    EXPECT_GT(failAtEachAllocation([&] {
                  try {
                      EXPECT_TRUE(COJson::readInPlace(text).getIsValidJson());
                  } catch (const std::bad_alloc&) {
                      EXPECT_TRUE(text == before);
                      throw;
                  }
              }),
              3);
    EXPECT_EQ(text, before);
}

TEST(AllocationFailure, IsThrownWhenADocumentIsBuilt) {
    const std::string text(100, 'x');
    EXPECT_GT(failAtEachAllocation([&] {
                  COJson json;
                  json.addKeyValue(text).setString(text);
              }),
              3);
    const CMVariant value(CMVariantMap{{text, CMVariant(CMVariantList{CMVariant(text)})}});
    EXPECT_GT(failAtEachAllocation([&] { static_cast<void>(cfCreateCOJsonFromCMVariant(value)); }), 4);
}

TEST(AllocationFailure, LeavesADocumentAsItWasBeforeTheMember) {
    COJson json;
    json.addKeyValue("a").setString("b");
    const std::string key(100, 'k');
    allocationsLeft = 1;  // the node, but not its key
    EXPECT_THROW(json.addKeyValue(key), std::bad_alloc);
    allocationsLeft = -1;
    EXPECT_EQ(json.obtainJsonString(), R"({"a":"b"})");
}

TEST(AllocationFailure, LeavesAValidTargetWhenTextIsWritten) {
    const std::string content = std::string(3'000, 'x') + "\n\xFF" + std::string(3'000, '\x01');
    std::string whole;
    std::string target;
    const auto write = [&](COJsonWriter& writer) {
        writer.beginArray();
        writer.writeString("first");
        writer.writeString(content);
        writer.endArray();
        writer.finish();
    };
    COJsonWriter wholeWriter(whole);
    write(wholeWriter);
    const long needed = failAtEachAllocation([&] {
        target = std::string();
        COJsonWriter writer(target);
        try {
            write(writer);
        } catch (const std::bad_alloc&) {
            writer.finish();
            EXPECT_TRUE(std::string_view(whole).starts_with(target));
            throw;
        }
    });
    EXPECT_GT(needed, 2);
    EXPECT_EQ(target, whole);
}

TEST(AllocationFailure, LeavesAVariantAsItWasWhenItIsAssigned) {
    const CMVariant other(CMVariantList{CMVariant(std::string(100, 'x'))});
    CMVariant value("before");
    failAtEachAllocation([&] {
        try {
            value = other;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(value.stringValue(), "before");
            throw;
        }
    });
    EXPECT_EQ(value.listValue().size(), 1U);
}

TEST(AllocationCount, IsSmallForASmallReply) {
    std::string text = R"({"id":"1","choices":[{"message":{"role":"assistant","content":")";
    text += std::string(900, 'x') + "\"}}]}";
    const long before = allocationCount;
    { const COJson json{std::string_view(text)}; }
    EXPECT_LE(allocationCount - before, 8);
}

TEST(AllocationCount, IsSmallerForATextReadInPlace) {
    std::string text = "[" + std::string(900, ' ') + "]";
    text.reserve(2'000);
    long before = allocationCount;
    { const COJson json{std::string_view(text)}; }
    const long copied = allocationCount - before;
    before = allocationCount;
    { const COJson json = COJson::readInPlace(text); }
    EXPECT_EQ(allocationCount - before, copied - 1);
}

TEST(AllocationCount, IsOneForABodyWhoseSizeWasReserved) {
    const std::string content(300, 'x');
    std::string target;
    const long before = allocationCount;
    COJsonWriter writer(target);
    writer.reserve(2'000 * (content.size() + 40));
    writer.beginArray();
    for (int i = 0; i < 2'000; ++i) {
        writer.beginObject();
        writer.writeMember("role", "user");
        writer.writeMember("content", content);
        writer.endObject();
    }
    writer.endArray();
    writer.finish();
    EXPECT_EQ(allocationCount - before, 1);
    EXPECT_EQ(target.size(), 2'000 * (content.size() + 29) + 1);
}

TEST(AllocationCount, IsNoneForReadingADocument) {
    const COJson json(R"({"a":[1,2,{"b":"text"}],"c":1.5})");
    const long before = allocationCount;
    for (const COJsonMember member : json.obtainRoot().obtainMembers()) {
        for (const COJsonValue item : member.value.obtainItems()) {
            const auto [b, missing] = item.obtainMemberValues({"b", "missing"});
            EXPECT_FALSE(missing.getIsValidJson());
            static_cast<void>(b.obtainString());
        }
    }
    EXPECT_EQ(allocationCount, before);
}

}  // namespace
