#include "private/HostList.h"

#include "private/ServerErrors.h"

namespace {

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}
}  // namespace

HostList::HostList(const std::string& value) {
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

const std::string& HostList::Attempt(size_t n) const { return m_hosts[(m_current + n) % m_hosts.size()]; }

void HostList::Answered(size_t n) { m_current = (m_current + n) % m_hosts.size(); }

bool HostList::Lost(int error) {
    if (m_hosts.size() < 2 || ClassifyServerError(error) != ServerError::Lost) return false;
    m_current = (m_current + 1) % m_hosts.size();
    return true;
}
