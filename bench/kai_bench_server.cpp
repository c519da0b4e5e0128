// The server that the benchmarks' turns go to.
//
//   kai_bench_server tls|plain
//
// Prints its port and, with TLS, the length and the bytes of its CA's certificate. Then it answers the lines of its
// standard input: "last" with the last request (target, headers, an empty line, the body's length, the body), "counts"
// with the numbers of connections and TLS handshakes. It ends with its standard input.

#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>

#include "chat_texts.h"
#include "loopback_server.h"

namespace {

constexpr std::size_t kAnswerBytes = 900;
constexpr std::size_t kStreamedWords = 4000;

class LastRequest {
public:
    LoopbackReply answer(const LoopbackRequest& request) {
        {
            const std::scoped_lock lock(m_mutex);
            m_request = request;
        }
        if (request.body.find(R"("stream":true)") != std::string::npos) {
            return {.framing = LoopbackFraming::Chunked, .pieces = buildReplyPieces(request.path, kStreamedWords)};
        }
        return {.headers = {{"Content-Type", "application/json"}},
                .body = buildReplyBody(request.path, buildAnswerText(kAnswerBytes))};
    }

    void print() const {
        const std::scoped_lock lock(m_mutex);
        std::cout << m_request.target << '\n';
        for (const auto& [name, value] : m_request.headers) {
            std::cout << name << ": " << value << '\n';
        }
        std::cout << '\n' << m_request.body.size() << '\n' << m_request.body << std::flush;
    }

private:
    mutable std::mutex m_mutex;
    LoopbackRequest m_request;
};

}  // namespace

int main(int argc, char** argv) {
    const bool isTLS = argc == 2 && std::string(argv[1]) == "tls";
    LastRequest last;
    const LoopbackServer server([&last](const LoopbackRequest& request) { return last.answer(request); },
                                {.tls = isTLS ? LoopbackTLS::Valid : LoopbackTLS::Off, .isRecording = false});
    std::cout << server.obtainPort() << std::endl;
    if (isTLS) {
        std::cout << server.obtainCAText().size() << '\n' << server.obtainCAText() << std::flush;
    }
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "last") {
            last.print();
        } else if (line == "counts") {
            std::cout << server.countConnections() << ' ' << server.countHandshakes() << std::endl;
        }
    }
}
