#include "private/HostList.h"

#include <thread>

#include "private/ServerErrors.h"

namespace {

long long SteadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

constexpr std::chrono::milliseconds HostList::kRestPause;

HostList::HostList(const std::string& value, ClusterWrites writes) : m_writes(writes) {
    if (value.find(',') == std::string::npos) {
        m_hosts.push_back(value);
    } else {
        for (size_t start = 0; start <= value.size();) {
            size_t end = value.find(',', start);
            if (end == std::string::npos) end = value.size();
            const std::string host = Trimmed(value.substr(start, end - start));
            if (!host.empty()) m_hosts.push_back(host);
            start = end + 1;
        }
        if (m_hosts.empty()) m_hosts.push_back(value);  // only commas: one host, as it stands
    }
    m_restUntil.reset(new std::atomic<Clock::rep>[m_hosts.size()]);
    for (size_t i = 0; i < m_hosts.size(); ++i) m_restUntil[i] = 0;
}

size_t HostList::Attempt(size_t n) const { return (OneWriter() ? n : m_current + n) % m_hosts.size(); }

void HostList::Answered(size_t host) {
    if (OneWriter() && host != m_current) m_nextReturnMs = SteadyMs() + kReturnEveryMs;
    m_current = host;
    Serving(host);
}

void HostList::DelayReturn(long long ms) { m_nextReturnMs = SteadyMs() + ms; }

bool HostList::ReturnDue() {
    if (!OneWriter() || m_current == 0) return false;
    const long long now = SteadyMs();
    long long due = m_nextReturnMs;
    return now >= due && m_nextReturnMs.compare_exchange_strong(due, now + kReturnEveryMs);
}

bool HostList::Lost(int error) {
    if (m_hosts.size() < 2 || ClassifyServerError(error) != ServerError::Lost) return false;
    if (!OneWriter()) m_current = (m_current + 1) % m_hosts.size();
    return true;
}

void HostList::Rest(size_t host) { m_restUntil[host] = (Clock::now() + kRestPause).time_since_epoch().count(); }

bool HostList::Resting(size_t host) const { return Clock::now().time_since_epoch().count() < m_restUntil[host]; }

void HostList::WaitRested(size_t host) const {
    const Clock::time_point until{Clock::duration(m_restUntil[host].load())};
    if (Clock::now() < until) std::this_thread::sleep_until(until);
}

void HostList::Serving(size_t host) {
    if (m_restUntil[host].load(std::memory_order_relaxed) != 0) m_restUntil[host] = 0;
}
