#include "rest/rest_errors.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

struct FailureText {
    CMRestFailure failure;
    std::string_view text;
};

constexpr auto kFailureTexts = std::to_array<FailureText>({
    {CMRestFailure::None, ""},
    {CMRestFailure::InvalidURL,
     "The URL cannot be requested: it must be a whole http or https URL without blanks or control "
     "characters"},
    {CMRestFailure::InvalidHeader,
     "A request header or the API key holds a character that is not allowed there, such as a line break"},
    {CMRestFailure::UnreadableCABundle, "The file of trusted certificates cannot be read or holds no certificate"},
    {CMRestFailure::NoSystemTrustStore,
     "This system has no trusted certificates: install its CA certificates or name a file of them"},
    {CMRestFailure::UnresolvedHost, "The server's name cannot be resolved: check the host name and the network"},
    {CMRestFailure::NoConnection,
     "No connection to the server: check the host and port, and that the server is running"},
    {CMRestFailure::Proxy, "The proxy cannot be used: check its address and credentials, and that it is running"},
    {CMRestFailure::UntrustedCertificate,
     "The server's certificate is not trusted: no trusted authority has issued it"},
    {CMRestFailure::OutdatedCertificate,
     "The server's certificate is expired or not valid yet: check the server and this computer's clock"},
    {CMRestFailure::WrongHostCertificate, "The server's certificate was issued for another host name"},
    {CMRestFailure::TLS, "No secure connection to the server: the TLS handshake failed"},
    {CMRestFailure::ConnectTimeout, "Time-out: no connection to the server within the time limit"},
    {CMRestFailure::RequestTimeout, "Time-out: the server did not finish its answer within the time limit"},
    {CMRestFailure::BrokenConnection, "The connection broke before the whole answer had arrived"},
    {CMRestFailure::OversizedResponse, "The server's answer is larger than the limit"},
    {CMRestFailure::MalformedResponse, "The server's answer is not valid HTTP"},
    {CMRestFailure::Cancelled, "The request was cancelled"},
    {CMRestFailure::Interrupted, "The request was interrupted by an error of the application"},
    {CMRestFailure::Other, "The request failed inside the HTTP transport"},
});

std::string_view describeFailure(CMRestFailure failure) {
    const auto place = std::ranges::find(kFailureTexts, failure, &FailureText::failure);
    return place == kFailureTexts.end() ? "Unknown error" : place->text;
}

struct StatusPhrase {
    std::int32_t status;
    std::string_view phrase;
};

/// The statuses that RFC 9110 gives a reason phrase, in ascending order.
constexpr auto kStatusPhrases = std::to_array<StatusPhrase>({
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
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
    {426, "Upgrade Required"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
});

/// The reason phrase of a status; empty where it has none.
std::string_view obtainReasonPhrase(std::int32_t status) {
    const auto place = std::ranges::lower_bound(kStatusPhrases, status, {}, &StatusPhrase::status);
    return place != kStatusPhrases.end() && place->status == status ? place->phrase : std::string_view();
}

std::string describeStatus(std::int32_t status) {
    std::string text = "HTTP " + std::to_string(status);
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
    return std::string(describeFailure(static_cast<CMRestFailure>(resultCode)));
}
