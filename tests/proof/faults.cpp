#include "faults.h"

#include <utility>

#include "loopback_http.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kShortTime = 60ms;

void limitTime(CMRestGlobalSettings& settings) {
    settings.requestTimeout = kShortTime;
}

Fault replaceByRaw(std::string name, std::string raw, FaultEnds ends, bool isClosed = true) {
    return {std::move(name),
            [raw = std::move(raw), isClosed](const LoopbackReply&, const LoopbackRequest&) {
                return LoopbackReply{.raw = raw, .isClosedAfter = isClosed};
            },
            std::move(ends)};
}

/// A change of the good reply.
Fault change(std::string name, void (*spoil)(LoopbackReply&), FaultEnds ends) {
    return {std::move(name),
            [spoil](const LoopbackReply& good, const LoopbackRequest&) {
                LoopbackReply reply = good;
                spoil(reply);
                return reply;
            },
            std::move(ends)};
}

/// A change of the good reply's bytes.
Fault changeBytes(std::string name, std::function<std::string(std::string wire)> spoil, FaultEnds ends,
                  bool isCompressed = false, bool isClosed = true) {
    return {
        std::move(name),
        [spoil = std::move(spoil), isCompressed, isClosed](const LoopbackReply& good, const LoopbackRequest& request) {
            LoopbackReply reply = good;
            reply.isCompressed = isCompressed;
            return LoopbackReply{.raw = spoil(writeOnWire(reply, request)), .isClosedAfter = isClosed};
        },
        std::move(ends)};
}

std::string replaceHeader(std::string wire, const std::string& name, const std::string& line) {
    const std::size_t start = wire.find(name);
    const std::size_t end = wire.find("\r\n", start);
    return wire.replace(start, end - start, line);
}

std::string insertHeader(std::string wire, const std::string& lines) {
    return wire.insert(wire.find("\r\n") + 2, lines);
}

