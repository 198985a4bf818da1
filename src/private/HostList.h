#ifndef NORVA_PRIVATE_HOSTLIST_H
#define NORVA_PRIVATE_HOSTLIST_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// The database hosts of DBIPAddr: one host, or several separated by commas
// (the nodes of a cluster). A connect tries them in turn, starting with the
// host that answered last, and keeps the first that answers. Once that
// host's server is lost, the next connect starts with the host after it.
// A value without a comma is one host, taken as it stands.
//
// A host whose server was lost (a refused connect, a timeout, a dropped
// connection) rests for a short pause: connects pass it over while another
// host is left to try, and a call with nothing else to try waits for the end
// of the pause first. So a down server is tried a few times a second at
// most, however often the host program calls.
class HostList {
public:
    using Clock = std::chrono::steady_clock;
    // How long a lost host rests before it is tried again.
    static constexpr std::chrono::milliseconds kRestPause{500};

    explicit HostList(const std::string& value);

    size_t Size() const { return m_hosts.size(); }
    const std::string& Name(size_t host) const { return m_hosts[host]; }
    // The host of the n-th try of a connect (0: the current host), as an index.
    size_t Attempt(size_t n) const;
    // `host` answered a connect: it becomes the current one.
    void Answered(size_t host);
    // True when the server error number says the current server is lost (or
    // cannot serve) and there is another host to try; the next connect then
    // starts with the next host. Always false for a single host.
    bool Lost(int error);

    // The server of `host` was lost: it rests for kRestPause from now.
    void Rest(size_t host);
    bool Resting(size_t host) const;
    // Waits until `host` has rested (at once when it is not resting).
    void WaitRested(size_t host) const;
    // A statement on `host` ran: it is not resting any more.
    void Serving(size_t host);

private:
    std::vector<std::string> m_hosts;
    std::atomic<size_t> m_current{0};
    std::unique_ptr<std::atomic<Clock::rep>[]> m_restUntil;  // per host, in Clock ticks
};

#endif
