#include "bench_server.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

constexpr const char* kSystemBundle = "/etc/ssl/certs/ca-certificates.crt";

std::string writeBundle(const std::string& ownCertificate) {
    std::ifstream system(kSystemBundle);
    if (!system) {
        throw std::runtime_error(std::string("there is no ") + kSystemBundle);
    }
    std::string path = (std::filesystem::temp_directory_path() / "kai-bench-XXXXXX").string();
    const int file = mkstemp(path.data());
    if (file < 0) {
        throw std::runtime_error("no temporary file");
    }
    close(file);
    std::ofstream(path) << system.rdbuf() << ownCertificate;
    return path;
}

}  // namespace

BenchServer::BenchServer(bool isTLS)
    : m_process({obtainSiblingPath("kai_bench_server"), isTLS ? "tls" : "plain"}),
      m_authority("127.0.0.1:" + m_process.readLine()) {
    if (isTLS) {
        m_bundleFile = writeBundle(m_process.readBytes(std::stoul(m_process.readLine())));
    }
}

BenchServer::~BenchServer() {
    if (!m_bundleFile.empty()) {
        unlink(m_bundleFile.c_str());
    }
}

RecordedRequest BenchServer::obtainLastRequest() {
    m_process.writeLine("last");
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
    m_process.writeLine("counts");
    ConnectionCounts counts;
    std::istringstream(m_process.readLine()) >> counts.connections >> counts.handshakes;
    return counts;
}
