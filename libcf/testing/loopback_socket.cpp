#include "loopback_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

LoopbackListener::LoopbackListener(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int isOn = 1;
    setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (m_socket < 0 || ::bind(m_socket, generic, length) != 0 || ::listen(m_socket, SOMAXCONN) != 0 ||
        ::getsockname(m_socket, generic, &length) != 0) {
        const std::string reason = std::strerror(errno);
        close();
        throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + reason);
    }
    m_port = ntohs(address.sin_port);
}

LoopbackListener::~LoopbackListener() {
    close();
}

int LoopbackListener::accept() const {
    return ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
}

void LoopbackListener::stop() const {
    ::shutdown(m_socket, SHUT_RDWR);
}

void LoopbackListener::close() {
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}

LoopbackBlockedSignals::LoopbackBlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_former);
}

LoopbackBlockedSignals::~LoopbackBlockedSignals() {
    pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}
