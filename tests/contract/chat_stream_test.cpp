#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "cf/stream.h"
#include "chat_fixture.h"

using Texts = std::vector<std::string>;

namespace {

class ChatStreaming : public ChatContract {
protected:
    ChatStreaming() : m_session(createSession()) { converse(*m_session, "q1", "a1"); }

    /// The body of an answer in these pieces, to its end.
    static std::string writeAnswer(const Texts& pieces) {
        std::string body;
        for (const std::string& piece : pieces) {
            body += GetParam().stream.writePiece(quote(piece));
        }
        return body + GetParam().stream.end;
    }

    static LoopbackReply stream(const std::string& body) {
        return {.headers = {{"Content-Type", "text/event-stream"}},
                .body = body,
                .framing = LoopbackFraming::Chunked,
                .chunkBytes = 64};
    }

    /// Says it with a stream, and keeps the pieces.
    ChatAnswer sayStreamed(const std::string& text) {
        m_pieces.clear();
        const CMTextStream stream([this](std::string_view piece) { m_pieces.emplace_back(piece); });
        return say(*m_session, text);
    }

    /// Expects a streamed turn to fail with this text and to leave no trace.
    void expectBroken(const std::string& error) {
        const std::string before = m_session->serializeSession();
        EXPECT_EQ(sayStreamed("failing").error, error);
        expectNoTrace(before);
    }

    /// Expects the session to be as it was, and the next turn to go well.
    void expectNoTrace(const std::string& before) {
        EXPECT_EQ(m_session->serializeSession(), before);
        m_history.messages.emplace_back(0, "going on");
        converse(*m_session, "going on", "good");
        EXPECT_EQ(obtainLastRequest().body, writeBody(m_history));
        m_history.messages.emplace_back(1, "good");
    }

    SessionHandle m_session;
    ExpectedTurn m_history{.messages = {{0, "q1"}, {1, "a1"}}};
    Texts m_pieces;
};

INSTANTIATE_FOR_CHAT_PROVIDERS(ChatStreaming);

}  // namespace

TEST_P(ChatStreaming, AsksForPiecesTellsEachAndKeepsTheAnswer) {
    const Texts pieces{"Hel", "lo \xe2\x82\xac", "\n\"world\""};
    answer(stream(writeAnswer(pieces)));
    const ChatAnswer result = sayStreamed("q2");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.text, "Hello \xe2\x82\xac\n\"world\"");
    EXPECT_EQ(m_pieces, pieces);
    ExpectedTurn expected = m_history;
    expected.messages.emplace_back(0, "q2");
    expected.isStreamed = true;
    EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
    EXPECT_EQ(obtainLastRequest().target, GetParam().stream.target("m"));
    expectHeaders(obtainLastRequest());
    expected.messages.insert(expected.messages.end(), {{1, result.text}, {0, "q3"}});
    expected.isStreamed = false;
    converse(*m_session, "q3", "a3");
    EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
    EXPECT_EQ(obtainLastRequest().target, obtainTarget(GetParam().chatPath("m")));
}

TEST_P(ChatStreaming, TellsAPieceBeforeTheNextHasCome) {
    LoopbackReply reply = stream(writeAnswer({"first", "second"}));
    reply.framing = LoopbackFraming::ContentLength;
    reply.fault = LoopbackFault::StallInBody;
    reply.faultAt = GetParam().stream.writePiece(quote("first")).size();
    answer(reply);
    Texts pieces;
    const CMTextStream stream([&](std::string_view piece) {
        pieces.emplace_back(piece);
        m_server.releaseStalls();  // the server sends nothing more until the first piece was told
    });
    EXPECT_EQ(say(*m_session, "q2").text, "firstsecond");
    EXPECT_EQ(pieces, (Texts{"first", "second"}));
}

