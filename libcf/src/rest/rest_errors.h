#ifndef CF_SRC_REST_ERRORS_H
#define CF_SRC_REST_ERRORS_H

#include <cstdint>
#include <string>

/// Why an exchange failed other than by its HTTP status. The values are the result codes of the REST clients; they
/// stay below 100, where the HTTP statuses begin.
enum class CMRestFailure : std::int32_t {
    None = 0,
    InvalidURL = 1,
    InvalidHeader = 2,
    UnreadableCABundle = 3,
    NoSystemTrustStore = 4,
    UnresolvedHost = 5,
    NoConnection = 6,
    Proxy = 7,
    UntrustedCertificate = 8,
    OutdatedCertificate = 9,
    WrongHostCertificate = 10,
    TLS = 11,
    ConnectTimeout = 12,
    RequestTimeout = 13,
    BrokenConnection = 14,
    OversizedResponse = 15,
    MalformedResponse = 16,
    Cancelled = 17,
    Interrupted = 18,
    Other = 19,
};

/// The text of a result code: one line for a person, empty for 0.
[[nodiscard]] std::string describeRestResult(std::int32_t resultCode);

#endif
