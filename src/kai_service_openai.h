#ifndef KAI_SERVICE_OPENAI_H
#define KAI_SERVICE_OPENAI_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai_http.h"

namespace kai {

/// What an exchange with the OpenAI service gave: the response with its JSON, or an error text.
struct ServiceAnswer {
    std::unique_ptr<CMRestResourceResponse> response;
    std::string errorText;

    /// The response's JSON; null for a response that has none and after a failed exchange.
    [[nodiscard]] const COJson* findJson() const;
    /// A member of the response's outermost object; undefined where there is none.
    [[nodiscard]] COJsonValue obtainMember(std::string_view key) const;
};

/// The OpenAI service's resources over HTTPS: builds the URLs below "v1" and reports failures as text.
///
/// A failed exchange is reported in the service's own words, or the transport's where the service says nothing. The
/// library's own errors end in a suffix that names the request and writes "id" in place of identifiers.
class OpenAIService {
public:
    /// @param restSession  carries the credential and the protocol's header; borrowed
    explicit OpenAIService(CMRestSession& restSession) : m_restSession(restSession) {}

    /// The segments below "v1": words of the protocol, and ids as the service gave them.
    using Path = std::vector<std::string>;

    /// Gets a resource. An answer without JSON is an error only where the suffix is not empty.
    ServiceAnswer get(const std::string& host, const Path& path, const HTTP::Params& queryParams,
                      std::string_view suffix);
    /// Posts to a resource, with or without a body; the answer must be JSON.
    ServiceAnswer post(const std::string& host, const Path& path, ICOJsonValue* body, std::string_view suffix);
    /// Posts, and reads the "id" of the resource that came of it. An id that cannot stand in a path is no id.
    /// @return the id and the error text
    std::pair<std::string, std::string> postForID(const std::string& host, const Path& path, ICOJsonValue* body,
                                                  std::string_view suffix);
    /// Deletes a resource.
    /// @return the error text
    std::string deleteResource(const std::string& host, const Path& path);

private:
    CMRestSession& m_restSession;
};

}  // namespace kai

#endif