TEST_P(ChatStreaming, ReadsAnAnswerHoweverItTravels) {
    const Texts pieces{"A", "\xf0\x9f\x98\x80", "B"};
    std::string body;
    for (const std::string& piece : pieces) {
        for (const std::string& noise : GetParam().stream.noise) {
            body += noise;
        }
        body += GetParam().stream.writePiece(quote(piece));
    }
    body += GetParam().stream.end;
    LoopbackReply chunked = stream(body);
    chunked.chunkBytes = 1;
    LoopbackReply dripped = stream(body);
    dripped.dripBytes = 7;
    LoopbackReply atOnce = stream(body);
    atOnce.framing = LoopbackFraming::ContentLength;
    LoopbackReply untilClose = stream(body);
    untilClose.framing = LoopbackFraming::UntilClose;
    LoopbackReply compressed = stream(body);
    compressed.isCompressed = true;
    for (const LoopbackReply& reply : {chunked, dripped, atOnce, untilClose, compressed}) {
        answer(reply);
        EXPECT_EQ(sayStreamed("q").text,
                  "A\xf0\x9f\x98\x80"
                  "B");
        EXPECT_EQ(m_pieces, pieces);
    }
}

TEST_P(ChatStreaming, GivesOnePieceWhereTheServiceAnswersWhole) {
    answerText("whole");
    EXPECT_EQ(sayStreamed("q2").text, "whole");
    EXPECT_EQ(m_pieces, Texts{"whole"});
    answerText("");
    EXPECT_EQ(sayStreamed("q3").error, "");
    EXPECT_EQ(m_pieces, Texts());
}

TEST_P(ChatStreaming, LeavesTheConversationWhereAnAnswerBreaksOff) {
    answer(stream(GetParam().stream.writePiece(quote("half"))));
    expectBroken("Invalid response" + GetParam().invalidSuffix("m"));
    EXPECT_EQ(m_pieces, Texts{"half"});
    LoopbackReply cut = stream(writeAnswer({"half", std::string(1000, 'x')}));
    cut.fault = LoopbackFault::CutInBody;
    answer(cut);
    const std::string before = m_session->serializeSession();
    const std::string error = sayStreamed("failing").error;
    EXPECT_NE(error, "");
    EXPECT_EQ(error.find(": "), std::string::npos) << error;
    expectNoTrace(before);
}

TEST_P(ChatStreaming, LeavesTheConversationWhereAnEventIsOfAnotherForm) {
    const std::string piece = GetParam().stream.writePiece(quote("x"));
    answer(stream(piece + GetParam().stream.writePiece("{") + GetParam().stream.end));
    expectBroken("Invalid response" + GetParam().invalidSuffix("m"));
    answerBody("{}");
    expectBroken("Unsupported data format" + GetParam().unsupportedSuffix("m"));
    answerBody("");
    expectBroken("Invalid response" + GetParam().invalidSuffix("m"));
}

TEST_P(ChatStreaming, ReportsWhatTheServiceSaysInTheMiddle) {
    const ChatStream& provider = GetParam().stream;
    answer(stream(provider.writePiece(quote("half")) + provider.error + provider.end));
    expectBroken(provider.errorText);
    EXPECT_EQ(m_pieces, Texts{"half"});
    LoopbackReply stalled = stream(provider.error + provider.end);
    stalled.framing = LoopbackFraming::ContentLength;
    stalled.fault = LoopbackFault::StallInBody;
    stalled.faultAt = provider.error.size();
    answer(stalled);
    expectBroken(provider.errorText);
}

TEST_P(ChatStreaming, ReportsARefusalLikeAWholeTurn) {
    answer(LoopbackReply{.status = 401, .body = R"({"error":{"message":"bad key"}})"});
    expectBroken("bad key");
    answer(LoopbackReply{.status = 500});
    expectBroken("HTTP 500 Internal Server Error");
    EXPECT_EQ(m_pieces, Texts());
}

TEST_P(ChatStreaming, EndsATurnWhoseReceiverThrows) {
    answer(stream(writeAnswer({"a", "b"})));
    const std::string before = m_session->serializeSession();
    {
        const CMTextStream stream([](std::string_view) { throw std::runtime_error("from the host"); });
        EXPECT_THROW(static_cast<void>(m_assistant->addMessage(m_session.get(), "q2")), std::runtime_error);
    }
    expectNoTrace(before);
}

