#include <gtest/gtest.h>
#include <zlib.h>

#include <array>
#include <string>
#include <vector>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Compressed bodies: each must come to the end of its compressed data, not only to that of its framing.

namespace {

constexpr const char* kBroken = "The connection broke before the whole answer had arrived";
constexpr const char* kMalformed = "The server's answer is not valid HTTP";

constexpr int kGzip = MAX_WBITS + 16;
constexpr int kZlib = MAX_WBITS;
constexpr int kBareDeflate = -MAX_WBITS;

constexpr std::array kFramings{LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose};

std::string compress(std::string text, int windowBits, int level = Z_DEFAULT_COMPRESSION) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string result(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    result.resize(stream.total_out);
    deflateEnd(&stream);
    return result;
}

/// A text that does not shrink to next to nothing.
std::string makeText(std::size_t size) {
    std::string text;
    for (std::uint32_t state = 1; text.size() < size; state = state * 1664525U + 1013904223U) {
        text += static_cast<char>('a' + (state >> 24U) % 26U);
    }
    return text;
}

LoopbackReply codeReply(const std::string& coding, const std::string& body) {
    return {.headers = {{"Content-Encoding", coding}}, .body = body};
}

RestResult getReply(const LoopbackReply& reply, LoopbackTLS tls = LoopbackTLS::Off) {
    LoopbackServer server([&](const LoopbackRequest&) { return reply; }, {.tls = tls});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    return caller.get(server.obtainURL());
}

void expectFailure(const RestResult& result, const char* text, std::size_t place) {
    EXPECT_EQ(result.text, text) << place;
    EXPECT_EQ(result.response, nullptr) << place;
}

}  // namespace

TEST(RestCoding, NamesAGzipBodyThatIsCutWithinItsFraming) {
    const std::string whole = compress(makeText(60'000), kGzip);
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const LoopbackFraming framing : kFramings) {
            for (const std::size_t place : std::vector<std::size_t>{1, 2, 9, 10, 11, 5000, whole.size() / 2,
                                                                    whole.size() - 8, whole.size() - 1}) {
                LoopbackReply reply = codeReply("gzip", whole.substr(0, place));
                reply.framing = framing;
                reply.isClosedAfter = framing == LoopbackFraming::UntilClose;
                expectFailure(getReply(reply, tls), kBroken, place);
            }
        }
    }
}

TEST(RestCoding, NamesACutGzipBodyOfAnErrorToo) {
    LoopbackReply reply = codeReply("gzip", compress("why", kGzip).substr(0, 12));
    reply.status = 500;
    expectFailure(getReply(reply), kBroken, 12);
}

TEST(RestCoding, TakesBareDeflateWhoseFirstByteOnlyResemblesZlibs) {
    // Two stored blocks. The first byte names zlib's method, with a window that zlib does not have.
    const std::string bare("\x88\x02\x00\xFD\xFFok\x01\x00\x00\xFF\xFF", 12);
    EXPECT_EQ(getReply(codeReply("deflate", bare)).obtainBody(), "ok");
}

TEST(RestCoding, NamesADeflateBodyThatIsCutWithinItsFraming) {
    for (const int windowBits : {kZlib, kBareDeflate}) {
        const std::string whole = compress(makeText(1000), windowBits);
        for (const std::size_t place : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
            expectFailure(getReply(codeReply("deflate", whole.substr(0, place))), kBroken, place);
        }
    }
}

