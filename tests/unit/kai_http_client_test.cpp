#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "kai_http.h"

// What the library hands to the transport, seen from the other side: this program has an application factory of its
// own, which stands before libcf's.

namespace {

/// What a client was asked to run.
struct RecordedRun {
    std::string method;
    std::uint32_t mark = 0;
    std::uint32_t firstMember = 0;
    std::string url;
    CMRestParams queryParams{};
    CMRestParams headerParams{};
    std::string body = "none";
};

/// A response that counts itself.
class CountedResponse : public CMRestResourceResponse {
public:
    explicit CountedResponse(int& count) : CMRestResourceResponse(200, "body"), m_count(count) { ++m_count; }
    ~CountedResponse() override { --m_count; }

private:
    int& m_count;
};

/// What is to happen to a run, and what happened.
struct Transport {
    bool isRunThrowing = false;
    bool isDescriptionThrowing = false;
    std::int32_t resultCode = 0;
    bool hasResponse = true;

    ICSAppFactory* factory = nullptr;
    CMRestSession* session = nullptr;
    std::string userAgent{};
    std::vector<RecordedRun> runs{};
    int clients = 0;
    int liveClients = 0;
    int liveResponses = 0;
};

Transport s_transport;

/// The first data member, which stands behind the pointer to the class's virtual functions.
std::uint32_t readFirstMember(const CMRestRequest& request) {
    std::uint32_t member = 0;
    std::memcpy(&member, reinterpret_cast<const char*>(&request) + sizeof(void*), sizeof member);
    return member;
}

class RecordingClient : public ICSRestClient {
public:
    RecordingClient() {
        ++s_transport.clients;
        ++s_transport.liveClients;
    }
    ~RecordingClient() override { --s_transport.liveClients; }

    std::int32_t runGet(const CMRestGetRequest& request, CMRestResourceResponse*& response) override {
        return run("GET", request, nullptr, response);
    }
    std::int32_t runPost(const CMRestPostRequest& request, CMRestResourceResponse*& response) override {
        return run("POST", request, request.obtainBodyPieces(), response);
    }
    std::int32_t runDelete(const CMRestDeleteRequest& request, CMRestResourceResponse*& response) override {
        return run("DELETE", request, nullptr, response);
    }

private:
    static std::int32_t run(const char* method, const CMRestRequest& request, const std::vector<COJsonPiece>* body,
                            CMRestResourceResponse*& response) {
        EXPECT_EQ(response, nullptr) << "the out pointer is null at first";
        s_transport.runs.push_back({.method = method,
                                    .mark = request.m_requestMark,
                                    .firstMember = readFirstMember(request),
                                    .url = request.obtainURL(),
                                    .queryParams = request.obtainQueryParams(),
                                    .headerParams = request.obtainHeaderParams(),
                                    .body = body != nullptr ? std::string(body->at(0).text) : "none"});
        if (s_transport.isRunThrowing) {
            throw std::runtime_error("from the transport");
        }
        if (s_transport.hasResponse) {
            response = new CountedResponse(s_transport.liveResponses);
        }
        return s_transport.resultCode;
    }
};

class RecordingService : public ICSRestService {
public:
    ICSRestClient* createRestClient(ICSAppFactory* factory, const CMRestGlobalSettings& settings,
                                    CMRestSession* session) override {
        s_transport.factory = factory;
        s_transport.session = session;
        s_transport.userAgent = settings.userAgent;
        return new RecordingClient;
    }
};

class RecordingErrorTextService : public ICSErrorTextService {
public:
    CMErrorRecord describe(std::int32_t resultCode) override {
        if (s_transport.isDescriptionThrowing) {
            throw std::runtime_error("from the error texts");
        }
        return {resultCode, "text of " + std::to_string(resultCode)};
    }
};

class RecordingFactory : public ICSAppFactory {
public:
    ICSRestService* obtainRestService() override { return &m_restService; }
    ICSErrorTextService* obtainErrorTextService() override { return &m_errorTextService; }

private:
    RecordingService m_restService;
    RecordingErrorTextService m_errorTextService;
};

class KAIHTTPClient : public testing::Test {
protected:
    KAIHTTPClient() {
        s_transport = Transport();
        CMRestGlobalSettings settings;
        settings.userAgent = "host/1";
        HTTP::setGlobalSettings(settings);
    }
    ~KAIHTTPClient() override { HTTP::setGlobalSettings(CMRestGlobalSettings()); }

    /// One call of each helper.
    using Call = HTTP::Result (*)(CMRestSession* session);
    static constexpr Call kCalls[] = {
        [](CMRestSession* session) {
            return HTTP::Get(session, "https://h/g", {{"q", "1"}, {"r", "2"}}, {{"X-G", "g"}});
        },
        [](CMRestSession* session) {
            COJson body;
            body.addKeyValue("k").setString("v");
            return HTTP::Post(session, "https://h/p", &body, {{"s", "3"}}, {{"X-P", "p"}, {"X-Q", "q"}});
        },
        [](CMRestSession* session) { return HTTP::Delete(session, "https://h/d"); },
    };