TEST_P(ChatStreaming, RunsATurnInsideItsReceiverThatIsNotStreamed) {
    const SessionHandle inner = createSession();
    const std::string whole = GetParam().writeReply(quote("inner answer"));
    const std::string pieces = writeAnswer({"a", "b"});
    answer([whole, pieces](const LoopbackRequest& request) {
        return request.body.find("inner question") != std::string::npos ? LoopbackReply{.body = whole} : stream(pieces);
    });
    Texts told;
    {
        const CMTextStream stream([&](std::string_view piece) {
            told.emplace_back(piece);
            EXPECT_EQ(say(*inner, "inner question").text, "inner answer");
            EXPECT_EQ(say(*m_session, "inner question").text, "inner answer");
        });
        EXPECT_EQ(say(*m_session, "q2").text, "ab");
    }
    EXPECT_EQ(told, (Texts{"a", "b"}));
    ExpectedTurn expected = m_history;
    for (int i = 0; i < 2; ++i) {
        expected.messages.insert(expected.messages.end(), {{0, "inner question"}, {1, "inner answer"}});
    }
    expected.messages.insert(expected.messages.end(), {{0, "q2"}, {1, "ab"}, {0, "q3"}});
    converse(*m_session, "q3", "a3");
    EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
}

TEST_P(ChatStreaming, MayLoseItsSessionInsideTheReceiver) {
    answer(stream(writeAnswer({"a", "b"})));
    const CMTextStream stream([this](std::string_view) { m_session.reset(); });
    auto [message, error] = m_assistant->addMessage(m_session.get(), "q2");
    const KAIPtr<IKAIMessage> owned(message);
    EXPECT_EQ(error, "");
}

TEST_P(ChatStreaming, CanBeCancelledBetweenTwoPieces) {
    LoopbackReply reply = stream(writeAnswer({"first", "second"}));
    reply.framing = LoopbackFraming::ContentLength;
    reply.fault = LoopbackFault::StallInBody;
    reply.faultAt = GetParam().stream.writePiece(quote("first")).size();
    answer(reply);
    CMRestGlobalSettings settings = makeSettings();
    settings.cancelled = [this] { return !m_pieces.empty(); };
    KAISetHTTPSettings(settings);
    const std::string before = m_session->serializeSession();
    EXPECT_NE(sayStreamed("failing").error, "");
    EXPECT_EQ(m_pieces, Texts{"first"});
    KAISetHTTPSettings(makeSettings());
    expectNoTrace(before);
}

TEST_P(ChatStreaming, FailsForAnAnswerLongerThanIsAllowed) {
    CMRestGlobalSettings settings = makeSettings();
    settings.maxResponseBytes = 10'000;
    KAISetHTTPSettings(settings);
    answer(stream(writeAnswer(Texts(1000, "piece"))));
    const std::string before = m_session->serializeSession();
    EXPECT_NE(sayStreamed("failing").error, "");
    KAISetHTTPSettings(makeSettings());
    expectNoTrace(before);
}

TEST_P(ChatStreaming, IsTracedLikeAnyOtherExchange) {
    const std::string body = writeAnswer({"a", "b"});
    answer(stream(body));
    std::vector<CMRestTraceRecord> records;
    CMRestGlobalSettings settings = makeSettings();
    settings.trace = [&records](const CMRestTraceRecord& record) { records.push_back(record); };
    KAISetHTTPSettings(settings);
    EXPECT_EQ(sayStreamed("q2").text, "ab");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].status, 200);
    EXPECT_EQ(records[0].resultCode, 0);
    EXPECT_EQ(records[0].responseBytes, body.size());
    EXPECT_GT(records[0].firstByte.count(), 0);
    EXPECT_LE(records[0].firstByte, records[0].duration);
}

TEST_P(ChatStreaming, IsAskedForOnlyByTheThreadThatOpenedIt) {
    const std::string whole = GetParam().writeReply(quote("whole"));
    const std::string pieces = writeAnswer({"a", "b"});
    answer([whole, pieces](const LoopbackRequest& request) {
        return request.body.find("other thread") != std::string::npos ? LoopbackReply{.body = whole} : stream(pieces);
    });
    const AssistantHandle other = createAssistant();
    const SessionHandle session = createSession(*other);
    std::atomic<bool> isOpen = false;
    std::thread thread([&] {
        while (!isOpen) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(say(*other, *session, "other thread").text, "whole");
        }
    });
    {
        const CMTextStream stream([this](std::string_view piece) { m_pieces.emplace_back(piece); });
        isOpen = true;
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(say(*m_session, "q").text, "ab");
        }
    }
    thread.join();
    EXPECT_EQ(m_pieces.size(), 40U);
}
