#ifndef CF_TESTING_LOOPBACK_CERTIFICATE_H
#define CF_TESTING_LOOPBACK_CERTIFICATE_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "loopback_server.h"

/// Deleters for OpenSSL's objects.
struct LoopbackTLSDeleter {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
};

/// What a server needs for TLS: its own key and certificate, and the CA that clients must trust.
struct LoopbackCredentials {
    std::unique_ptr<SSL_CTX, LoopbackTLSDeleter> context;
    std::string caText;  ///< PEM
};

/// Makes a CA and a server certificate in memory (EC P-256). Throws std::runtime_error if OpenSSL fails.
[[nodiscard]] LoopbackCredentials makeLoopbackCredentials(LoopbackTLS kind);

#endif
