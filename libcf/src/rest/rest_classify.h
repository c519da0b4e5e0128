#ifndef CF_SRC_REST_CLASSIFY_H
#define CF_SRC_REST_CLASSIFY_H

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>

#include "cf/rest.h"
#include "rest/rest_receipt.h"

namespace cf {

/// What OpenSSL reported about the TLS connection that an exchange used last.
struct RestTLSEvents {
    bool isBegun = false;        ///< whether the handshake has begun: the peer has accepted the connection
    bool isClosed = false;       ///< whether the peer has closed TLS properly, with close_notify
    bool hasFatalAlert = false;  ///< whether the peer has ended the connection with a fatal alert
    bool isPlainHTTP = false;    ///< whether the peer answered the handshake with plain HTTP
    long verification = 0;       ///< why OpenSSL rejected the certificate; 0: it did not
};

/// What is known about an exchange that libcurl has ended.
struct RestEnding {
    CURLcode code = CURLE_OK;
    RestHeaderBlock headers{};
    bool isDecodedWhole = true;
    long status = 0;                 ///< of the last header block; 0: none
    long proxyStatus = 0;            ///< of a proxy's answer to CONNECT; 0: none
    std::int64_t contentLength = 0;  ///< as libcurl understood it; negative: unknown
    bool isRequestBegun = false;     ///< whether the connection, TLS included, was ready for the request
    bool hasProxy = false;
    bool isProxyTLS = false;  ///< whether the connection to the proxy uses TLS
    long proxyVerification = 0;
    bool isTLS = false;      ///< whether the URL's scheme is https
    bool isChecked = false;  ///< whether certificates are checked
    RestTLSEvents tls{};
    std::size_t receivedBytes = 0;  ///< over the connection that was closed last
};

/// The result of an exchange that has ended. Throws std::bad_alloc if memory was exhausted.
[[nodiscard]] CMRestResult classifyEnding(const RestEnding& ending);

}  // namespace cf

#endif
