// The services that docs/providers.md lists: what each sends, read through the library.

#include <gtest/gtest.h>

#include <atomic>

#include "cf/assertion.h"
#include "cf/stream.h"
#include "chat_fixture.h"
#include "service_shapes.h"

namespace {

class Services : public testing::TestWithParam<ServiceShapes> {
protected:
    Services()
        : m_server([this](const LoopbackRequest& request) { return answer(request); },
                   {.tls = GetParam().isPlain ? LoopbackTLS::Off : LoopbackTLS::Valid}) {
        cfSetAssertionHandler([](const char*, const char*, int) {});
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_server.obtainCAFile();
        settings.plainHTTPHosts = {m_server.obtainAuthority()};
        if (!GetParam().isPlain) {
            settings.plainHTTPHosts.clear();
        }
        KAISetHTTPSettings(settings);
        m_assistant.reset(KAICreateAssistant(GetParam().type, cfCreateHTTPPoolCenter(), "secret",
                                             m_server.obtainAuthority() + GetParam().path));
        static_cast<void>(m_assistant->setAssistantProperties(
            [](IKAIProperties* properties) { static_cast<void>(properties->setProperty("model", "m")); }));
        m_session.reset(m_assistant->createSession().first);
    }
    ~Services() override {
        m_session.reset();
        m_assistant.reset();
        KAISetHTTPSettings(CMRestGlobalSettings());
        cfSetAssertionHandler(nullptr);
    }

    /// The text of the answer, or the error in angle brackets.
    std::string ask() {
        auto [raw, error] = m_assistant->addMessage(m_session.get(), "How many?");
        const KAIPtr<IKAIMessage> message(raw);
        return message ? std::string(message->obtainSections().front()->obtainText()) : "<" + error + ">";
    }

    LoopbackReply answer(const LoopbackRequest& request) const {
        const ServiceShapes& shapes = GetParam();
        if (!request.path.starts_with(shapes.path)) {
            return {.status = 404};
        }
        if (m_isFailing) {
            return {.status = shapes.errorStatus, .body = shapes.error};
        }
        const bool isStreamed = request.body.find("\"stream\":true") != std::string::npos ||
                                request.path.find(":streamGenerateContent") != std::string::npos;
        return {.body = request.method == "GET" ? shapes.models : isStreamed ? shapes.stream : shapes.reply};
    }

    std::atomic<bool> m_isFailing = false;
    LoopbackServer m_server;
    KAIPtr<IKAIAssistant> m_assistant;
    KAIPtr<IKAISession> m_session;
};

INSTANTIATE_TEST_SUITE_P(All, Services, testing::ValuesIn(listServiceShapes()),
                         [](const auto& test) { return test.param.name; });

}  // namespace

TEST_P(Services, ListTheirModels) {
    const auto [models, error] = m_assistant->obtainAvailableModels();
    EXPECT_EQ(error, GetParam().modelsError);
    EXPECT_EQ(models, GetParam().modelNames);
}

TEST_P(Services, AnswerWhole) {
    EXPECT_EQ(ask(), "Count them: 3.");
}

TEST_P(Services, AnswerInPieces) {
    std::vector<std::string> pieces;
    const CMTextStream stream([&](std::string_view piece) { pieces.emplace_back(piece); });
    EXPECT_EQ(ask(), "Count them: 3.");
    EXPECT_EQ(pieces, (std::vector<std::string>{"Count them: ", "3."}));
}

TEST_P(Services, ReportErrorsInTheirWords) {
    m_isFailing = true;
    EXPECT_EQ(ask(), "<" + GetParam().errorText + ">");
}
