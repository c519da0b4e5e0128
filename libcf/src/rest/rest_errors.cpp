#include "rest/rest_errors.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "cf/rest.h"
#include "text/numbers.h"

namespace cf {

namespace {

struct FailureText {
    CMRestResult failure;
    std::string_view text;
};

constexpr auto kFailureTexts = std::to_array<FailureText>({
    {CMRestResult::Success, ""},
    {CMRestResult::InvalidURL,
     "The URL cannot be requested: it must be a whole http or https URL without blanks or control "
     "characters"},
    {CMRestResult::InvalidHeader,
     "A request header or the API key holds a character that is not allowed there, such as a line break"},
    {CMRestResult::UnreadableCABundle, "The file of trusted certificates cannot be read or holds no certificate"},
    {CMRestResult::NoSystemTrustStore,
     "This system has no trusted certificates: install its CA certificates or name a file of them"},
    {CMRestResult::UnresolvedHost, "The server's name cannot be resolved: check the host name and the network"},
    {CMRestResult::NoConnection,
     "No connection to the server: check the host and port, and that the server is running"},
    {CMRestResult::Proxy, "The proxy cannot be used: check its address and credentials, and that it is running"},
    {CMRestResult::UntrustedCertificate, "The server's certificate is not trusted: no trusted authority has issued it"},
    {CMRestResult::OutdatedCertificate,
     "The server's certificate is expired or not valid yet: check the server and this computer's clock"},
    {CMRestResult::WrongHostCertificate, "The server's certificate was issued for another host name"},
    {CMRestResult::TLS, "No secure connection to the server: the TLS handshake failed"},
    {CMRestResult::ConnectTimeout, "Time-out: no connection to the server within the time limit"},
    {CMRestResult::RequestTimeout, "Time-out: the server did not finish its answer within the time limit"},
    {CMRestResult::BrokenConnection, "The connection broke before the whole answer had arrived"},
    {CMRestResult::OversizedResponse, "The server's answer is larger than the limit"},
    {CMRestResult::MalformedResponse, "The server's answer is not valid HTTP"},
    {CMRestResult::Cancelled, "The request was cancelled"},
    {CMRestResult::Interrupted, "The request was interrupted by an error of the application"},
    {CMRestResult::Other, "The request failed inside the HTTP transport"},
    {CMRestResult::OversizedRequest, "The request's URL or headers are longer than can be sent"},
    {CMRestResult::UserInfoInURL, "The host must be named without a user name or password before it"},
    {CMRestResult::NonASCIIHost,
     "The host name has characters beyond ASCII: name it in its ASCII form, which begins with xn--"},
    {CMRestResult::TLSAlert, "No secure connection to the server: it refused the TLS handshake with an alert"},
    {CMRestResult::TLSTimeout,
     "Time-out: the server accepted the connection but did not finish the TLS handshake within the time limit"},
    {CMRestResult::PlainHTTPServer, "No secure connection to the server: it speaks plain HTTP, not TLS"},
});

std::string_view describeFailure(CMRestResult failure) {
    const auto place = std::ranges::find(kFailureTexts, failure, &FailureText::failure);
    return place == kFailureTexts.end() ? "Unknown error" : place->text;
}

struct StatusPhrase {
    std::int32_t status;
    std::string_view phrase;
};

/// The statuses that IANA's registry of HTTP status codes gives a reason phrase (as of 2026-11), in ascending order.
/// Unused and temporary entries are left out.
constexpr auto kStatusPhrases = std::to_array<StatusPhrase>({
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
});

/// The reason phrase of a status; empty where it has none.
std::string_view obtainReasonPhrase(std::int32_t status) {
    const auto place = std::ranges::lower_bound(kStatusPhrases, status, {}, &StatusPhrase::status);
    return place != kStatusPhrases.end() && place->status == status ? place->phrase : std::string_view();
}

std::string describeStatus(std::int32_t status) {
    char digits[kNumberTextSize];
    std::string text = "HTTP ";
    text.append(digits, spellNumber(digits, status));
    if (const std::string_view phrase = obtainReasonPhrase(status); !phrase.empty()) {
        text += ' ';
        text += phrase;
    }
    return text;
}

}  // namespace

std::string describeRestResult(std::int32_t resultCode) {
    if (resultCode >= 100) {
        return describeStatus(resultCode);
    }
    return std::string(describeFailure(static_cast<CMRestResult>(resultCode)));
}

}  // namespace cf
