#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "cf/rest.h"
#include "rest/rest_caller.h"

namespace {

/// The statuses of IANA's registry of HTTP status codes with their phrases, but for unused and temporary ones.
const std::map<std::int32_t, std::string>& obtainStandardPhrases() {
    static const std::map<std::int32_t, std::string> phrases{
        {100, "Continue"},
        {101, "Switching Protocols"},
        {102, "Processing"},
        {103, "Early Hints"},
        {200, "OK"},
        {201, "Created"},
        {202, "Accepted"},
        {203, "Non-Authoritative Information"},
        {204, "No Content"},
        {205, "Reset Content"},
        {206, "Partial Content"},
        {207, "Multi-Status"},
        {208, "Already Reported"},
        {226, "IM Used"},
        {300, "Multiple Choices"},
        {301, "Moved Permanently"},
        {302, "Found"},
        {303, "See Other"},
        {304, "Not Modified"},
        {305, "Use Proxy"},
        {307, "Temporary Redirect"},
        {308, "Permanent Redirect"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {402, "Payment Required"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {406, "Not Acceptable"},
        {407, "Proxy Authentication Required"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {410, "Gone"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Content Too Large"},
        {414, "URI Too Long"},
        {415, "Unsupported Media Type"},
        {416, "Range Not Satisfiable"},
        {417, "Expectation Failed"},
        {421, "Misdirected Request"},
        {422, "Unprocessable Content"},
        {423, "Locked"},
        {424, "Failed Dependency"},
        {425, "Too Early"},
        {426, "Upgrade Required"},
        {428, "Precondition Required"},
        {429, "Too Many Requests"},
        {431, "Request Header Fields Too Large"},
        {451, "Unavailable For Legal Reasons"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
        {505, "HTTP Version Not Supported"},
        {506, "Variant Also Negotiates"},
        {507, "Insufficient Storage"},
        {508, "Loop Detected"},
        {510, "Not Extended"},
        {511, "Network Authentication Required"},
    };
    return phrases;
}

}  // namespace

TEST(ICSErrorTextService, NamesEachStatusWithItsStandardPhrase) {
    for (std::int32_t status = 100; status <= 999; ++status) {
        const auto phrase = obtainStandardPhrases().find(status);
        const std::string suffix = phrase == obtainStandardPhrases().end() ? "" : " " + phrase->second;
        EXPECT_EQ(describeRestCode(status), "HTTP " + std::to_string(status) + suffix);
    }
}

TEST(ICSErrorTextService, HasNoTextForSuccess) {
    EXPECT_EQ(describeRestCode(0), "");
}

TEST(ICSErrorTextService, HasOneLineOfItsOwnForEachFailure) {
    std::set<std::string> texts;
    for (std::int32_t code = 1; code <= 25; ++code) {
        const std::string text = describeRestCode(code);
        EXPECT_NE(text, "Unknown error") << code;
        EXPECT_GT(text.size(), 10U) << code;
        EXPECT_EQ(text.find('\n'), std::string::npos) << code;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST(ICSErrorTextService, HasATextForCodesThatNothingGives) {
    for (const std::int32_t code : {INT32_MIN, -1, 26, 99}) {
        EXPECT_EQ(describeRestCode(code), "Unknown error");
    }
}

TEST(ICSErrorTextService, RepeatsTheCodeInItsRecord) {
    EXPECT_EQ(CF::obtainAppFactory()->obtainErrorTextService()->describe(404).code, 404);
}

TEST(ICSAppFactory, IsTheSameForTheWholeProcess) {
    EXPECT_NE(CF::obtainAppFactory(), nullptr);
    EXPECT_EQ(CF::obtainAppFactory(), CF::obtainAppFactory());
    EXPECT_EQ(CF::obtainAppFactory()->obtainRestService(), CF::obtainAppFactory()->obtainRestService());
}
