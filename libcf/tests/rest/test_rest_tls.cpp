#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "loopback_server.h"
#include "loopback_socket.h"
#include "rest/rest_caller.h"

namespace {

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "ok"};
}

constexpr const char* kUntrusted = "The server's certificate is not trusted: no trusted authority has issued it";
constexpr const char* kWrongHost = "The server's certificate was issued for another host name";
constexpr const char* kOutdated =
    "The server's certificate is expired or not valid yet: check the server and this computer's clock";
constexpr const char* kUnreadable = "The file of trusted certificates cannot be read or holds no certificate";

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

/// The certificate that a server shows, as PEM.
std::string obtainShownCertificate(const LoopbackServer& server) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()), BIO_free_all);
    BIO_set_conn_hostname(connection.get(), server.obtainAuthority().c_str());
    EXPECT_EQ(BIO_do_connect(connection.get()), 1);
    SSL* tls = nullptr;
    BIO_get_ssl(connection.get(), &tls);
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), BIO_free);
    EXPECT_EQ(PEM_write_bio_X509(text.get(), SSL_get0_peer_certificate(tls)), 1);
    char* start = nullptr;
    const long size = BIO_get_mem_data(text.get(), &start);
    return {start, static_cast<std::size_t>(size)};
}

/// What a client sends first; the connection is then closed.
std::string receiveFirstRecord(int client) {
    std::string record(4096, '\0');
    record.resize(static_cast<std::size_t>(std::max<ssize_t>(recv(client, record.data(), record.size(), 0), 0)));
    close(client);
    return record;
}

/// What the first exchange with such a server gives.
std::string describeFirstExchange(LoopbackTLS tls, bool isChecked = true) {
    LoopbackServer server(answerOK, {.tls = tls});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    caller.settings.verifyPeer = isChecked;
    const RestResult result = caller.get(server.obtainURL());
    EXPECT_EQ(result.response != nullptr, result.code == 0);
    EXPECT_EQ(server.countRequests(), result.code == 0 ? 1U : 0U);
    return result.text;
}

}  // namespace

TEST(RestTLS, AcceptsACertificateOfATrustedAuthority) {
    EXPECT_EQ(describeFirstExchange(LoopbackTLS::Valid), "");
}

TEST(RestTLS, ChecksTheHostNameAsWellAsTheAddress) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    EXPECT_EQ(caller.get("https://" + server.obtainAuthority("localhost") + "/").text, "");
}

TEST(RestTLS, RefusesAnUntrustedCertificate) {
    EXPECT_EQ(describeFirstExchange(LoopbackTLS::SelfSigned), kUntrusted);
}

TEST(RestTLS, RefusesACertificateForAnotherHost) {
    EXPECT_EQ(describeFirstExchange(LoopbackTLS::WrongHostName), kWrongHost);
}

TEST(RestTLS, RefusesAnExpiredCertificate) {
    EXPECT_EQ(describeFirstExchange(LoopbackTLS::Expired), kOutdated);
}

TEST(RestTLS, ChecksNothingWhenToldSo) {
    for (const LoopbackTLS tls : {LoopbackTLS::SelfSigned, LoopbackTLS::WrongHostName, LoopbackTLS::Expired}) {
        EXPECT_EQ(describeFirstExchange(tls, false), "");
    }
}

TEST(RestTLS, TrustsTheSystemsAuthoritiesByDefaultAndNoOther) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).text, kUntrusted);
}

TEST(RestTLS, NamesACABundleThatCannotBeUsed) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    const LoopbackPrivateFile empty("");
    const LoopbackPrivateFile garbage("-----BEGIN CERTIFICATE-----\nnothing\n-----END CERTIFICATE-----\n");
    const std::string missing = empty.obtainPath() + ".missing";
    RestCaller caller;
    for (const std::string& path :
         {missing, empty.obtainPath(), garbage.obtainPath(), std::string("/"), std::string("/dev/null")}) {
        caller.settings.caBundleFile = path;
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.text, kUnreadable) << path;
        EXPECT_EQ(result.response, nullptr);
    }
    EXPECT_EQ(server.countConnections(), 0U);
}

TEST(RestTLS, WaitsForNoPipeInPlaceOfACABundle) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(30);
            const LoopbackPrivateFile file("");
            const std::string path = file.obtainPath() + ".pipe";
            mkfifo(path.c_str(), S_IRUSR | S_IWUSR);
            RestCaller caller;
            caller.settings.caBundleFile = path;
            const std::string text = caller.get("https://127.0.0.1:1/").text;
            unlink(path.c_str());
            std::exit(text == kUnreadable ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(RestTLS, NeedsNoCABundleWhereNoCertificateIsChecked) {
    LoopbackServer secure(answerOK, {.tls = LoopbackTLS::Valid});
    LoopbackServer plain(answerOK);
    RestCaller caller;
    caller.settings.caBundleFile = "/missing";
    EXPECT_EQ(caller.get(plain.obtainURL()).text, "");
    caller.settings.verifyPeer = false;
    EXPECT_EQ(caller.get(secure.obtainURL()).text, "");
}

TEST(RestTLS, ReadsACABundleAgainWhenItHasChanged) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    LoopbackServer other(answerOK, {.tls = LoopbackTLS::Valid});
    const LoopbackPrivateFile bundle(other.obtainCAText());
    RestCaller caller;
    caller.settings.caBundleFile = bundle.obtainPath();
    // The other authority has the same name, but another key.
    EXPECT_EQ(caller.get(server.obtainURL()).text, kUntrusted);
    writeFile(bundle.obtainPath(), "# authorities\n" + server.obtainCAText());
    EXPECT_EQ(caller.get(server.obtainURL()).text, "");
    writeFile(bundle.obtainPath(), other.obtainCAText());
    EXPECT_EQ(caller.get(server.obtainURL()).text, kUntrusted);
    std::filesystem::remove(bundle.obtainPath());
    EXPECT_EQ(caller.get(server.obtainURL()).text, kUnreadable);
}

