#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// What is refused before anything is sent.

namespace {

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "{}"};
}

constexpr const char* kInvalidURL =
    "The URL cannot be requested: it must be a whole http or https URL without blanks or control characters";
constexpr const char* kOversizedRequest = "The request's URL or headers are longer than can be sent";
constexpr const char* kInvalidHeader =
    "A request header or the API key holds a character that is not allowed there, such as a line break";

/// Each control character, as a text of its own.
std::vector<std::string> listControlCharacters() {
    std::vector<std::string> characters;
    for (char byte = 0; byte < 0x20; ++byte) {
        characters.emplace_back(1, byte);
    }
    characters.emplace_back(1, '\x7F');
    return characters;
}

void expectRefusal(const RestResult& result, const std::string& text) {
    EXPECT_GT(result.code, 0);
    EXPECT_LT(result.code, 100);
    EXPECT_EQ(result.text, text);
    EXPECT_EQ(result.response, nullptr);
}

}  // namespace

class RestRefusal : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(server.countConnections(), 0U);
        for (const CMRestTraceRecord& record : caller.records) {
            EXPECT_EQ(record.status, 0);
            EXPECT_NE(record.resultCode, 0);
            EXPECT_EQ(record.responseBytes, 0U);
            EXPECT_FALSE(record.connectionReused);
        }
    }

    LoopbackServer server{answerOK};
    RestCaller caller;
};

TEST_F(RestRefusal, RefusesAHeaderValueWithALineBreak) {
    caller.recordTrace();
    expectRefusal(caller.get(server.obtainURL(), {}, {{"X-A", "1\r\nX-Smuggled: 2"}}), kInvalidHeader);
    EXPECT_EQ(caller.records.size(), 1U);
}

TEST_F(RestRefusal, RefusesEveryControlCharacterInAHeader) {
    for (const std::string& character : listControlCharacters()) {
        expectRefusal(caller.get(server.obtainURL(), {}, {{"X-A", "a" + character + "b"}}), kInvalidHeader);
        expectRefusal(caller.get(server.obtainURL(), {}, {{"X" + character + "A", "1"}}), kInvalidHeader);
    }
}

TEST_F(RestRefusal, RefusesAHeaderNameThatIsNoToken) {
    for (const char* const name : {"", " ", "X A", "X:", "X A: b", "X\xC3\xA4", "(x)", "X,Y", "X;", "\"X\""}) {
        expectRefusal(caller.get(server.obtainURL(), {}, {{name, "1"}}), kInvalidHeader);
    }
}

TEST_F(RestRefusal, RefusesControlCharactersInTheSessionsHeadersAndCredential) {
    caller.session.setAuthorizationHeaderValue("Bearer key\n");
    expectRefusal(caller.remove(server.obtainURL()), kInvalidHeader);
    caller.session.setAuthorizationHeaderValue("");
    caller.session.addHeaderParam("X-A", "a\tb");
    expectRefusal(caller.remove(server.obtainURL()), kInvalidHeader);
}

TEST_F(RestRefusal, RefusesAUserAgentWithALineBreak) {
    caller.settings.userAgent = "host\r\nX-Smuggled: 1";
    expectRefusal(caller.post(server.obtainURL(), "b"), kInvalidHeader);
}

TEST_F(RestRefusal, RefusesABlankOrControlCharacterInAURL) {
    for (const std::string& character : listControlCharacters()) {
        expectRefusal(caller.get(server.obtainURL("/a" + character + "b")), kInvalidURL);
        expectRefusal(caller.get(server.obtainURL("/a") + character), kInvalidURL);
        expectRefusal(caller.get(character + server.obtainURL("/a")), kInvalidURL);
    }
    expectRefusal(caller.get(server.obtainURL("/a b")), kInvalidURL);
    expectRefusal(caller.get(" " + server.obtainURL("/a")), kInvalidURL);
}

