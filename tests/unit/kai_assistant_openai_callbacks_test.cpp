#include <gtest/gtest.h>

#include <stdexcept>

#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

struct HostError : std::runtime_error {
    HostError() : std::runtime_error("from the host") {}
};

/// How a host's callback throws in the middle of an exchange.
enum class Throwing {
    Cancelled,  ///< before the request is sent
    Trace,      ///< when the answer is there
};

/// An OpenAI assistant whose host does more in its HTTP callbacks than look on.
class OpenAICallbacks : public OpenAITest {
protected:
    using Trace = std::function<void(const CMRestTraceRecord&)>;

    void useTrace(Trace trace) {
        CMRestGlobalSettings settings = makeSettings();
        settings.trace = std::move(trace);
        KAISetHTTPSettings(settings);
    }

    /// From here on the callback throws in the exchange that follows so many others.
    void throwAfter(int exchanges, Throwing throwing) {
        m_exchanges = 0;
        CMRestGlobalSettings settings = makeSettings();
        settings.trace = [this, exchanges, throwing](const CMRestTraceRecord&) {
            if (m_exchanges++ == exchanges && throwing == Throwing::Trace) {
                throw HostError();
            }
        };
        settings.cancelled = [this, exchanges, throwing] {
            if (m_exchanges == exchanges && throwing == Throwing::Cancelled) {
                throw HostError();
            }
            return false;
        };
        KAISetHTTPSettings(settings);
    }

    void behave() { KAISetHTTPSettings(makeSettings()); }

    /// Expects a new assistant with one session to come and go.
    void expectUsableAnew() {
        EXPECT_EQ(m_assistant->obtainAssistantID(), "");
        createOnService();
        const auto session = createSession();
        takeRequests();
        EXPECT_EQ(m_assistant->destroySession(session.get()), "");
        EXPECT_EQ(takeRequests().back(), "DELETE /v1/assistants/asst_1") << "no session is left in the list";
        EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    }

    int m_exchanges = 0;

private:
    [[nodiscard]] CMRestGlobalSettings makeSettings() const {
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_server.obtainCAFile();
        return settings;
    }
};

class OpenAIThrowingCallbacks : public OpenAICallbacks, public testing::WithParamInterface<Throwing> {
protected:
    void throwAfter(int exchanges) { OpenAICallbacks::throwAfter(exchanges, GetParam()); }

    /// Whether the server was asked although the callback threw.
    [[nodiscard]] static bool isAsked() { return GetParam() == Throwing::Trace; }
};

INSTANTIATE_TEST_SUITE_P(Callbacks, OpenAIThrowingCallbacks, testing::Values(Throwing::Cancelled, Throwing::Trace),
                         [](const auto& kind) { return kind.param == Throwing::Trace ? "Trace" : "Cancelled"; });

}  // namespace

TEST_P(OpenAIThrowingCallbacks, LeaveTheSessionWhereItsThreadsDeletionThrows) {
    createOnService();
    const auto session = createSession();
    const std::string before = session->serializeSession();
    takeRequests();
    throwAfter(0);
    EXPECT_THROW(m_assistant->destroySession(session.get()), HostError);
    EXPECT_EQ(takeRequests().size(), isAsked() ? 1U : 0U);
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(session->serializeSession(), before);
    behave();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveNoAssistantWhereItsDeletionThrows) {
    createOnService();
    const auto session = createSession();
    throwAfter(1);
    EXPECT_THROW(m_assistant->destroySession(session.get()), HostError);
    behave();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "Session not found");
    EXPECT_EQ(m_assistant->createSession().second, "Assistant not initialized, set assistant properties");
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveNoSessionWhereItsCreationThrows) {
    createOnService();
    throwAfter(0);
    EXPECT_THROW(m_assistant->createSession(), HostError);
    EXPECT_EQ(takeRequests().size(), isAsked() ? 1U : 0U);
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    behave();
    const auto session = createSession();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveThePropertiesWhereACreationOnTheServiceThrows) {
    throwAfter(0);
    EXPECT_THROW(set("model", "m"), HostError);
    EXPECT_EQ(get("model").stringValue(), "");
    behave();
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveThePropertiesButTheHostWhereAModificationThrows) {
    createOnService();
    const auto session = createSession();
    const std::string host = m_server.obtainAuthority() + "/";
    throwAfter(0);
    EXPECT_THROW(m_assistant->setAssistantProperties([&host](IKAIProperties* properties) {
        properties->setProperty("model", "refused");
        properties->setProperty("api_host", host);
    }),
                 HostError);
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(get("model").stringValue(), "m");
    EXPECT_EQ(get("api_host").stringValue(), host) << "it is taken before the request that threw";
    behave();
    EXPECT_EQ(set("model", "taken"), "");
    EXPECT_EQ(get("model").stringValue(), "taken");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveTheSessionWhereAnyRequestOfATurnThrows) {
    createOnService();
    const auto session = createSession();
    const std::string before = session->serializeSession();
    for (int exchanges = 0; exchanges < 4; ++exchanges) {
        takeRequests();
        throwAfter(exchanges);
        EXPECT_THROW(m_assistant->addMessage(session.get(), "q"), HostError);
        EXPECT_EQ(takeRequests().size(), exchanges + (isAsked() ? 1U : 0U));
        EXPECT_EQ(session->serializeSession(), before);
        behave();
        const auto [message, error] = m_assistant->addMessage(session.get(), "q");
        EXPECT_EQ(error, "");
        KAIFreeObject(message);
    }
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    expectUsableAnew();
}