    CMRestSession m_session;
};

}  // namespace

ICSAppFactory* CF::obtainAppFactory() {
    static RecordingFactory factory;
    return &factory;
}

TEST_F(KAIHTTPClient, IsMadeOnceForEachCallWithFactorySettingsAndSession) {
    int calls = 0;
    for (const Call call : kCalls) {
        s_transport.factory = nullptr;
        s_transport.session = nullptr;
        s_transport.userAgent.clear();
        const auto [response, error] = call(&m_session);
        EXPECT_EQ(s_transport.factory, CF::obtainAppFactory());
        EXPECT_EQ(s_transport.session, &m_session);
        EXPECT_EQ(s_transport.userAgent, "host/1");
        EXPECT_EQ(s_transport.clients, ++calls);
        EXPECT_EQ(s_transport.liveClients, 0);
        EXPECT_EQ(s_transport.liveResponses, 1) << "the response is the caller's";
        EXPECT_EQ(error, "");
        delete response;
    }
}

TEST_F(KAIHTTPClient, GetsARequestWhoseFirstMemberHoldsTheLibrarysMark) {
    for (const Call call : kCalls) {
        delete call(&m_session).first;
    }
    ASSERT_EQ(s_transport.runs.size(), 3U);
    for (const RecordedRun& run : s_transport.runs) {
        EXPECT_EQ(run.mark, 2062955722U) << run.method;
        EXPECT_EQ(run.firstMember, 2062955722U) << run.method;
        EXPECT_EQ(run.firstMember, 0x7AF634CAU);
    }
}

TEST_F(KAIHTTPClient, GetsEveryPartOfARequest) {
    for (const Call call : kCalls) {
        delete call(&m_session).first;
    }
    ASSERT_EQ(s_transport.runs.size(), 3U);
    const RecordedRun& get = s_transport.runs[0];
    EXPECT_EQ(get.method + " " + get.url + " " + get.body, "GET https://h/g none");
    EXPECT_EQ(get.queryParams, (CMRestParams{{"q", "1"}, {"r", "2"}}));
    EXPECT_EQ(get.headerParams, (CMRestParams{{"X-G", "g"}}));
    const RecordedRun& post = s_transport.runs[1];
    EXPECT_EQ(post.method + " " + post.url + " " + post.body, R"(POST https://h/p {"k":"v"})");
    EXPECT_EQ(post.queryParams, (CMRestParams{{"s", "3"}}));
    EXPECT_EQ(post.headerParams, (CMRestParams{{"X-P", "p"}, {"X-Q", "q"}}));
    const RecordedRun& deletion = s_transport.runs[2];
    EXPECT_EQ(deletion.method + " " + deletion.url + " " + deletion.body, "DELETE https://h/d none");
    EXPECT_TRUE(deletion.queryParams.empty());
    EXPECT_TRUE(deletion.headerParams.empty());
}

TEST_F(KAIHTTPClient, GetsNoBodyAndNoParametersWhereThereAreNone) {
    delete HTTP::Post(nullptr, "https://h/p", nullptr, {}, {}).first;
    delete HTTP::Get(nullptr, "https://h/g", {}, {}).first;
    EXPECT_EQ(s_transport.session, nullptr);
    for (const RecordedRun& run : s_transport.runs) {
        EXPECT_EQ(run.body, "none");
        EXPECT_TRUE(run.queryParams.empty());
        EXPECT_TRUE(run.headerParams.empty());
    }
}

TEST_F(KAIHTTPClient, IsDeletedAlsoWhereItsRunThrows) {
    s_transport.isRunThrowing = true;
    int calls = 0;
    for (const Call call : kCalls) {
        EXPECT_THROW(call(&m_session), std::runtime_error);
        EXPECT_EQ(s_transport.clients, ++calls);
        EXPECT_EQ(s_transport.liveClients, 0);
        EXPECT_EQ(s_transport.liveResponses, 0);
    }
}

TEST_F(KAIHTTPClient, LeavesNoResponseWhereTheErrorTextThrows) {
    s_transport.resultCode = 401;
    s_transport.isDescriptionThrowing = true;
    for (const Call call : kCalls) {
        EXPECT_THROW(call(&m_session), std::runtime_error);
        EXPECT_EQ(s_transport.liveClients, 0);
        EXPECT_EQ(s_transport.liveResponses, 0);
    }
}

TEST_F(KAIHTTPClient, GivesTheTextOfItsResultCodeWithTheResponseAsItStands) {
    s_transport.resultCode = 401;
    for (const bool hasResponse : {true, false}) {
        s_transport.hasResponse = hasResponse;
        for (const Call call : kCalls) {
            const auto [response, error] = call(&m_session);
            EXPECT_EQ(error, "text of 401");
            EXPECT_EQ(response != nullptr, hasResponse);
            delete response;
        }
    }
}

TEST_F(KAIHTTPClient, MaySucceedWithoutAResponse) {
    s_transport.hasResponse = false;
    for (const Call call : kCalls) {
        const auto [response, error] = call(&m_session);
        EXPECT_EQ(response, nullptr);
        EXPECT_EQ(error, "");
    }
}
