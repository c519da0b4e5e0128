#include "rest_errors.h"

#include <string_view>

namespace {

std::string_view describeFailure(CMRestFailure failure) {
    switch (failure) {
        case CMRestFailure::None:
            return "";
        case CMRestFailure::InvalidURL:
            return "The URL cannot be requested: it must be a whole http or https URL without blanks or control "
                   "characters";
        case CMRestFailure::InvalidHeader:
            return "A request header or the API key holds a character that is not allowed there, such as a line break";
        case CMRestFailure::UnreadableCABundle:
            return "The file of trusted certificates cannot be read or holds no certificate";
        case CMRestFailure::NoSystemTrustStore:
            return "This system has no trusted certificates: install its CA certificates or name a file of them";
        case CMRestFailure::UnresolvedHost:
            return "The server's name cannot be resolved: check the host name and the network";
        case CMRestFailure::NoConnection:
            return "No connection to the server: check the host and port, and that the server is running";
        case CMRestFailure::Proxy:
            return "The proxy cannot be used: check its address and credentials, and that it is running";
        case CMRestFailure::UntrustedCertificate:
            return "The server's certificate is not trusted: no trusted authority has issued it";
        case CMRestFailure::OutdatedCertificate:
            return "The server's certificate is expired or not valid yet: check the server and this computer's clock";
        case CMRestFailure::WrongHostCertificate:
            return "The server's certificate was issued for another host name";
        case CMRestFailure::TLS:
            return "No secure connection to the server: the TLS handshake failed";
        case CMRestFailure::ConnectTimeout:
            return "Time-out: no connection to the server within the time limit";
        case CMRestFailure::RequestTimeout:
            return "Time-out: the server did not finish its answer within the time limit";
        case CMRestFailure::BrokenConnection:
            return "The connection broke before the whole answer had arrived";
        case CMRestFailure::OversizedResponse:
            return "The server's answer is larger than the limit";
        case CMRestFailure::MalformedResponse:
            return "The server's answer is not valid HTTP";
        case CMRestFailure::Cancelled:
            return "The request was cancelled";
        case CMRestFailure::Interrupted:
            return "The request was interrupted by an error of the application";
        case CMRestFailure::Other:
            return "The request failed inside the HTTP transport";
    }
    return "Unknown error";
}

/// The reason phrase that RFC 9110 gives a status; empty where it gives none.
std::string_view obtainReasonPhrase(std::int32_t status) {
    switch (status) {
        case 100:
            return "Continue";
        case 101:
            return "Switching Protocols";
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 202:
            return "Accepted";
        case 203:
            return "Non-Authoritative Information";
        case 204:
            return "No Content";
        case 205:
            return "Reset Content";
        case 206:
            return "Partial Content";
        case 300:
            return "Multiple Choices";
        case 301:
            return "Moved Permanently";
        case 302:
            return "Found";
        case 303:
            return "See Other";
        case 304:
            return "Not Modified";
        case 305:
            return "Use Proxy";
        case 307:
            return "Temporary Redirect";
        case 308:
            return "Permanent Redirect";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 402:
            return "Payment Required";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 406:
            return "Not Acceptable";
        case 407:
            return "Proxy Authentication Required";
        case 408:
            return "Request Timeout";
        case 409:
            return "Conflict";
        case 410:
            return "Gone";
        case 411:
            return "Length Required";
        case 412:
            return "Precondition Failed";
        case 413:
            return "Content Too Large";
        case 414:
            return "URI Too Long";
        case 415:
            return "Unsupported Media Type";
        case 416:
            return "Range Not Satisfiable";
        case 417:
            return "Expectation Failed";
        case 421:
            return "Misdirected Request";
        case 422:
            return "Unprocessable Content";
        case 426:
            return "Upgrade Required";
        case 500:
            return "Internal Server Error";
        case 501:
            return "Not Implemented";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        case 504:
            return "Gateway Timeout";
        case 505:
            return "HTTP Version Not Supported";
        default:
            return "";
    }
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
