#include "CJobSenderDataProvider.h"

#include <Logger.h>
#include <StringUtils.h>
#include <ZTTickets.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "private/MutexLock.h"
#include "private/ProviderSupport.h"

namespace {

// The two parallel parameters of the ticket file: value i of one belongs
// with value i of the other.
const char kQueryIdPath[] = "ZT/QUERYID";
const char kUrlPath[] = "ZT/URL";

std::string Narrow(const std::wstring& text) { return StringUtils::stringFromwstring(text); }

}  // namespace

CJobSenderDataProvider::CJobSenderDataProvider() : m_path("./QueryURL"), m_pLogger(Logger::Initialise()) {
    InitializeSenderDataSet();
}

CJobSenderDataProvider::~CJobSenderDataProvider() {
    // The provider owns the entries of its set.
    for (CJobSenderData* entry : m_dataSet) delete entry;
    m_dataSet.clear();
}

bool CJobSenderDataProvider::InitializeSenderDataSet() {
    MutexLock guard(m_mutex);
    m_pLogger->log(provider::kLogLevel, L"%ls", L"Initializing Sender Data Set");

    const STICKET_ACCESS* ticket = CreateTicket(m_path.c_str());
    if (ticket == nullptr) return false;

    std::vector<std::string> ids;
    std::vector<std::string> urls;
    const bool read = ticket->GetVectorParameter(kQueryIdPath, ids) && ticket->GetVectorParameter(kUrlPath, urls);

    const int count = static_cast<int>(ids.size());
    m_pLogger->log(provider::kLogLevel, L"Got %d Records", count);

    // Last file entry first, so that among duplicates the later one is kept.
    // A URL list shorter than the query ids leaves the extra ids unpaired.
    const int paired = static_cast<int>(std::min(ids.size(), urls.size()));
    for (int i = paired - 1; i >= 0; --i) {
        std::unique_ptr<CJobSenderData> entry(
            new CJobSenderData(StringUtils::wstringFromstring(ids[i]), StringUtils::wstringFromstring(urls[i])));
        if (m_dataSet.insert(entry.get()).second) entry.release();
    }

    DestroyTicket(ticket);
    return read;
}

void CJobSenderDataProvider::AddRecord(CJobSenderData& data) {
    MutexLock guard(m_mutex);
    std::unique_ptr<CJobSenderData> entry(new CJobSenderData(data));
    if (!m_dataSet.insert(entry.get()).second) return;  // an equal pair exists: nothing to write
    entry.release();
    SaveSenderDataSet(data.queryId, data.url, false);
}

bool CJobSenderDataProvider::DeleteRecord(CJobSenderData& data) {
    MutexLock guard(m_mutex);
    // Chosen by URL alone; the file entry is then located by the caller's query id.
    auto it = std::find_if(m_dataSet.begin(), m_dataSet.end(),
                           [&data](const CJobSenderData* entry) { return entry->url == data.url; });
    if (it == m_dataSet.end()) return false;
    CJobSenderData* entry = *it;
    m_dataSet.erase(it);
    delete entry;
    SaveSenderDataSet(data.queryId, data.url, true);
    return true;
}

bool CJobSenderDataProvider::GetRecord(std::wstring url, CJobSenderData& out) {
    MutexLock guard(m_mutex);
    for (const CJobSenderData* entry : m_dataSet) {
        if (entry->url == url) {
            out = *entry;
            return true;
        }
    }
    return false;
}

bool CJobSenderDataProvider::GetRecordByQueryId(std::wstring queryId, CJobSenderData& out) {
    MutexLock guard(m_mutex);
    // The set is ordered by URL first, so this is a linear scan.
    for (const CJobSenderData* entry : m_dataSet) {
        if (entry->queryId == queryId) {
            out = *entry;
            return true;
        }
    }
    return false;
}

bool CJobSenderDataProvider::SaveSenderDataSet(std::wstring queryId, std::wstring url, bool remove) {
    const STICKET_ACCESS* ticket = CreateTicket(m_path.c_str());
    if (ticket == nullptr) return false;  // no ticket library

    bool result = false;
    if (!remove) {
        result = ticket->AddParameter(kQueryIdPath, Narrow(queryId).c_str());
        if (!result) {
            DestroyTicket(ticket);
            return false;
        }
        result = ticket->AddParameter(kUrlPath, Narrow(url).c_str());
    } else {
        // The pair is located by its query id only.
        const int pos = ticket->FindParameterPosition(kQueryIdPath, Narrow(queryId));
        if (pos >= 0) {
            result = ticket->DelParameter(kQueryIdPath, pos);
            if (result) ticket->DelParameter(kUrlPath, pos);
        }
    }
    DestroyTicket(ticket);
    return result;
}
