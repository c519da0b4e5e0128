#include <gtest/gtest.h>

#include <array>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Whether a response arrived whole: where its headers end, and what says where its body does.

namespace {

constexpr std::array kPlainAndTLS{LoopbackTLS::Off, LoopbackTLS::Valid};

void expectBreak(const RestResult& result, const std::string& raw) {
    EXPECT_EQ(result.text, "The connection broke before the whole answer had arrived") << raw;
    EXPECT_LT(result.code, 100) << raw;
    EXPECT_EQ(result.response, nullptr) << raw;
}

/// What comes of the bytes `raw` followed by the connection's end, over TLS with its close.
RestResult getRaw(const std::string& raw, LoopbackTLS tls, std::int32_t* tracedStatus = nullptr) {
    LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{.raw = raw, .isClosedAfter = true}; },
                          {.tls = tls});
    RestCaller caller;
    caller.recordTrace();
    caller.settings.caBundleFile = server.obtainCAFile();
    RestResult result = caller.get(server.obtainURL());
    if (tracedStatus != nullptr) {
        *tracedStatus = caller.records.at(0).status;
    }
    return result;
}

/// What comes of the bytes `raw` followed by the end of a TLS connection without its close.
RestResult getCutTLS(const std::string& raw) {
    LoopbackServer server(
        [&](const LoopbackRequest&) {
            return LoopbackReply{.raw = raw, .fault = LoopbackFault::CutInBody, .faultAt = raw.size()};
        },
        {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    return caller.get(server.obtainURL());
}

}  // namespace

TEST(RestEnding, NamesHeadersCutShort) {
    for (const LoopbackTLS tls : kPlainAndTLS) {
        for (const std::string status : {"200 OK", "204 No Content", "304 Not Modified", "401 Unauthorized", "500 No",
                                         "100 Continue", "101 Switching Protocols", "103 Early Hints"}) {
            const std::string line = "HTTP/1.1 " + status + "\r\n";
            for (const std::string& raw :
                 {line, line + "X-A: b\r\n", line + "X-A: b\r\nContent-Le", line + "Content-Length: 0\r\n\r"}) {
                std::int32_t tracedStatus = -1;
                expectBreak(getRaw(raw, tls, &tracedStatus), raw);
                EXPECT_TRUE(tracedStatus == 0 || tracedStatus >= 200) << raw;
            }
        }
    }
}

TEST(RestEnding, NamesHeadersCutShortWithoutATLSClose) {
    for (const char* const raw :
         {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 204 No Content\r\nX-A", "HTTP/1.1 103 Early Hints\r\n"}) {
        expectBreak(getCutTLS(raw), raw);
    }
}

TEST(RestEnding, NamesAStatusLineCutShort) {
    for (const LoopbackTLS tls : kPlainAndTLS) {
        for (const char* const raw : {"H", "HTTP/1.1", "HTTP/1.1 200", "HTTP/1.1 200 OK\r"}) {
            expectBreak(getRaw(raw, tls), raw);
        }
    }
}

TEST(RestEnding, NamesAnInterimResponseWithoutAResponseBehindIt) {
    for (const LoopbackTLS tls : kPlainAndTLS) {
        for (const std::string interim :
             {"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 103 Early Hints\r\nX-A: b\r\n\r\n"}) {
            for (const std::string& raw : {interim, interim + "HTTP/1.1 2", interim + "HTTP/1.1 200 OK\r\n",
                                           interim + "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"}) {
                expectBreak(getRaw(raw, tls), raw);
            }
        }
    }
}

TEST(RestEnding, TakesHeadersThatEndWithBareLineFeeds) {
    for (const LoopbackTLS tls : kPlainAndTLS) {
        EXPECT_EQ(getRaw("HTTP/1.1 200 OK\nContent-Length: 2\n\nok", tls).obtainBody(), "ok");
        EXPECT_EQ(getRaw("HTTP/1.1 204 No Content\n\n", tls).text, "");
    }
}

TEST(RestEnding, TakesTrailersForWhatTheyAre) {
    for (const std::string trailer : {"X-A: b", "HTTP/1.1: b", "Content-Length: 7"}) {
        const std::string raw =
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n" + trailer + "\r\n\r\n";
        for (const LoopbackTLS tls : kPlainAndTLS) {
            EXPECT_EQ(getRaw(raw, tls).obtainBody(), "ok") << trailer;
        }
        EXPECT_EQ(getCutTLS(raw).obtainBody(), "ok") << trailer;
    }
}

TEST(RestEnding, TakesChunksForTheEndOnlyWhereTheResponseAnnouncesThem) {
    const std::string final = "HTTP/1.1 200 OK\r\n\r\nok";
    const std::string interim = "HTTP/1.1 103 Early Hints\r\nTransfer-Encoding: ";
    for (const std::string& raw : {interim + "chunked\r\n\r\n" + final, interim + "identity\r\n\r\n" + final,
                                   interim + "gzip, identity\r\n\r\n" + final,
                                   std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\n\r\nok"),
                                   std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: \r\n\r\nok")}) {
        expectBreak(getCutTLS(raw), raw);
    }
    for (const char* const unknown : {"other chunked", "unchunked"}) {
        const std::string raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: " + std::string(unknown) + "\r\n\r\n";
        if (rejectsTransferCodings()) {
            EXPECT_EQ(getCutTLS(raw).text, "The server's answer is not valid HTTP") << raw;
        } else {
            expectBreak(getCutTLS(raw), raw);
        }
    }
}

TEST(RestEnding, KnowsChunksHoweverTheyAreAnnounced) {
    for (const char* const value :
         {"chunked", "  CHUNKED \t", "identity, Chunked", "identity,chunked", "identity, identity, chunked"}) {
        const std::string raw = std::string("HTTP/1.1 200 OK\r\ntransfer-ENCODING:") + value + "\r\n\r\n2\r\nok\r\n";
        EXPECT_EQ(getCutTLS(raw + "0\r\n\r\n").obtainBody(), "ok") << value;
        expectBreak(getCutTLS(raw), raw);
        expectBreak(getRaw(raw, LoopbackTLS::Off), raw);
    }
}

TEST(RestEnding, NamesABodyShorterThanALengthBeyond64Bits) {
    for (const char* const length :
         {"9223372036854775807", "9223372036854775808", "18446744073709551618", "100000000000000000000000000"}) {
        const std::string raw = std::string("HTTP/1.1 200 OK\r\nContent-Length: ") + length + "\r\n\r\nok";
        for (const LoopbackTLS tls : kPlainAndTLS) {
            expectBreak(getRaw(raw, tls), raw);
        }
        expectBreak(getCutTLS(raw), raw);
    }
}

TEST(RestEnding, NeedsNoLengthWhereItSaysNothing) {
    const std::string tooLong = "Content-Length: 100000000000000000000000000\r\n";
    for (const LoopbackTLS tls : kPlainAndTLS) {
        EXPECT_EQ(getRaw("HTTP/1.1 103 Early Hints\r\n" + tooLong + "\r\nHTTP/1.1 200 OK\r\n\r\nok", tls).obtainBody(),
                  "ok");
        EXPECT_EQ(getRaw("HTTP/1.1 304 Not Modified\r\n" + tooLong + "\r\n", tls).text, "HTTP 304 Not Modified");
        const std::string chunks = "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n";
        EXPECT_EQ(getRaw("HTTP/1.1 200 OK\r\n" + tooLong + chunks, tls).obtainBody(), "ok");
    }
}

TEST(RestEnding, HandsBackAnUpgradeThatNobodyAskedFor) {
    for (const LoopbackTLS tls : kPlainAndTLS) {
        for (const std::string interim : {"", "HTTP/1.1 103 Early Hints\r\n\r\n"}) {
            const std::string raw = interim + "HTTP/1.1 101 Switching Protocols\r\nUpgrade: other\r\n\r\n";
            std::int32_t tracedStatus = 0;
            const RestResult result = getRaw(raw, tls, &tracedStatus);
            EXPECT_EQ(result.code, 101);
            EXPECT_EQ(result.text, "HTTP 101 Switching Protocols");
            EXPECT_EQ(tracedStatus, 101);
            ASSERT_NE(result.response, nullptr);
            EXPECT_EQ(result.response->obtainStatus(), 101);
            EXPECT_EQ(result.obtainBody(), "");
        }
    }
}
