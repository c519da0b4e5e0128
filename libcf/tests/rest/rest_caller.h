#ifndef CF_TESTS_REST_CALLER_H
#define CF_TESTS_REST_CALLER_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cf/rest.h"

/// What came of an exchange.
struct RestResult {
    std::int32_t code = 0;
    std::string text;  ///< the error-text service's words for the code
    std::unique_ptr<CMRestResourceResponse> response;

    [[nodiscard]] std::string obtainBody() const { return response ? response->getBufferString() : "(no response)"; }
};

/// A body that is a JSON string.
class RestTextBody : public ICOJsonValue {
public:
    explicit RestTextBody(std::string text) : m_text(std::move(text)) {}
    void writeJson(COJsonWriter& writer) const override { writer.writeString(m_text); }

private:
    std::string m_text;
};

/// A body that comes in several pieces.
class RestPiecesBody : public ICOJsonValue {
public:
    explicit RestPiecesBody(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            auto owner = std::make_shared<const std::string>(text);
            const std::string_view view = *owner;
            m_pieces.push_back({view, std::move(owner)});
        }
    }
    void writeJson(COJsonWriter& /*writer*/) const override { throw std::logic_error("the pieces are sent"); }
    std::vector<COJsonPiece> obtainJsonPieces() const override { return m_pieces; }

private:
    std::vector<COJsonPiece> m_pieces;
};

/// Runs requests as the library's users do: settings, a session and a pool, all to be changed by the test.
class RestCaller {
public:
    RestCaller();

    RestResult get(const std::string& url, const CMRestParams& queryParams = {}, const CMRestParams& headers = {});
    /// Without a body when it is null.
    RestResult post(const std::string& url, const ICOJsonValue* body, const CMRestParams& queryParams = {},
                    const CMRestParams& headers = {});
    RestResult post(const std::string& url, const std::string& text);
    RestResult post(const CMRestPostRequest& request);
    RestResult remove(const std::string& url);

    /// Keeps what the trace is told in `records`.
    void recordTrace();

    CMRestGlobalSettings settings;
    std::unique_ptr<ICSHTTPPoolCenter> pool;
    CMRestSession session;
    std::vector<CMRestTraceRecord> records;

private:
    template <typename Request, typename Run>
    RestResult run(const Request& request, Run runRequest);
};

/// Whether libcurl itself rejects transfer codings that it was not told to accept: 8.14.1 does, 7.88.1 does not.
bool rejectsTransferCodings();

/// The words for a result code.
std::string describeRestCode(std::int32_t code);

#endif
