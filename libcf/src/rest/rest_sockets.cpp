#include "rest/rest_sockets.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace cf {

namespace {

int lookUpLocalPort(int descriptor) noexcept {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return -1;
    }
    switch (address.ss_family) {
        case AF_INET:
            return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
        case AF_INET6:
            return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
        default:
            return -1;
    }
}

std::optional<tcp_info> obtainTCPInfo(int descriptor) noexcept {
    tcp_info info{};
    socklen_t size = sizeof info;
    const bool isTold = getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0;
    // An older kernel fills in fewer members.
    const bool isComplete = size >= offsetof(tcp_info, tcpi_min_rtt) + sizeof info.tcpi_min_rtt;
    return isTold && isComplete ? std::optional(info) : std::nullopt;
}

std::vector<int> listDescriptors() {
    std::vector<int> descriptors;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
    if (folder) {
        while (const dirent* entry = readdir(folder.get())) {
            const int descriptor = std::atoi(entry->d_name);
            if (entry->d_name[0] != '.' && descriptor != dirfd(folder.get())) {
                descriptors.push_back(descriptor);
            }
        }
    }
    std::ranges::sort(descriptors);
    return descriptors;
}

bool isNamelessLocalSocket(int descriptor) noexcept {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    return getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           address.sun_family == AF_UNIX && size == sizeof(sa_family_t);
}

std::atomic<unsigned> s_forkCount{0};

}  // namespace

int RestSockets::open(int family, int type, int protocol) {
    m_sockets.reserve(m_sockets.size() + 1);
    const int descriptor = socket(family, type | SOCK_CLOEXEC, protocol);
    if (descriptor >= 0) {
        m_sockets.push_back({.descriptor = descriptor});
    }
    return descriptor;
}

void RestSockets::close(int descriptor) noexcept {
    const auto info = obtainTCPInfo(descriptor);
    m_closedBytes = info ? info->tcpi_bytes_received : 0;
    std::erase_if(m_sockets, [&](const RestSocket& socket) { return socket.descriptor == descriptor; });
    ::close(descriptor);
}

RestSocket* RestSockets::findByLocalPort(int port) noexcept {
    for (RestSocket& socket : m_sockets) {
        if (socket.localPort == 0) {
            socket.localPort = lookUpLocalPort(socket.descriptor);
        }
    }
    const auto place = std::ranges::find(m_sockets, port, &RestSocket::localPort);
    return place == m_sockets.end() ? nullptr : &*place;
}

RestSocket* RestSockets::find(int descriptor) noexcept {
    const auto place = std::ranges::find(m_sockets, descriptor, &RestSocket::descriptor);
    return place == m_sockets.end() ? nullptr : &*place;
}

void RestSockets::disown() noexcept {
    const int dead = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (const RestSocket& socket : m_sockets) {
        if (dead < 0 || dup3(dead, socket.descriptor, O_CLOEXEC) < 0) {
            // Without an unconnected socket the descriptor stays closed, so libcurl's sending fails as well.
            ::close(socket.descriptor);
        }
    }
    if (dead >= 0) {
        ::close(dead);
    }
}

bool isSocketReadable(int descriptor) noexcept {
    pollfd watched{.fd = descriptor, .events = POLLIN | POLLRDHUP, .revents = 0};
    return poll(&watched, 1, 0) != 0;
}

std::optional<std::chrono::microseconds> obtainShortestRoundTrip(int descriptor) noexcept {
    const auto info = obtainTCPInfo(descriptor);
    // The largest value means "not measured yet".
    const bool isMeasured = info && info->tcpi_min_rtt != ~__u32{0};
    return isMeasured ? std::optional(std::chrono::microseconds(info->tcpi_min_rtt)) : std::nullopt;
}

RestInheritanceMark::RestInheritanceMark() : m_former(listDescriptors()) {}

void RestInheritanceMark::markNewSockets() const {
    for (const int descriptor : listDescriptors()) {
        if (!std::ranges::binary_search(m_former, descriptor) && isNamelessLocalSocket(descriptor)) {
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
    }
}

void watchForks() {
    // After a failure the next call tries again.
    [[maybe_unused]] static const bool isWatching = [] {
        const auto countFork = [] { s_forkCount.fetch_add(1, std::memory_order_relaxed); };
        if (pthread_atfork(nullptr, nullptr, countFork) != 0) {
            throw std::bad_alloc();
        }
        return true;
    }();
}

unsigned countForks() noexcept {
    return s_forkCount.load(std::memory_order_relaxed);
}

}  // namespace cf
