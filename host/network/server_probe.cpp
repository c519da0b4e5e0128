#include "network/server_probe.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <ctime>
#include <memory>

#include "host_error.h"
#include "terminal/interrupts.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

template <auto release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const noexcept {
        release(object);
    }
};

using Bio = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using Context = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;

[[noreturn]] void fail(const std::string& reason) {
    throw HostError(ExitCode::Provider, reason);
}

/// The reason of the last failure of OpenSSL.
std::string takeReason() {
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    const char* reason = ERR_reason_error_string(code);
    return reason != nullptr ? reason : "the server closed the connection";
}

/// Opens a connection, including TLS if it uses TLS.
void connect(BIO* connection, std::chrono::milliseconds timeout) {
    BIO_set_nbio(connection, 1);
    const Clock::time_point deadline = Clock::now() + timeout;
    while (BIO_do_connect(connection) <= 0) {
        if (Interrupts::isRequested()) {
            throw HostError(ExitCode::Cancelled, "cancelled");
        }
        if (!BIO_should_retry(connection)) {
            fail(takeReason());
        }
        if (Clock::now() >= deadline) {
            fail("nothing came back in time");
        }
        constexpr int kStep = 50;
        pollfd socket{static_cast<int>(BIO_get_fd(connection, nullptr)),
                      static_cast<short>(BIO_should_read(connection) != 0 ? POLLIN : POLLOUT), 0};
        poll(&socket, 1, kStep);
    }
}

std::string joinAddress(const ServerAddress& server) {
    const bool isIPv6 = server.name.find(':') != std::string::npos;
    return (isIPv6 ? "[" + server.name + "]" : server.name) + ":" + server.port;
}

bool isAddress(const std::string& name) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(AF_INET, name.c_str(), bytes.data()) == 1 || inet_pton(AF_INET6, name.c_str(), bytes.data()) == 1;
}

std::string writeName(const X509_NAME* name) {
    const Bio text(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

std::string writeDay(const ASN1_TIME* time) {
    std::tm parts{};
    std::array<char, 16> text{};
    ASN1_TIME_to_tm(time, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts)};
}

}  // namespace

ServerAddress readServerAddress(std::string_view text, std::string_view usualPort) {
    constexpr std::string_view kSchemeEnd = "://";
    if (const std::size_t scheme = text.find(kSchemeEnd); scheme != std::string_view::npos) {
        text.remove_prefix(scheme + kSchemeEnd.size());
    }
    text = text.substr(0, text.find('/'));
    const std::size_t bracket = text.starts_with('[') ? text.find(']') : std::string_view::npos;
    const bool isBracketed = bracket != std::string_view::npos;
    const std::size_t colon = text.find(':', isBracketed ? bracket : 0);
    ServerAddress server;
    server.name = isBracketed ? text.substr(1, bracket - 1) : text.substr(0, colon);
    server.port = colon == std::string_view::npos ? usualPort : text.substr(colon + 1);
    return server;
}

std::string resolveName(const std::string& name) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int code = getaddrinfo(name.c_str(), nullptr, &hints, &found);
    const std::unique_ptr<addrinfo, Releaser<freeaddrinfo>> addresses(found);
    if (code != 0) {
        fail(name + ": " + gai_strerror(code) + "; check --api-host and the connection to the network");
    }
    std::array<char, NI_MAXHOST> address{};
    getnameinfo(found->ai_addr, found->ai_addrlen, address.data(), address.size(), nullptr, 0, NI_NUMERICHOST);
    return address.data();
}

void tryConnection(const ServerAddress& server, std::chrono::milliseconds timeout) {
    const Bio connection(BIO_new_connect(joinAddress(server).c_str()));
    connect(connection.get(), timeout);
}

ServerCertificate readCertificate(const ServerAddress& server, std::chrono::milliseconds timeout) {
    const Context context(SSL_CTX_new(TLS_client_method()));
    const Bio connection(BIO_new_ssl_connect(context.get()));
    SSL* tls = nullptr;
    BIO_get_ssl(connection.get(), &tls);
    if (!isAddress(server.name)) {
        SSL_set_tlsext_host_name(tls, server.name.c_str());
    }
    BIO_set_conn_hostname(connection.get(), joinAddress(server).c_str());
    connect(connection.get(), timeout);
    const Certificate certificate(SSL_get1_peer_certificate(tls));
    if (certificate == nullptr) {
        fail("the server shows no certificate");
    }
    return {.subject = writeName(X509_get_subject_name(certificate.get())),
            .issuer = writeName(X509_get_issuer_name(certificate.get())),
            .lastDay = writeDay(X509_get0_notAfter(certificate.get()))};
}

}  // namespace host