TEST_P(OpenAIThrowingCallbacks, LeaveTheAssistantWhereAModelListThrows) {
    throwAfter(0);
    EXPECT_THROW(m_assistant->obtainAvailableModels(), HostError);
    behave();
    expectUsableAnew();
}

TEST_F(OpenAICallbacks, MayCreateSessionsWhileOneIsDestroyed) {
    createOnService();
    const auto first = createSession();
    const auto second = createSession();
    std::vector<std::unique_ptr<IKAISession>> nested;
    useTrace([this, &nested](const CMRestTraceRecord& record) {
        if (record.method == "DELETE" && nested.empty()) {
            for (int i = 0; i < 40; ++i) {
                nested.push_back(createSession());
            }
        }
    });
    takeRequests();
    EXPECT_EQ(m_assistant->destroySession(first.get()), "");
    ASSERT_EQ(nested.size(), 40U);
    EXPECT_EQ(takeRequests().size(), 41U) << "the assistant is still in use";
    EXPECT_EQ(m_assistant->destroySession(first.get()), "Session not found");
    EXPECT_EQ(m_assistant->destroySession(second.get()), "");
    for (const auto& session : nested) {
        EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
        EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    }
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    EXPECT_EQ(takeRequests().back(), "DELETE /v1/assistants/asst_1");
}

TEST_F(OpenAICallbacks, MayKeepTheAssistantByASessionCreatedWhileTheLastIsDestroyed) {
    createOnService();
    const auto last = createSession();
    std::unique_ptr<IKAISession> next;
    useTrace([this, &next](const CMRestTraceRecord& record) {
        if (record.method == "DELETE" && !next) {
            next = createSession();
        }
    });
    takeRequests();
    EXPECT_EQ(m_assistant->destroySession(last.get()), "");
    EXPECT_EQ(takeRequests(), (Texts{"DELETE /v1/threads/thread_1", "POST /v1/threads"}));
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(m_assistant->destroySession(next.get()), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
}

TEST_F(OpenAICallbacks, MayDestroyASessionThatIsBeingDestroyed) {
    createOnService();
    auto session = createSession();
    bool isNested = false;
    useTrace([&, this](const CMRestTraceRecord&) {
        if (!isNested) {
            isNested = true;
            EXPECT_EQ(m_assistant->destroySession(session.get()), "");
            session.reset();
        }
    });
    takeRequests();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_TRUE(isNested);
    EXPECT_EQ(takeRequests(),
              (Texts{"DELETE /v1/threads/thread_1", "DELETE /v1/threads/thread_1", "DELETE /v1/assistants/asst_1"}))
        << "the assistant is deleted once";
    expectUsableAnew();
}

TEST_F(OpenAICallbacks, MayCreateANewAssistantWhileTheFormerIsDeleted) {
    createOnService();
    const auto session = createSession();
    useTrace([this](const CMRestTraceRecord& record) {
        if (record.method == "DELETE" && record.url.ends_with("/v1/assistants/asst_1")) {
            answer("POST /v1/assistants", R"({"id":"asst_2"})");
            EXPECT_EQ(set("model", "next"), "");
        }
    });
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_2");
    EXPECT_EQ(get("model").stringValue(), "next");
}
