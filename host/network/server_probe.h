#ifndef HOST_NETWORK_SERVER_PROBE_H
#define HOST_NETWORK_SERVER_PROBE_H

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/// Tests a server step by step, for `kai check`: an exchange of the library shows only whether everything works, not
/// which step fails. It sends nothing to the server beyond what opening a connection needs. Failures are HostError:
/// Provider, or Cancelled after Ctrl-C.

/// A host and a port in the form of URLs and --api-host.
struct ServerAddress {
    std::string name;  ///< an IPv6 address without its brackets
    std::string port;
};

/// @param text  a host, "host:port", "[::1]:port"; a scheme before it and a path after it are ignored
[[nodiscard]] ServerAddress readServerAddress(std::string_view text, std::string_view usualPort);

/// Resolves a name.
/// @return its first address
[[nodiscard]] std::string resolveName(const std::string& name);

/// Opens a connection and closes it.
void tryConnection(const ServerAddress& server, std::chrono::milliseconds timeout);

struct ServerCertificate {
    std::string subject;
    std::string issuer;
    std::string lastDay;  ///< the last day on which it is valid, as "2027-01-31"
};

/// Reads the certificate of a server, without verifying it.
[[nodiscard]] ServerCertificate readCertificate(const ServerAddress& server, std::chrono::milliseconds timeout);

}  // namespace host

#endif
