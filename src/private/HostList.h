#ifndef NORVA_PRIVATE_HOSTLIST_H
#define NORVA_PRIVATE_HOSTLIST_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "private/StoreSettings.h"

// The database hosts of DBIPAddr: one host, or several separated by commas
// (the nodes of a cluster). A value without a comma is one host, taken as it
// stands. A connect tries them in turn and keeps the first that answers
// and is usable:
// - ClusterWrites = one: always from the first host of the list, so every
//   process given the same list writes to the same node; while a later host
//   is in use, an earlier one is looked at again now and then (ReturnDue);
// - ClusterWrites = any: from the host that answered last; once its server
//   is lost, the next connect starts with the host after it.
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

    explicit HostList(const std::string& value, ClusterWrites writes = ClusterWrites::Any);

    size_t Size() const { return m_hosts.size(); }
    const std::string& Name(size_t host) const { return m_hosts[host]; }
    // The host of the n-th try of a connect, as an index.
    size_t Attempt(size_t n) const;
    // The place in the list of the host in use.
    size_t Current() const { return m_current; }
    // ClusterWrites = one with several hosts: every connect starts with the first.
    bool OneWriter() const { return m_writes == ClusterWrites::One && m_hosts.size() > 1; }
    // One writer on a later host than the first: true at most once every
    // kReturnEveryMs, when it is time to look whether an earlier one is usable again.
    bool ReturnDue();
    static constexpr long long kReturnEveryMs = 2000;
    // An earlier host that did not answer in time is looked at again only after this long.
    void DelayReturn(long long ms);
    // `host` answered a connect: it becomes the current one.
    void Answered(size_t host);
    // True when the server error number says the current server is lost (or
    // cannot serve) and there is another host to try; the next connect then
    // starts with the next host (one writer: with the first). Always false for
    // a single host.
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
    const ClusterWrites m_writes;
    std::atomic<size_t> m_current{0};
    std::atomic<long long> m_nextReturnMs{0};
    std::unique_ptr<std::atomic<Clock::rep>[]> m_restUntil;  // per host, in Clock ticks
};

#endif
