#ifndef KAI_SERVICE_OPENAI_H
#define KAI_SERVICE_OPENAI_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai_http.h"

namespace kai {

/// The result of an exchange with the OpenAI service: the response with its JSON, or an error text.
struct ServiceAnswer {
    std::unique_ptr<CMRestResourceResponse> response;
    std::string errorText;

    /// The response's JSON; null for a response that has none and after a failed exchange.
    [[nodiscard]] const COJson* findJson() const;
    /// A member of the response's outermost object; undefined if there is none.
    [[nodiscard]] COJsonValue obtainMember(std::string_view key) const;
};

/// The OpenAI service's resources over HTTPS: builds the URLs below "v1" and reports failures as text.
///
/// A failed exchange is reported with the service's text, or the transport's if the service sent none. The library's
/// own errors end in a suffix that names the request, with "id" in place of identifiers.
class OpenAIService {
public:
    /// @param restSession  has the credential and the protocol's header; borrowed
    explicit OpenAIService(CMRestSession& restSession) : m_restSession(restSession) {}

    /// The segments below "v1": words of the protocol, and ids as the service sent them.
    using Path = std::vector<std::string>;

    /// Gets a resource. A response without JSON is an error only if the suffix is not empty.
    ServiceAnswer get(const std::string& host, const Path& path, const HTTP::Params& queryParams,
                      std::string_view suffix);
    /// Posts to a resource, with or without a body; the response must be JSON.
    ServiceAnswer post(const std::string& host, const Path& path, ICOJsonValue* body, std::string_view suffix);
    /// Posts, and reads the "id" of the resulting resource. An id that cannot be a segment of a path is an error.
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
