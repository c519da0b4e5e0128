#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "loopback_server.h"
#include "loopback_socket.h"
#include "rest/rest_caller.h"
#include "temporary_folder.h"

// No environment variable has a say. Each case runs in a process of its own, which sets the variables before the first
// exchange: libcurl reads some of them only once.

namespace {

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "ok"};
}

void setProxyVariables(const std::string& value) {
    for (const char* const name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        setenv(name, value.c_str(), 1);
    }
}

/// Ends the process once the case's servers are gone; the reason is empty when all is well.
[[noreturn]] void exitWith(const std::string& reason) {
    std::cerr << reason << '\n';
    std::exit(reason.empty() ? 0 : 1);
}

class RestEnvironment : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

std::string requestPastProxyVariables() {
    LoopbackServer proxy(answerOK);
    LoopbackServer plain(answerOK);
    LoopbackServer secure(answerOK, {.tls = LoopbackTLS::Valid});
    setProxyVariables(proxy.obtainURL());
    RestCaller caller;
    caller.settings.caBundleFile = secure.obtainCAFile();
    const std::string texts = caller.get(plain.obtainURL()).text + caller.get(secure.obtainURL()).text;
    return texts.empty() && proxy.countConnections() == 0 ? "" : "through the proxy: " + texts;
}

std::string requestThroughProxyDespiteNoProxy() {
    LoopbackServer proxy(answerOK);
    setenv("NO_PROXY", "*", 1);
    setenv("no_proxy", "*", 1);
    RestCaller caller;
    caller.settings.proxyURL = proxy.obtainURL();
    const RestResult result = caller.get("http://server.invalid/");
    return result.code == 0 && proxy.countRequests() == 1 ? "" : "past the proxy: " + result.text;
}

std::string requestWithTrustVariables() {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    for (const char* const name : {"SSL_CERT_FILE", "CURL_CA_BUNDLE", "CURL_CA_PATH"}) {
        setenv(name, server.obtainCAFile().c_str(), 1);
    }
    setenv("SSL_CERT_DIR", std::filesystem::path(server.obtainCAFile()).parent_path().c_str(), 1);
    RestCaller caller;
    const RestResult result = caller.get(server.obtainURL());
    return result.code != 0 && server.countRequests() == 0 ? "" : "trusted by a variable";
}

std::string requestWithKeyLogVariable() {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    const LoopbackPrivateFile keyLog("");
    setenv("SSLKEYLOGFILE", keyLog.obtainPath().c_str(), 1);
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    const RestResult result = caller.get(server.obtainURL());
    return result.code == 0 && std::filesystem::file_size(keyLog.obtainPath()) == 0 ? ""
                                                                                    : "keys written: " + result.text;
}

std::string requestWithANetrcFile() {
    LoopbackServer server(answerOK);
    const TemporaryFolder home;
    home.write(".netrc", "default login user password secret\n");
    setenv("HOME", home.obtainPath().c_str(), 1);
    RestCaller caller;
    const RestResult result = caller.get(server.obtainURL());
    return result.code == 0 && server.requests().at(0).findHeader("Authorization") == nullptr ? "" : "credential sent";
}

}  // namespace

TEST_F(RestEnvironment, NamesNoProxy) {
    EXPECT_EXIT(exitWith(requestPastProxyVariables()), testing::ExitedWithCode(0), "");
}

TEST_F(RestEnvironment, ExemptsNoHostFromTheProxy) {
    EXPECT_EXIT(exitWith(requestThroughProxyDespiteNoProxy()), testing::ExitedWithCode(0), "");
}

TEST_F(RestEnvironment, NamesNoTrustedCertificates) {
    EXPECT_EXIT(exitWith(requestWithTrustVariables()), testing::ExitedWithCode(0), "");
}

TEST_F(RestEnvironment, NamesNoFileForTheKeysOfConnections) {
    EXPECT_EXIT(exitWith(requestWithKeyLogVariable()), testing::ExitedWithCode(0), "");
}

TEST_F(RestEnvironment, NamesNoCredentials) {
    EXPECT_EXIT(exitWith(requestWithANetrcFile()), testing::ExitedWithCode(0), "");
}
