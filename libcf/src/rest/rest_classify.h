#ifndef CF_SRC_REST_CLASSIFY_H
#define CF_SRC_REST_CLASSIFY_H

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>

#include "cf/rest.h"
#include "rest/rest_receipt.h"

namespace cf {

/// What OpenSSL told of the TLS connection that an exchange used last.
struct RestTLSEvents {
    bool isBegun = false;        ///< whether the handshake has begun, so the peer has accepted the connection
    bool isClosed = false;       ///< whether the peer has closed TLS in order
    bool hasFatalAlert = false;  ///< whether the peer has ended the connection with an alert
    bool isPlainHTTP = false;    ///< whether the peer answered the handshake with plain HTTP
    long verification = 0;       ///< the result for the certificate that was refused; 0: none was
};

/// What is known when libcurl has ended an exchange.
struct RestEnding {
    CURLcode code = CURLE_OK;
    RestHeaderBlock headers{};
    bool isDecodedWhole = true;
    long status = 0;                 ///< of the last header block; 0: none
    long proxyStatus = 0;            ///< of a proxy's answer to CONNECT; 0: none
    std::int64_t contentLength = 0;  ///< as libcurl takes it; negative: unknown
    bool isRequestBegun = false;     ///< whether the connection, TLS included, was ready for the request
    bool hasProxy = false;
    bool isProxyTLS = false;  ///< whether the proxy is spoken to by TLS
    long proxyVerification = 0;
    bool isTLS = false;      ///< whether the URL's scheme is https
    bool isChecked = false;  ///< whether certificates are checked
    RestTLSEvents tls{};
    std::size_t receivedBytes = 0;  ///< what came over the connection, where it has been closed
};

/// What the end of an exchange means for a person. Throws std::bad_alloc where memory was exhausted.
[[nodiscard]] CMRestResult classifyEnding(const RestEnding& ending);

}  // namespace cf

#endif
