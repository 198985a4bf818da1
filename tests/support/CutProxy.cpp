#include "CutProxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace testing_support {

namespace {

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Writes all of `data`; false when the peer is gone.
bool SendAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        data += sent, size -= static_cast<size_t>(sent);
    }
    return true;
}

}  // namespace

CutProxy::CutProxy(const std::string& target) {
    const size_t colon = target.rfind(':');
    m_targetPort = colon == std::string::npos ? 0 : std::atoi(target.c_str() + colon + 1);
    if (m_targetPort <= 0 || ::pipe(m_stop) != 0) throw std::runtime_error("CutProxy: bad target " + target);
    m_listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    if (m_listen < 0 || ::bind(m_listen, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listen, 64) != 0 || ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("CutProxy: cannot listen on 127.0.0.1");
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread(&CutProxy::AcceptLoop, this);
}

CutProxy::~CutProxy() {
    const char byte = 0;
    if (::write(m_stop[1], &byte, 1) != 1) std::abort();
    m_acceptor.join();
    std::vector<std::thread> relays;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        relays.swap(m_relays);
    }
    for (std::thread& relay : relays) relay.join();
    ::close(m_listen);
    ::close(m_stop[0]);
    ::close(m_stop[1]);
}

std::string CutProxy::Host() const { return "tcp://127.0.0.1:" + std::to_string(m_port); }

void CutProxy::CutNext(const std::string& marker, Cut where) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_marker = marker, m_where = where, m_armed = true;
    m_cutDone = false;
}

bool CutProxy::Armed(const char* data, size_t size, Cut& where) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_armed || std::string(data, size).find(m_marker) == std::string::npos) return false;
    m_armed = false;
    where = m_where;
    return true;
}

void CutProxy::AcceptLoop() {
    pollfd fds[2] = {{m_stop[0], POLLIN, 0}, {m_listen, POLLIN, 0}};
    while (true) {
        // While held, connections stay in the backlog, unanswered.
        fds[1].events = m_held ? 0 : POLLIN;
        if (::poll(fds, 2, 50) < 0 || fds[0].revents) return;
        if (m_held || !(fds[1].revents & POLLIN)) continue;
        const int client = ::accept4(m_listen, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        ++m_accepted;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_relays.emplace_back(&CutProxy::Relay, this, client);
    }
}

void CutProxy::Relay(int client) {
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(m_targetPort);
    if (server < 0 || ::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(client);
        if (server >= 0) ::close(server);
        return;
    }
    bool dropAnswer = false;  // the statement went through: its answer is cut
    std::vector<char> buffer(1 << 16);
    pollfd fds[3] = {{m_stop[0], POLLIN, 0}, {client, POLLIN, 0}, {server, POLLIN, 0}};
    while (true) {
        const short wanted = m_held ? 0 : POLLIN;
        fds[1].events = fds[2].events = wanted;
        if (::poll(fds, 3, 50) < 0 || fds[0].revents) break;
        if (m_held) continue;
        if (fds[1].revents) {
            const ssize_t got = ::recv(client, buffer.data(), buffer.size(), 0);
            if (got <= 0) break;
            Cut where;
            if (Armed(buffer.data(), static_cast<size_t>(got), where)) {
                if (where == Cut::BeforeStatement) {
                    m_cutDone = true;
                    break;
                }
                dropAnswer = true;
            }
            if (!SendAll(server, buffer.data(), static_cast<size_t>(got))) break;
        }
        if (fds[2].revents) {
            const ssize_t got = ::recv(server, buffer.data(), buffer.size(), 0);
            if (got <= 0) break;
            if (dropAnswer) {
                m_cutDone = true;
                break;
            }
            if (!SendAll(client, buffer.data(), static_cast<size_t>(got))) break;
        }
    }
    ::close(client);
    ::close(server);
}

}  // namespace testing_support
