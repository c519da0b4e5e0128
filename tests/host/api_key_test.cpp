#include "conversation/api_key.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <filesystem>

#include "host_error.h"
#include "test_folder.h"

namespace {

using host::ApiKey;
using testing::HasSubstr;
using testing::IsEmpty;

/// The environment variables of the keys, cleared for a test and put back after it.
class ApiKeyTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : kNames) {
            const char* value = getenv(name);
            m_former.emplace_back(value != nullptr, value != nullptr ? value : "");
            unsetenv(name);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < kNames.size(); ++i) {
            m_former[i].first ? setenv(kNames[i], m_former[i].second.c_str(), 1) : unsetenv(kNames[i]);
        }
    }

    ApiKey obtain(const char* provider, const host::KeySource& source = {}) {
        return ApiKey::obtain(*host::findProvider(provider), source, m_warning);
    }

    std::string describeFailure(const char* provider, const host::KeySource& source = {}) {
        try {
            return "the key " + obtain(provider, source).obtainText();
        } catch (const host::HostError& error) {
            EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
            return error.what();
        }
    }

    static constexpr std::array<const char*, 5> kNames{"DEEPSEEK_API_KEY", "GEMINI_API_KEY", "GOOGLE_API_KEY",
                                                       "OPENAI_API_KEY", "MY_KEY"};
    TestFolder m_folder;
    std::string m_warning;
    std::vector<std::pair<bool, std::string>> m_former;
};

TEST_F(ApiKeyTest, ReadsTheCustomaryVariableOfEachProvider) {
    setenv("DEEPSEEK_API_KEY", "key-d", 1);
    setenv("GOOGLE_API_KEY", "key-g", 1);
    setenv("OPENAI_API_KEY", "key-o", 1);
    EXPECT_EQ(obtain("deepseek").obtainText(), "key-d");
    EXPECT_EQ(obtain("google").obtainText(), "key-g");
    EXPECT_EQ(obtain("openai").obtainText(), "key-o");
    setenv("GEMINI_API_KEY", "key-first", 1);
    EXPECT_EQ(obtain("google").obtainText(), "key-first");
    EXPECT_EQ(obtain("google").obtainOrigin(), "GEMINI_API_KEY");
}

TEST_F(ApiKeyTest, PassesOverAnEmptyVariableForTheNextOne) {
    setenv("GEMINI_API_KEY", "", 1);
    setenv("GOOGLE_API_KEY", "key-g", 1);
    EXPECT_EQ(obtain("google").obtainText(), "key-g");
}

TEST_F(ApiKeyTest, NeedsNoneForOllama) {
    EXPECT_EQ(obtain("ollama").obtainText(), "");
    EXPECT_EQ(obtain("ollama", {m_folder.name("none"), ""}).obtainText(), "");
}

TEST_F(ApiKeyTest, SaysWhereAMissingKeyBelongs) {
    EXPECT_EQ(describeFailure("google"),
              "no key for google; set GEMINI_API_KEY or GOOGLE_API_KEY or name a file with --key-file");
    EXPECT_THAT(describeFailure("deepseek", {"", "MY_KEY"}), HasSubstr("MY_KEY is not set"));
}

TEST_F(ApiKeyTest, RefusesAnEmptyKey) {
    setenv("DEEPSEEK_API_KEY", "", 1);
    EXPECT_THAT(describeFailure("deepseek"), HasSubstr("the key in DEEPSEEK_API_KEY is empty"));
    setenv("DEEPSEEK_API_KEY", "  ", 1);
    EXPECT_THAT(describeFailure("deepseek"), HasSubstr("is empty"));
    EXPECT_THAT(describeFailure("deepseek", {m_folder.write("key", "\nsecond line"), ""}), HasSubstr("is empty"));
}

TEST_F(ApiKeyTest, RefusesAControlCharacterWithoutRepeatingTheKey) {
    setenv("DEEPSEEK_API_KEY", "sk-secret\r\nX: y", 1);
    const std::string text = describeFailure("deepseek");
    EXPECT_THAT(text, HasSubstr("a control character or a line break"));
    EXPECT_THAT(text, testing::Not(HasSubstr("secret")));
}

TEST_F(ApiKeyTest, ReadsTheFirstLineOfAFileWithoutItsLineEnd) {
    EXPECT_EQ(obtain("deepseek", {m_folder.write("unix", "key-1\nmore\n"), ""}).obtainText(), "key-1");
    EXPECT_EQ(obtain("deepseek", {m_folder.write("dos", "key-2\r\nmore"), ""}).obtainText(), "key-2");
    EXPECT_EQ(obtain("deepseek", {m_folder.write("bare", "key-3"), ""}).obtainText(), "key-3");
    // Blanks may belong to a key.
    EXPECT_EQ(obtain("deepseek", {m_folder.write("blank", " key 4 \n"), ""}).obtainText(), " key 4 ");
}

TEST_F(ApiKeyTest, TakesTheFileBeforeTheVariable) {
    setenv("DEEPSEEK_API_KEY", "from-variable", 1);
    EXPECT_EQ(obtain("deepseek", {m_folder.write("key", "from-file"), ""}).obtainText(), "from-file");
}

TEST_F(ApiKeyTest, ReadsANamedVariable) {
    setenv("MY_KEY", "mine", 1);
    EXPECT_EQ(obtain("deepseek", {"", "MY_KEY"}).obtainText(), "mine");
}

TEST_F(ApiKeyTest, SaysWhyAFileCannotBeRead) {
    EXPECT_THAT(describeFailure("deepseek", {m_folder.name("none"), ""}), HasSubstr("No such file or directory"));
    EXPECT_THAT(describeFailure("deepseek", {m_folder.name(""), ""}), HasSubstr("is a directory"));
}

TEST_F(ApiKeyTest, WarnsOfAFileThatEverybodyCanRead) {
    const std::string fileName = m_folder.write("key", "key-1\n");
    std::filesystem::permissions(fileName, std::filesystem::perms(0644));
    obtain("deepseek", {fileName, ""});
    EXPECT_THAT(m_warning, HasSubstr("chmod 600"));
    m_warning.clear();
    std::filesystem::permissions(fileName, std::filesystem::perms(0640));
    obtain("deepseek", {fileName, ""});
    EXPECT_THAT(m_warning, IsEmpty());
}

TEST_F(ApiKeyTest, IsTakenOutOfTexts) {
    setenv("MY_KEY", "sk a/b+c", 1);
    const ApiKey key = obtain("deepseek", {"", "MY_KEY"});
    EXPECT_EQ(key.redact("wrong key: sk a/b+c, sk a/b+c"), "wrong key: ***, ***");
    EXPECT_EQ(key.redact("?key=sk%20a%2Fb%2Bc&x"), "?key=***&x");
    EXPECT_EQ(key.redact("nothing here"), "nothing here");
    EXPECT_EQ(key.redact("sk a/b+c", 16), "sk a/b+c");
}

TEST_F(ApiKeyTest, LeavesTextsAloneWithoutAKeyOrWithAWordForOne) {
    EXPECT_EQ(ApiKey().redact("text"), "text");
    setenv("MY_KEY", "a", 1);
    EXPECT_EQ(obtain("deepseek", {"", "MY_KEY"}).redact("a banana"), "a banana");
}

}  // namespace