TEST(RestTLS, TrustsTheBundleThatIsNamedWhicheverWasUsedLast) {
    LoopbackServer servers[] = {LoopbackServer(answerOK, {.tls = LoopbackTLS::Valid}),
                                LoopbackServer(answerOK, {.tls = LoopbackTLS::Valid}),
                                LoopbackServer(answerOK, {.tls = LoopbackTLS::Valid})};
    RestCaller caller;
    for (const std::size_t place : {0U, 1U, 2U, 0U, 2U, 2U, 1U, 0U}) {
        caller.settings.caBundleFile = servers[place].obtainCAFile();
        EXPECT_EQ(caller.get(servers[place].obtainURL()).text, "") << place;
    }
    // Last: a bundle that did not help is read again for the next request.
    EXPECT_EQ(caller.get(servers[1].obtainURL()).text, kUntrusted);
}

TEST(RestTLS, TrustsAServersOwnCertificateInTheBundle) {
    for (const LoopbackTLS tls : {LoopbackTLS::SelfSigned, LoopbackTLS::Valid}) {
        LoopbackServer server(answerOK, {.tls = tls});
        const LoopbackPrivateFile bundle(obtainShownCertificate(server));
        RestCaller caller;
        caller.settings.caBundleFile = bundle.obtainPath();
        EXPECT_EQ(caller.get(server.obtainURL()).text, "");
    }
}

TEST(RestTLS, SpeaksHTTP11OverTLS12OrLater) {
    const LoopbackListener listener(0);
    std::string hello;
    std::thread server([&] { hello = receiveFirstRecord(listener.accept()); });
    RestCaller caller;
    caller.settings.verifyPeer = false;
    EXPECT_NE(caller.get("https://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/").code, 0);
    server.join();
    // The extension "supported versions" of the greeting: 1.3 and 1.2, no other. The protocol: HTTP/1.1, no other.
    EXPECT_NE(hello.find(std::string("\x00\x2b\x00\x05\x04\x03\x04\x03\x03", 9)), std::string::npos);
    EXPECT_NE(hello.find("\x08http/1.1"), std::string::npos);
    EXPECT_EQ(hello.find("\x02h2"), std::string::npos);
}

TEST(RestTLS, ServesManyThreadsWithOneTrustStore) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    std::vector<std::thread> threads;
    std::vector<std::string> texts(8, "(did not run)");
    for (std::string& text : texts) {
        threads.emplace_back([&] {
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            text = caller.get(server.obtainURL()).text;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(texts, std::vector<std::string>(8, ""));
}

TEST(RestTLS, NamesAnAlertOfTheServerAsThat) {
    // handshake_failure, bad_certificate, certificate_expired, certificate_unknown, protocol_version, unrecognized_name
    for (const char description : {40, 42, 45, 46, 70, 112}) {
        LoopbackServer trusted(answerOK, {.tls = LoopbackTLS::Valid});
        const LoopbackListener listener(0);
        std::thread server([&] {
            const LoopbackBlockedSignals signals;
            const int client = listener.accept();
            std::string hello(4096, '\0');
            EXPECT_GT(recv(client, hello.data(), hello.size(), 0), 0);
            const std::string alert{'\x15', '\x03', '\x03', '\0', '\x02', '\x02', description};
            EXPECT_EQ(send(client, alert.data(), alert.size(), MSG_NOSIGNAL), static_cast<ssize_t>(alert.size()));
            close(client);
        });
        RestCaller caller;
        caller.settings.caBundleFile = trusted.obtainCAFile();
        const RestResult result = caller.get("https://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/");
        server.join();
        EXPECT_EQ(result.text, "No secure connection to the server: it refused the TLS handshake with an alert");
        EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::TLSAlert));
    }
}

TEST(RestTLS, NamesAServerThatSpeaksPlainHTTP) {
    for (const std::string_view answer : {"HTTP/1.1 400 Bad Request\r\n\r\n", "<!DOCTYPE HTML>\n<html></html>"}) {
        LoopbackServer trusted(answerOK, {.tls = LoopbackTLS::Valid});
        const LoopbackListener listener(0);
        std::thread server([&] {
            const LoopbackBlockedSignals signals;
            const int client = listener.accept();
            std::string hello(4096, '\0');
            EXPECT_GT(recv(client, hello.data(), hello.size(), 0), 0);
            EXPECT_EQ(send(client, answer.data(), answer.size(), MSG_NOSIGNAL), static_cast<ssize_t>(answer.size()));
            close(client);
        });
        RestCaller caller;
        caller.settings.caBundleFile = trusted.obtainCAFile();
        const RestResult result = caller.get("https://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/");
        server.join();
        EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::PlainHTTPServer)) << answer;
    }
}
