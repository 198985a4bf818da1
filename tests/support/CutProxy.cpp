#include "CutProxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

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

namespace {

// The client's side of one connection, read as the server's protocol
// frames it: a 3-byte length, a sequence number, then the payload, whose
// first byte names the command. Statements come as text (COM_QUERY, 3) or
// are prepared once (COM_STMT_PREPARE, 22, answered with the statement's
// id) and then executed by id (COM_STMT_EXECUTE, 23).
struct ClientPackets {
    std::string pending;                // bytes not yet a whole packet
    std::map<uint32_t, std::string> prepared;  // statement id -> text
    std::string preparing;              // text of a prepare whose answer is awaited
    bool awaitingId = false;

    // The next whole packet of the client's bytes, or false.
    bool Next(std::string& packet) {
        if (pending.size() < 4) return false;
        const size_t length = static_cast<unsigned char>(pending[0]) |
                              static_cast<unsigned char>(pending[1]) << 8 |
                              static_cast<size_t>(static_cast<unsigned char>(pending[2])) << 16;
        if (pending.size() < 4 + length) return false;
        packet = pending.substr(0, 4 + length);
        pending.erase(0, 4 + length);
        return true;
    }
    // The statement text a command packet runs; empty for other packets.
    std::string Statement(const std::string& packet) {
        if (packet.size() < 5) return "";
        const unsigned char command = static_cast<unsigned char>(packet[4]);
        if (command == 3) return packet.substr(5);
        if (command == 22) {
            preparing = packet.substr(5), awaitingId = true;
            return "";
        }
        if (command == 23 && packet.size() >= 9) {
            uint32_t id = 0;
            std::memcpy(&id, packet.data() + 5, 4);
            const auto text = prepared.find(id);
            return text == prepared.end() ? "" : text->second;
        }
        return "";
    }
    // The server's answer to a prepare starts with 0 and the statement's id.
    void ServerSaid(const char* data, size_t size) {
        if (!awaitingId || size < 9) return;
        awaitingId = false;
        if (data[4] != 0) return;
        uint32_t id = 0;
        std::memcpy(&id, data + 5, 4);
        prepared[id] = preparing;
    }
};

}  // namespace

void CutProxy::Relay(int client) {
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(m_targetPort);
    if (server < 0 || ::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(client);
        if (server >= 0) ::close(server);
        return;
    }
    ClientPackets packets;
    bool dropAnswer = false;  // the statement went through: its answer is cut
    std::vector<char> buffer(1 << 16);
    pollfd fds[3] = {{m_stop[0], POLLIN, 0}, {client, POLLIN, 0}, {server, POLLIN, 0}};
    bool open = true;
    while (open) {
        const short wanted = m_held ? 0 : POLLIN;
        fds[1].events = fds[2].events = wanted;
        if (::poll(fds, 3, 50) < 0 || fds[0].revents) break;
        if (m_held) continue;
        if (fds[1].revents) {
            const ssize_t got = ::recv(client, buffer.data(), buffer.size(), 0);
            if (got <= 0) break;
            packets.pending.append(buffer.data(), static_cast<size_t>(got));
            std::string packet;
            while (open && packets.Next(packet)) {
                Cut where;
                const std::string statement = packets.Statement(packet);
                if (!statement.empty() && Armed(statement.data(), statement.size(), where)) {
                    if (where == Cut::BeforeStatement) {
                        m_cutDone = true;
                        open = false;
                        break;
                    }
                    dropAnswer = true;
                }
                open = SendAll(server, packet.data(), packet.size());
            }
        }
        if (open && fds[2].revents) {
            const ssize_t got = ::recv(server, buffer.data(), buffer.size(), 0);
            if (got <= 0) break;
            if (dropAnswer) {
                m_cutDone = true;
                break;
            }
            packets.ServerSaid(buffer.data(), static_cast<size_t>(got));
            open = SendAll(client, buffer.data(), static_cast<size_t>(got));
        }
    }
    ::close(client);
    ::close(server);
}

}  // namespace testing_support