TEST(RestCoding, DecompressesWhateverItIsCalled) {
    const std::string text = makeText(100'000);
    for (const int level : {0, 1, 9}) {
        for (const char* const name : {"gzip", "x-gzip", "GZip", " identity , gzip", "gzip,", "gzip, none"}) {
            EXPECT_EQ(getReply(codeReply(name, compress(text, kGzip, level))).obtainBody(), text) << name;
        }
        EXPECT_EQ(getReply(codeReply("deflate", compress(text, kZlib, level))).obtainBody(), text) << level;
        EXPECT_EQ(getReply(codeReply("Deflate", compress(text, kBareDeflate, level))).obtainBody(), text) << level;
    }
    for (const char* const name : {"identity", "none", "", "Identity, identity"}) {
        EXPECT_EQ(getReply(codeReply(name, text)).obtainBody(), text) << name;
    }
}

TEST(RestCoding, DecompressesABodyThatComesByteByByte) {
    const std::string text = makeText(300);
    for (const int windowBits : {kGzip, kZlib, kBareDeflate}) {
        const std::string once = compress(text, windowBits);
        LoopbackReply reply =
            codeReply(windowBits == kGzip ? "gzip" : "deflate", windowBits == kGzip ? once + once : once);
        reply.framing = LoopbackFraming::Chunked;
        reply.chunkBytes = 1;
        EXPECT_EQ(getReply(reply).obtainBody(), windowBits == kGzip ? text + text : text);
    }
}

TEST(RestCoding, DecompressesEveryMemberOfAGzipBody) {
    const std::string first = makeText(40'000);
    const std::string body = compress(first, kGzip) + compress("", kGzip) + compress("second", kGzip);
    for (const LoopbackFraming framing : kFramings) {
        LoopbackReply reply = codeReply("gzip", body);
        reply.framing = framing;
        EXPECT_EQ(getReply(reply).obtainBody(), first + "second");
    }
}

TEST(RestCoding, NamesAGzipBodyThatIsCutInItsSecondMember) {
    const std::string first = compress("first", kGzip);
    const std::string second = compress("second", kGzip);
    for (const std::size_t place : {std::size_t{1}, std::size_t{10}, second.size() - 1}) {
        expectFailure(getReply(codeReply("gzip", first + second.substr(0, place))), kBroken, place);
    }
}

TEST(RestCoding, NamesBytesBehindTheEndOfCompressedData) {
    for (const std::string& behind : {std::string("x"), std::string(1, '\0'), std::string(30, 'x')}) {
        expectFailure(getReply(codeReply("gzip", compress("whole", kGzip) + behind)), kMalformed, behind.size());
        expectFailure(getReply(codeReply("deflate", compress("whole", kZlib) + behind)), kMalformed, behind.size());
        expectFailure(getReply(codeReply("deflate", compress("whole", kBareDeflate) + behind)), kMalformed,
                      behind.size());
    }
    const std::string zlib = compress("whole", kZlib);
    expectFailure(getReply(codeReply("deflate", zlib + zlib)), kMalformed, zlib.size());
}

TEST(RestCoding, NamesCompressedDataThatIsDamaged) {
    std::string damaged = compress(makeText(1000), kGzip);
    damaged[damaged.size() - 6] ^= 1;  // in the checksum
    expectFailure(getReply(codeReply("gzip", damaged)), kMalformed, 0);
    expectFailure(getReply(codeReply("deflate", "\x78\x9C\x07")), kMalformed, 0);
    expectFailure(getReply(codeReply("deflate", "\x07")), kMalformed, 0);
}

TEST(RestCoding, NamesACodingThatItDoesNotKnow) {
    for (const char* const name : {"br", "zstd", "compress", "gzip, gzip", "other", "gzip, other"}) {
        const RestResult result = getReply(codeReply(name, compress("body", kGzip)));
        EXPECT_EQ(result.text, kMalformed) << name;
        EXPECT_EQ(result.response, nullptr) << name;
    }
}

TEST(RestCoding, MeansNothingWithoutABody) {
    for (const char* const name : {"gzip", "deflate", "other"}) {
        for (const LoopbackFraming framing : kFramings) {
            LoopbackReply reply = codeReply(name, "");
            reply.framing = framing;
            EXPECT_EQ(getReply(reply).text, "") << name;
        }
        LoopbackReply reply = codeReply(name, "");
        reply.status = 304;
        EXPECT_EQ(getReply(reply).text, "HTTP 304 Not Modified");
    }
}

TEST(RestCoding, CountsOnlyWhereTheResponseItselfNamesIt) {
    const LoopbackReply reply{.raw =
                                  "HTTP/1.1 103 Early Hints\r\nContent-Encoding: gzip\r\n\r\n"
                                  "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                  "2\r\nok\r\n0\r\nContent-Encoding: gzip\r\n\r\n"};
    EXPECT_EQ(getReply(reply).obtainBody(), "ok");
}

TEST(RestCoding, LimitsWhatAllMembersDecompressTo) {
    const std::string member = compress(std::string(1000, 'm'), kGzip);
    LoopbackServer server([&](const LoopbackRequest&) { return codeReply("gzip", member + member); });
    RestCaller caller;
    caller.settings.maxResponseBytes = 1999;
    expectFailure(caller.get(server.obtainURL()), "The server's answer is larger than the limit", 1999);
    caller.settings.maxResponseBytes = 2000;
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), std::string(2000, 'm'));
}

TEST(RestCoding, IsForgottenWithItsExchange) {
    std::size_t served = 0;
    const std::string whole = compress("whole", kGzip);
    LoopbackServer server([&](const LoopbackRequest&) {
        return ++served == 2 ? LoopbackReply{.body = "plain"} : codeReply("gzip", whole);
    });
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "whole");
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "plain");
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "whole");
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestCoding, DecompressesATransferCodingThatNobodyAskedForUnlessLibcurlRejectsIt) {
    const std::string member = compress("member", kGzip);
    for (const bool isChunked : {false, true}) {
        const auto get = [&](const std::string& body) {
            LoopbackReply reply{.headers = {{"Transfer-Encoding", "gzip"}}, .body = body};
            reply.framing = isChunked ? LoopbackFraming::Chunked : LoopbackFraming::UntilClose;
            return getReply(reply);
        };
        expectFailure(get(member + "behind"), kMalformed, member.size());
        if (rejectsTransferCodings()) {
            expectFailure(get(member), kMalformed, 0);
            continue;
        }
        EXPECT_EQ(get(member).obtainBody(), "member");
        EXPECT_EQ(get(member + member).obtainBody(), "membermember");
        expectFailure(get(member.substr(0, member.size() - 1)), kBroken, member.size() - 1);
    }
    LoopbackReply reply{.headers = {{"Transfer-Encoding", "other"}}, .body = member};
    reply.framing = LoopbackFraming::Chunked;
    expectFailure(getReply(reply), kMalformed, 0);
}

TEST(RestCoding, DoesNotTakeChunksForACodingOfTheContent) {
    expectFailure(getReply(codeReply("chunked", "body")), kMalformed, 0);
}
