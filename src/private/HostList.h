#ifndef NORVA_PRIVATE_HOSTLIST_H
#define NORVA_PRIVATE_HOSTLIST_H

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

// The database hosts of DBIPAddr: one host, or several separated by commas
// (the nodes of a cluster). A connect tries them in turn, starting with the
// host that answered last, and keeps the first that answers. Once that
// host's server is lost, the next connect starts with the host after it.
// A value without a comma is one host, taken as it stands.
class HostList {
public:
    explicit HostList(const std::string& value);

    size_t Size() const { return m_hosts.size(); }
    // The host of the n-th try of a connect (0: the current host).
    const std::string& Attempt(size_t n) const;
    // The n-th try answered: its host becomes the current one.
    void Answered(size_t n);
    // True when the server error number says the current server is lost (or
    // cannot serve) and there is another host to try; the next connect then
    // starts with the next host. Always false for a single host.
    bool Lost(int error);

private:
    std::vector<std::string> m_hosts;
    std::atomic<size_t> m_current{0};
};

#endif
