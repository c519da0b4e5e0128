#include "conversation/advice.h"

#include <algorithm>
#include <array>

#include "cf/json.h"
#include "cf/rest.h"
#include "cf/utilities.h"

namespace host {
namespace {

struct ResultAdvice {
    CMRestResult result;
    std::string_view text;
};

constexpr std::array<ResultAdvice, 15> kResultAdvice{{
    {CMRestResult::InvalidURL, "check --api-host and --model"},
    {CMRestResult::UnreadableCABundle, "check --ca-file"},
    {CMRestResult::NoSystemTrustStore, "install the package ca-certificates, or name a file with --ca-file"},
    {CMRestResult::UnresolvedHost, "check --api-host and the connection to the network"},
    {CMRestResult::NoConnection, "check --api-host and whether the server runs"},
    {CMRestResult::Proxy, "check --proxy"},
    {CMRestResult::OutdatedCertificate, "check this machine's clock; else the server's certificate must be renewed"},
    {CMRestResult::WrongHostCertificate, "name the host in --api-host as its certificate does"},
    {CMRestResult::TLS, "check --api-host"},
    {CMRestResult::ConnectTimeout, "check --api-host; the time is set with --timeout"},
    {CMRestResult::TLSTimeout, "check --api-host; the time is set with --timeout"},
    {CMRestResult::RequestTimeout, "the time is set with --timeout"},
    {CMRestResult::NonASCIIHost, "give --api-host in its ASCII form, \"xn--...\""},
    {CMRestResult::PlainHTTPServer,
     "where it may go unencrypted, on this machine or in your own network, repeat --api-host's value with "
     "--plain-http"},
    {CMRestResult::UserInfoInURL, "leave name and password out of --api-host"},
}};

std::string adviseOnResult(const FailedExchange& exchange) {
    const auto result = static_cast<CMRestResult>(exchange.resultCode);
    if (result == CMRestResult::UntrustedCertificate) {
        return exchange.isCAFileNamed ? "; the file named with --ca-file does not hold its issuer"
                                      : "; if you trust the server, name its CA with --ca-file";
    }
    if (result == CMRestResult::NoConnection && exchange.provider == "ollama" && exchange.isDefaultHost) {
        return "; start the server with 'ollama serve', or name another with --api-host";
    }
    const auto* found = std::find_if(kResultAdvice.begin(), kResultAdvice.end(),
                                     [&](const ResultAdvice& advice) { return advice.result == result; });
    return found != kResultAdvice.end() ? "; " + std::string(found->text) : std::string();
}

std::string adviseOnStatus(const FailedExchange& exchange) {
    std::string status = " (HTTP " + std::to_string(exchange.resultCode) + ")";
    switch (exchange.resultCode) {
        case 400:
            return status;
        case 401:
        case 403:
            return status + (exchange.keyOrigin.empty() ? "" : "; check the key in " + exchange.keyOrigin);
        case 404:
            return status + "; check --model and --api-host";
        case 402:
            return status + "; check the account's balance";
        case 413:
            return status + "; send less: choose tables with --tables";
        case 429:
            return status + "; wait a while, or check the account's limits";
        default:
            return status + (exchange.resultCode >= 500 ? "; try again later" : "");
    }
}

/// The first text among the members that services use for an error's message, at any depth.
std::string findMessage(const COJsonValue& value) {
    if (value.isString()) {
        return std::string(value.obtainString());
    }
    for (const std::string_view key : {"message", "error", "detail", "msg", "error_message"}) {
        const COJsonValue member = value.obtainMember(key);
        if (std::string text = member.getIsValidJson() ? findMessage(member) : std::string(); !text.empty()) {
            return text;
        }
    }
    for (const COJsonValue item : value.obtainItems()) {
        if (std::string text = findMessage(item); !text.empty()) {
            return text;
        }
    }
    return {};
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

/// The title of a page, otherwise its text without tags.
std::string readPage(const std::string& page) {
    const std::string lower = lowerCase(page);
    const std::size_t begin = lower.find("<title>");
    const std::size_t end = lower.find("</title>");
    std::string text;
    if (begin != std::string::npos && end != std::string::npos && begin < end) {
        text = page.substr(begin + 7, end - begin - 7);
    } else {
        bool isTag = false;
        for (const char character : page) {
            isTag = character == '<' || (isTag && character != '>');
            text += isTag || character == '>' ? ' ' : character;
        }
    }
    return cfTrimAsString(text);
}

}  // namespace

std::string adviseOn(const FailedExchange& exchange) {
    if (!exchange.hasRun) {
        return {};
    }
    // Since 2026-08-26 nothing at this host speaks the protocol any more.
    if (exchange.provider == "openai" && exchange.isDefaultHost && exchange.resultCode >= 200) {
        return "; the service ended this protocol on 26 August 2026: use --provider deepseek --api-host "
               "api.openai.com/v1 with the same key, or --api-host with a server that still speaks it";
    }
    if (exchange.resultCode == static_cast<std::int32_t>(CMRestResult::Success)) {
        return "; the service answered with an error of its own, may have blocked the question, or speaks another "
               "protocol: ask in other words, or check --model, --provider and --api-host";
    }
    return exchange.resultCode < 100 ? adviseOnResult(exchange) : adviseOnStatus(exchange);
}

std::string findServiceWords(const std::string& errorText) {
    const std::string text = cfTrimAsString(errorText);
    if (text.starts_with('{') || text.starts_with('[')) {
        const COJson json{std::string_view(text)};
        const std::string message = findMessage(json.obtainRoot());
        return message.empty() ? errorText : message;
    }
    const std::string beginning = lowerCase(std::string_view(text).substr(0, 200));
    if (beginning.starts_with("<!doctype") || beginning.starts_with("<html") || beginning.starts_with("<?xml")) {
        const std::string words = readPage(text);
        return words.empty() ? "the server sent a page without text in place of an answer"
                             : "the server sent a page in place of an answer: " + words;
    }
    return errorText;
}

}  // namespace host
