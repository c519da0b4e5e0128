#ifndef HOST_NETWORK_SERVER_PROBE_H
#define HOST_NETWORK_SERVER_PROBE_H

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/// Looks at a server step by step, for `kai check`: an exchange of the library says whether all of it works, not how
/// far it comes. Nothing is sent to the server beyond what opening a connection takes. Failures are HostError:
/// Provider, or Cancelled after Ctrl-C.

/// A host and a port as URLs and --api-host write them.
struct ServerAddress {
    std::string name;  ///< an IPv6 address without its brackets
    std::string port;
};

/// @param text  a host, "host:port", "[::1]:port"; a scheme in front and a path behind are passed over
[[nodiscard]] ServerAddress readServerAddress(std::string_view text, std::string_view usualPort);

/// Looks a name up.
/// @return its first address
[[nodiscard]] std::string resolveName(const std::string& name);

/// Opens a connection and closes it.
void tryConnection(const ServerAddress& server, std::chrono::milliseconds timeout);

struct ServerCertificate {
    std::string subject;
    std::string issuer;
    std::string lastDay;  ///< the last day on which it holds, as "2027-01-31"
};

/// What certificate a server shows. It is read and not judged.
[[nodiscard]] ServerCertificate readCertificate(const ServerAddress& server, std::chrono::milliseconds timeout);

}  // namespace host

#endif
