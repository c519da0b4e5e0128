#ifndef FUZZ_SERVICE_H
#define FUZZ_SERVICE_H

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "loopback_server.h"

/// A reply whose bytes are the input's, in the form that the bits of `form` choose:
///
/// | bit | the input is |
/// |---|---|
/// | 1 | all that the server sends before it closes the connection; the bits below do not count then |
/// | 2 | a body that is sent compressed |
/// | 3 | a body that is sent in small chunks |
/// | 4 | a body that is sent in two pieces |
/// | 6 | followed by 64 KiB of line feeds, since large replies are read in another way |
///
/// The other bits are the caller's. No reply makes the client wait: the body is whole, or the connection ends.
LoopbackReply makeFuzzedReply(unsigned char form, std::string_view bytes);

/// A service on the loopback, and the process-wide settings of the library under which it is reached. Lives as long as
/// the process.
class FuzzedService {
public:
    using Handler = LoopbackServer::Handler;

    FuzzedService();

    /// Requests are answered by this function from here on. Called on the server's threads, one call at a time.
    void setHandler(Handler handler);
    [[nodiscard]] std::string obtainHost() const { return m_server.obtainAuthority(); }
    [[nodiscard]] std::size_t countRequests() const { return m_server.countRequests(); }

private:
    std::mutex m_mutex;
    Handler m_handler;  // behind the mutex
    LoopbackServer m_server;
};

/// The one service of the process.
FuzzedService& obtainFuzzedService();

#endif
