#include "settings.h"

#include <gmock/gmock.h>

#include "host_error.h"

namespace {

using host::Settings;
using testing::HasSubstr;

constexpr const char* kText =
    "# what I use\nprovider = deepseek\nformat=csv\nmodel = a\n\n[ollama]\nmodel = b\n model = c = d \n[google]\n"
    "key-file = /k\n";

std::string describeFailure(const std::string& text) {
    try {
        static_cast<void>(Settings::parse(text, "FILE"));
        return "none";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
        return error.what();
    }
}

TEST(Settings, ReadsValuesAndWhereTheyStand) {
    const Settings settings = Settings::parse(kText, "FILE");
    EXPECT_EQ(settings.find("provider")->value, "deepseek");
    EXPECT_EQ(settings.find("provider")->origin, "FILE, line 2");
    EXPECT_EQ(settings.find("format")->value, "csv");
    EXPECT_FALSE(settings.find("proxy"));
}

TEST(Settings, KeepsWhatIsOneProvidersFromTheOthers) {
    const Settings settings = Settings::parse(kText, "FILE");
    EXPECT_EQ(settings.findFor("deepseek", true, "model")->value, "a");
    EXPECT_EQ(settings.findFor("ollama", false, "model")->value, "c = d");
    EXPECT_EQ(settings.findFor("ollama", true, "model")->value, "c = d");
    EXPECT_FALSE(settings.findFor("google", false, "model"));
    EXPECT_EQ(settings.findFor("google", false, "key-file")->value, "/k");
}

TEST(Settings, SaysWhichLineIsWrong) {
    EXPECT_THAT(describeFailure("provider = deepseek\nmodle = x\n"),
                HasSubstr("FILE, line 2: unknown setting 'modle'"));
    EXPECT_THAT(describeFailure("provider = acme"), HasSubstr("FILE, line 1: unknown provider"));
    EXPECT_THAT(describeFailure("[acme]"), HasSubstr("unknown provider"));
    EXPECT_THAT(describeFailure("what"), HasSubstr("write 'name = value'"));
    EXPECT_THAT(describeFailure("model ="), HasSubstr("has no value"));
    EXPECT_THAT(describeFailure("[ollama]\nprovider = google"), HasSubstr("stands before the first section"));
    EXPECT_EQ(describeFailure(""), "none");
}

}  // namespace
