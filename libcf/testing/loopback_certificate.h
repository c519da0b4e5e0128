#ifndef CF_TESTING_LOOPBACK_CERTIFICATE_H
#define CF_TESTING_LOOPBACK_CERTIFICATE_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "loopback_server.h"

/// Deletes what OpenSSL's functions made.
struct LoopbackTLSDeleter {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
};

/// What a server needs to speak TLS: its own key and certificate, and the CA to be trusted by clients.
struct LoopbackCredentials {
    std::unique_ptr<SSL_CTX, LoopbackTLSDeleter> context;
    std::string caText;  ///< PEM
};

/// Makes a CA and a server certificate in memory (EC P-256). Throws std::runtime_error when OpenSSL refuses.
[[nodiscard]] LoopbackCredentials makeLoopbackCredentials(LoopbackTLS kind);

#endif
