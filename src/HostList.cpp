#include "private/HostList.h"

#include <chrono>

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

HostList::HostList(const std::string& value, ClusterWrites writes) : m_writes(writes) {
    if (value.find(',') == std::string::npos) {
        m_hosts.push_back(value);
        return;
    }
    for (size_t start = 0; start <= value.size();) {
        size_t end = value.find(',', start);
        if (end == std::string::npos) end = value.size();
        const std::string host = Trimmed(value.substr(start, end - start));
        if (!host.empty()) m_hosts.push_back(host);
        start = end + 1;
    }
    if (m_hosts.empty()) m_hosts.push_back(value);  // only commas: one host, as it stands
}

size_t HostList::Attempt(size_t n) const { return (OneWriter() ? n : m_current + n) % m_hosts.size(); }

void HostList::Answered(size_t host) {
    if (OneWriter() && host != m_current) m_nextReturnMs = SteadyMs() + kReturnEveryMs;
    m_current = host;
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