TEST_F(RestRefusal, RefusesEverySchemeButHTTPAndHTTPS) {
    const std::string rest = "://" + server.obtainAuthority() + "/";
    for (const char* const scheme : {"ftp", "file", "httpx", "xhttp", "ws", "", "http+unix", "gopher", "h"}) {
        expectRefusal(caller.get(scheme + rest), kInvalidURL);
    }
    const std::string authority = server.obtainAuthority();
    for (const std::string& url : std::vector<std::string>{"", "/", "//" + authority, authority,
                                                           "http:", "http:" + authority, "http:/" + authority}) {
        expectRefusal(caller.get(url), kInvalidURL);
    }
}

TEST_F(RestRefusal, RefusesAURLWithoutAHost) {
    // libcurl would take the first part of the path for the host, and send the credential there.
    for (const char* const url : {"http://", "https:///v1/models", "http:///", "http://?q", "http://#f", "http://:80/",
                                  "http://user@/", "http://user:password@:80/"}) {
        expectRefusal(caller.get(url), kInvalidURL);
    }
}

TEST_F(RestRefusal, RefusesAPortThatIsNone) {
    for (const char* const port : {"x", "80x", "-1", "123456", "65536", "8 0"}) {
        expectRefusal(caller.get(std::string("http://127.0.0.1:") + port + "/"), kInvalidURL);
    }
}

TEST_F(RestRefusal, RefusesAProxyURLWithALineBreak) {
    caller.settings.proxyURL = server.obtainURL() + "\r\nX: y";
    expectRefusal(caller.get("http://127.0.0.1:1/"),
                  "The proxy cannot be used: check its address and credentials, and that it is running");
}

TEST_F(RestRefusal, RefusesAURLOrHeadersThatAreTooLong) {
    constexpr std::size_t kLimit = 256 * 1024;
    for (const std::size_t size : {kLimit, std::size_t{1'200'000}, std::size_t{8'000'001}}) {
        const std::string text(size, 'a');
        expectRefusal(caller.get(server.obtainURL("/" + text)), kOversizedRequest);
        expectRefusal(caller.get(server.obtainURL(), {{"q", text}}), kOversizedRequest);
        expectRefusal(caller.get(server.obtainURL(), {}, {{"X-A", text}}), kOversizedRequest);
        RestCaller other;
        other.session.setAuthorizationHeaderValue(text);
        expectRefusal(other.get(server.obtainURL()), kOversizedRequest);
        RestCaller third;
        third.session.addHeaderParam("X-A", text);
        expectRefusal(third.get(server.obtainURL()), kOversizedRequest);
        RestCaller fourth;
        fourth.settings.userAgent = text;
        expectRefusal(fourth.get(server.obtainURL()), kOversizedRequest);
    }
}

TEST(RestLongRequest, IsSentUpToTheLimitHoweverItIsEncoded) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    // Three bytes on the wire for each of these.
    const std::string path(250'000, '\xE4');
    EXPECT_EQ(caller.get(server.obtainURL("/" + path)).text, "");
    EXPECT_EQ(server.requests().at(0).path.size(), 1 + 3 * path.size());
}

TEST_F(RestRefusal, RefusesAUserNameOrPasswordInAURL) {
    for (const char* const userInfo : {"user", "user:password", ":password", "", "a@b"}) {
        const RestResult result = caller.get("http://" + (userInfo + ("@" + server.obtainAuthority())) + "/");
        expectRefusal(result, "The host must be named without a user name or password before it");
        EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::UserInfoInURL));
    }
}

TEST_F(RestRefusal, RefusesAHostNameBeyondASCIIWhateverTheLocale) {
    for (const char* const locale : {"C", "C.UTF-8"}) {
        const char* const former = std::setlocale(LC_ALL, nullptr);
        const std::string kept = former;
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        const RestResult result = caller.get("https://m\xC3\xBCnchen.example/");
        std::setlocale(LC_ALL, kept.c_str());
        expectRefusal(result,
                      "The host name has characters beyond ASCII: name it in its ASCII form, which begins with xn--");
        EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::NonASCIIHost));
    }
}
