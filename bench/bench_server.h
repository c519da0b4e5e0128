#ifndef BENCH_SERVER_H
#define BENCH_SERVER_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "child_process.h"
#include "temporary_folder.h"

/// A request as the server received it.
struct RecordedRequest {
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    bool operator==(const RecordedRequest&) const = default;
};

struct ConnectionCounts {
    std::size_t connections = 0;
    std::size_t handshakes = 0;
};

/// The providers' services on a free port of the loopback, in a process of their own: what serving costs is counted
/// nowhere. Every request is answered at once with a reply of about 1 KB.
class BenchServer {
public:
    explicit BenchServer(bool isTLS);

    /// "127.0.0.1:PORT"
    [[nodiscard]] const std::string& obtainAuthority() const { return m_authority; }
    /// The system's trusted certificates and the server's own, as a file: reading it costs what reading the system's
    /// costs. Empty without TLS.
    [[nodiscard]] const std::string& obtainBundleFile() const { return m_bundleFile; }

    [[nodiscard]] RecordedRequest obtainLastRequest();
    [[nodiscard]] ConnectionCounts obtainCounts();

private:
    ChildProcess m_process;
    TemporaryFolder m_folder;
    std::string m_authority;
    std::string m_bundleFile;
};

#endif
