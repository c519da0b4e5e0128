#ifndef HOST_ENGINE_SERVER_URL_H
#define HOST_ENGINE_SERVER_URL_H

#include <map>
#include <string>
#include <string_view>

namespace host {

/// The parts of SCHEME://USER@HOST:PORT/NAME?KEY=VALUE&..., percent-decoded. Missing parts are empty.
struct ServerUrl {
    std::string user;
    bool hasPassword = false;  ///< the password itself is not stored
    std::string host;
    std::string port;
    std::string name;
    std::map<std::string, std::string> parameters;
};

[[nodiscard]] ServerUrl parseServerUrl(std::string_view url);

/// A URL for messages, without password and parameters.
[[nodiscard]] std::string describeServerUrl(const std::string& url);

}  // namespace host

#endif
