#include "bench_server.h"

#include <sstream>
#include <stdexcept>

namespace {

constexpr const char* kSystemBundle = "/etc/ssl/certs/ca-certificates.crt";

std::string readSystemBundle() {
    std::string bundle = readFile(kSystemBundle);
    if (bundle.empty()) {
        throw std::runtime_error(std::string("there is no ") + kSystemBundle);
    }
    return bundle;
}

}  // namespace

BenchServer::BenchServer(bool isTLS)
    : m_process({.arguments = {obtainSiblingPath("kai_bench_server"), isTLS ? "tls" : "plain"},
                 .errors = ChildProcessSetup::Errors::Inherited}),
      m_authority("127.0.0.1:" + m_process.readLine()) {
    if (isTLS) {
        m_bundleFile =
            m_folder.write("bundle.pem", readSystemBundle() + m_process.readBytes(std::stoul(m_process.readLine())));
    }
}

RecordedRequest BenchServer::obtainLastRequest() {
    m_process.write("last\n");
    RecordedRequest request;
    request.target = m_process.readLine();
    for (std::string line; !(line = m_process.readLine()).empty();) {
        const std::size_t colon = line.find(": ");
        request.headers.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    }
    request.body = m_process.readBytes(std::stoul(m_process.readLine()));
    return request;
}

ConnectionCounts BenchServer::obtainCounts() {
    m_process.write("counts\n");
    ConnectionCounts counts;
    std::istringstream(m_process.readLine()) >> counts.connections >> counts.handshakes;
    return counts;
}