std::string repeat(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

const std::vector<CMRestResult> kBroken{CMRestResult::BrokenConnection};
const std::vector<CMRestResult> kBrokenOrMalformed{CMRestResult::BrokenConnection, CMRestResult::MalformedResponse};
const std::vector<CMRestResult> kTooMuch{CMRestResult::OversizedResponse, CMRestResult::MalformedResponse,
                                         CMRestResult::BrokenConnection};

void addFramings(std::vector<Fault>& faults) {
    faults.push_back(changeBytes("a length that is one byte too long",
                                 [](std::string wire) {
                                     const std::size_t size = wire.size() - wire.find("\r\n\r\n") - 4;
                                     return replaceHeader(std::move(wire), "Content-Length",
                                                          "Content-Length: " + std::to_string(size + 1));
                                 },
                                 {.codes = kBroken}));
    faults.push_back(changeBytes(
        "a length that is one byte too short",
        [](std::string wire) {
            const std::size_t size = wire.size() - wire.find("\r\n\r\n") - 4;
            return replaceHeader(std::move(wire), "Content-Length", "Content-Length: " + std::to_string(size - 1));
        },
        // A streamed answer may be whole without its last byte, a blank.
        {.codes = kBrokenOrMalformed, .maySucceed = true, .mayBeUnreadable = true}, false, false));
    for (const char* length : {"-1", "18446744073709551616", "0x10", "1,2", "ten"}) {
        faults.push_back(changeBytes(std::string("the length \"") + length + "\"",
                                     [length](std::string wire) {
                                         return replaceHeader(std::move(wire), "Content-Length",
                                                              std::string("Content-Length: ") + length);
                                     },
                                     {.codes = kBrokenOrMalformed, .maySucceed = true, .mayBeUnreadable = true}));
    }
    faults.push_back(changeBytes(
        "two lengths", [](std::string wire) { return insertHeader(std::move(wire), "Content-Length: 3\r\n"); },
        {.codes = kTooMuch, .maySucceed = true, .mayBeUnreadable = true}));
    for (const char* chunk : {"zz\r\n{}\r\n0\r\n\r\n", "ffffffffffffffffff\r\n{}\r\n0\r\n\r\n", "5\r\n{}\r\n0\r\n\r\n",
                              "2\r\n{}", "2\r\n{}\r\n", "2\r\n{}\r\n0\r\n", "2\r\n{}XX0\r\n\r\n", "\r\n\r\n"}) {
        faults.push_back(replaceByRaw(std::string("the chunks ") + chunk,
                                      std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n") + chunk,
                                      {.codes = kBrokenOrMalformed, .mayBeUnreadable = true}));
    }
    faults.push_back(change("a body that ends with its connection",
                            [](LoopbackReply& reply) { reply.framing = LoopbackFraming::UntilClose; },
                            {.maySucceed = true}));
    faults.push_back(change("chunks of one byte",
                            [](LoopbackReply& reply) {
                                reply.framing = LoopbackFraming::Chunked;
                                reply.chunkBytes = 1;
                            },
                            {.maySucceed = true}));
    faults.push_back(change("a drip", [](LoopbackReply& reply) { reply.dripBytes = 16; }, {.maySucceed = true}));
}

void addCompressions(std::vector<Fault>& faults) {
    faults.push_back(change("gzip", [](LoopbackReply& reply) { reply.isCompressed = true; }, {.maySucceed = true}));
    for (const std::size_t fromEnd : {1U, 4U, 8U, 9U, 12U, 20U}) {
        faults.push_back(changeBytes(
            "gzip with a wrong byte " + std::to_string(fromEnd) + " before its end",
            [fromEnd](std::string wire) {
                wire[wire.size() - fromEnd] = static_cast<char>(wire[wire.size() - fromEnd] ^ 0x55);
                return wire;
            },
            {.codes = kBrokenOrMalformed}, true));
    }
    faults.push_back(
        changeBytes("gzip that is plain text",
                    [](std::string wire) { return insertHeader(std::move(wire), "Content-Encoding: gzip\r\n"); },
                    {.codes = kBrokenOrMalformed}));
    faults.push_back({"a gzip bomb",
                      [](const LoopbackReply&, const LoopbackRequest&) {
                          return LoopbackReply{.body = std::string(std::size_t{4} << 20U, ' '), .isCompressed = true};
                      },
                      {.codes = {CMRestResult::OversizedResponse}},
                      [](CMRestGlobalSettings& settings) { settings.maxResponseBytes = std::size_t{1} << 20U; }});
    faults.push_back(
        {"a body beyond the limit",
         [](const LoopbackReply&, const LoopbackRequest&) { return LoopbackReply{.body = std::string(10'001, ' ')}; },
         {.codes = {CMRestResult::OversizedResponse}},
         [](CMRestGlobalSettings& settings) { settings.maxResponseBytes = 10'000; }});
    faults.push_back({"a body without an end",
                      [](const LoopbackReply&, const LoopbackRequest&) {
                          return LoopbackReply{.raw = "HTTP/1.1 200 OK\r\n\r\n", .endless = std::string(1000, ' ')};
                      },
                      {.codes = {CMRestResult::OversizedResponse}},
                      [](CMRestGlobalSettings& settings) { settings.maxResponseBytes = 10'000; }});
}

void addHeaders(std::vector<Fault>& faults) {
    const auto addHeader = [&faults](const char* name, std::string lines, FaultEnds ends) {
        faults.push_back(changeBytes(
            name, [lines = std::move(lines)](std::string wire) { return insertHeader(std::move(wire), lines); },
            std::move(ends), false, false));
    };
    addHeader("a header of 400,000 bytes", "X: " + std::string(400'000, 'x') + "\r\n", {.codes = kTooMuch});
    addHeader("40,000 headers", repeat("X-Header: some value\r\n", 40'000), {.codes = kTooMuch});
    addHeader("a NUL in a header", std::string("X: a\0b\r\n", 8), {.codes = kTooMuch, .maySucceed = true});
    addHeader("a header without a colon", "nonsense\r\n", {.codes = kTooMuch, .maySucceed = true});
    addHeader("a folded header", "X: a\r\n b\r\n", {.codes = kTooMuch, .maySucceed = true});
    addHeader("a header in Latin-1", "X: \xe4\xf6\xfc\r\n", {.maySucceed = true});
    faults.push_back({"headers without an end",
                      [](const LoopbackReply&, const LoopbackRequest&) {
                          return LoopbackReply{.raw = "HTTP/1.1 200 OK\r\n", .endless = repeat("X: y\r\n", 1000)};
                      },
                      {.codes = kTooMuch}});
    faults.push_back({"interim responses without an end",
                      [](const LoopbackReply&, const LoopbackRequest&) {
                          return LoopbackReply{.raw = "HTTP/1.1 100 Continue\r\n\r\n",
                                               .endless = repeat("HTTP/1.1 103 Early Hints\r\n\r\n", 100)};
                      },
                      {.codes = {CMRestResult::OversizedResponse, CMRestResult::MalformedResponse,
                                 CMRestResult::BrokenConnection, CMRestResult::RequestTimeout}},
                      limitTime});
    faults.push_back(changeBytes(
        "a hundred interim responses",
        [](const std::string& wire) { return repeat("HTTP/1.1 103 Early Hints\r\nLink: <a>\r\n\r\n", 100) + wire; },
        {.codes = kTooMuch, .maySucceed = true}, false, false));
    for (const char* raw : {"", "\r\n\r\n", "nonsense", "HTTP/1.1\r\n\r\n", "HTTP/1.1 2x0 OK\r\n\r\n{}",
                            "HTTP/9.9 200 OK\r\n\r\n{}", "HTTP/1.1 099 Low\r\n\r\n{}", "ICY 200 OK\r\n\r\n{}",
                            "220 mail.example ESMTP\r\n", "\x15\x03\x01\x00\x02\x02\x28", "SSH-2.0-server\r\n"}) {
        faults.push_back(replaceByRaw(std::string("no HTTP: \"") + raw + "\"", raw,
                                      {.codes = kBrokenOrMalformed, .mayBeUnreadable = true}));
    }
}

/// A reply, and behind it bytes that nobody has asked for: they must never be taken for the answer to what comes next.
/// @param pause  between the two
Fault addLateBytes(std::string name, std::string late, std::chrono::milliseconds pause) {
    return {
        std::move(name),
        [late = std::move(late), pause](const LoopbackReply& good, const LoopbackRequest& request) {
            const std::string wire = writeOnWire(good, request);
            if (pause == 0ms) {
                return LoopbackReply{.raw = wire + late};
            }
            return LoopbackReply{
                .raw = wire + late, .fault = LoopbackFault::StallInBody, .faultAt = wire.size(), .stallLimit = pause};
        },
        {.maySucceed = true},
        {},
        2 * pause};
}

void addLateReplies(std::vector<Fault>& faults) {
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";
    const std::string timeout = "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    for (const std::chrono::milliseconds pause : {0ms, 5ms}) {
        const std::string when = pause == 0ms ? " at once" : " after a pause";
        faults.push_back(addLateBytes("a second answer" + when, answer, pause));
        faults.push_back(addLateBytes("a 408 that nobody caused" + when, timeout, pause));
        faults.push_back(addLateBytes("rubbish behind the answer" + when, "rubbish", pause));
        faults.push_back(addLateBytes("a blank line behind the answer" + when, "\r\n", pause));
    }
}

}  // namespace

std::string writeOnWire(const LoopbackReply& reply, const LoopbackRequest& request) {
    const LoopbackWireReply wire = writeLoopbackReply(reply, request.method);
    return wire.head + wire.body;
}

std::vector<Fault> listStatusFaults() {
    struct Body {
        const char* name;
        const char* text;
        const char* message;
    };
    constexpr Body kBodies[] = {
        {"nothing", "", ""},
        {"JSON", R"({"error":{"message":"The service says no","code":"no"}})", "The service says no"},
        {"JSON of another form", R"({"error":"no"})", ""},
        {"HTML", "<html><body>Bad Gateway</body></html>", ""},
    };
    std::vector<Fault> faults;
    for (int status = 300; status <= 599; ++status) {
        const std::string name = std::to_string(status) + " with ";
        for (const Body& body : kBodies) {
            const bool hasBody = status != 304;
            faults.push_back(
                {name + body.name,
                 [status, text = body.text](const LoopbackReply&, const LoopbackRequest&) {
                     return LoopbackReply{.status = status, .body = text};
                 },
                 {.status = status, .body = hasBody ? body.text : "", .message = hasBody ? body.message : ""}});
        }
        if (status != 304) {
            faults.push_back({name + "a body that is cut",
                              [status, text = kBodies[1].text](const LoopbackReply&, const LoopbackRequest&) {
                                  return LoopbackReply{
                                      .status = status, .body = text, .fault = LoopbackFault::CutInBody};
                              },
                              {.codes = kBroken}});
        }
    }
    return faults;
}

std::vector<Fault> listBrokenConnections(std::size_t replyBytes) {
    std::vector<Fault> faults;
    const auto addFault = [&faults](std::string name, LoopbackFault fault, FaultEnds ends, auto change) {
        faults.push_back({std::move(name),
                          [fault](const LoopbackReply& good, const LoopbackRequest&) {
                              LoopbackReply reply = good;
                              reply.fault = fault;
                              return reply;
                          },
                          std::move(ends), change});
    };
    constexpr auto kNoChange = [](CMRestGlobalSettings&) {};
    addFault("closed before the reply", LoopbackFault::CloseBeforeReply, {.codes = kBroken}, kNoChange);
    addFault("reset before the reply", LoopbackFault::ResetBeforeReply, {.codes = kBroken}, kNoChange);
    addFault("stalled before the reply", LoopbackFault::StallBeforeReply, {.codes = {CMRestResult::RequestTimeout}},
             limitTime);
    addFault("stalled in the body", LoopbackFault::StallInBody, {.codes = {CMRestResult::RequestTimeout}}, limitTime);
    for (std::size_t place = 1; place < replyBytes; ++place) {
        for (const LoopbackFault fault : {LoopbackFault::CutInBody, LoopbackFault::ResetInBody}) {
            faults.push_back(
                {(fault == LoopbackFault::CutInBody ? "cut at byte " : "reset at byte ") + std::to_string(place),
                 [place, fault](const LoopbackReply& good, const LoopbackRequest& request) {
                     return LoopbackReply{.raw = writeOnWire(good, request), .fault = fault, .faultAt = place};
                 },
                 {.codes = kBrokenOrMalformed}});
        }
    }
    return faults;
}

std::vector<Fault> listMalformedReplies() {
    std::vector<Fault> faults;
    addFramings(faults);
    addCompressions(faults);
    addHeaders(faults);
    addLateReplies(faults);
    return faults;
}
