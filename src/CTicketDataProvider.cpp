#include "CTicketDataProvider.h"

#include <Logger.h>

#include "CDatabaseFactory.h"
#include "_BLOB.h"
#include "private/ProviderSupport.h"

using provider::Column;
using provider::kLogLevel;

namespace {

typedef TicketTableRecord Rec;

// Fixed buffer sizes: a generated key, and a text column read on its own.
const size_t kKeyChars = 32;
const size_t kTextChars = 1024;

const TICKET_TYPE_NV kTable = TICKET_JDFTICKET;

// Column indexes into kColumns.
enum TicketColumn {
    C_PREVIEWCACHEDFILEPATH,
    C_PREVIEWREMOTEURL,
    C_QENTRYID,
    C_JDF,
    C_HOLDDEVID,
    C_JMFRETURL,
    C_UPLOADURL,
    C_SENDERID,
    C_SUBTIME,
    C_LASTUPDATETIME,
    C_QSUBSPARAMS,
    C_STATUSMSG,
    C_STATUS,
    C_STATE,
    C_JOBID,
    C_JOBPARTID
};

using provider::BlobColumn;
using provider::IntColumn;
using provider::TextColumn;
using provider::TimeColumn;

const Column<Rec> kColumns[] = {
    TextColumn<Rec>("JDFTICKET.PREVIEWCACHEDFILEPATH", &Rec::previewCachedFilePath),
    TextColumn<Rec>("JDFTICKET.PREVIEWREMOTEURL", &Rec::previewRemoteUrl),
    TextColumn<Rec>("JDFTICKET.QENTRYID", &Rec::qentryId),
    BlobColumn<Rec>("JDFTICKET.JDF", &Rec::jdf),
    TextColumn<Rec>("JDFTICKET.HOLDDEVID", &Rec::holdDevId),
    TextColumn<Rec>("JDFTICKET.JMFRETURL", &Rec::jmfRetUrl),
    TextColumn<Rec>("JDFTICKET.UPLOADURL", &Rec::uploadUrl),
    TextColumn<Rec>("JDFTICKET.SENDERID", &Rec::senderId),
    TimeColumn<Rec>("JDFTICKET.SUBTIME", &Rec::subTime),
    TimeColumn<Rec>("JDFTICKET.LASTUPDATETIME", &Rec::lastUpdateTime),
    BlobColumn<Rec>("JDFTICKET.QSUBSPARAMS", &Rec::qsubsParams),
    TextColumn<Rec>("JDFTICKET.STATUSMSG", &Rec::statusMsg),
    IntColumn<Rec>("JDFTICKET.STATUS", &Rec::status),
    IntColumn<Rec>("JDFTICKET.STATE", &Rec::state),
    TextColumn<Rec>("JDFTICKET.JOBID", &Rec::jobId),
    TextColumn<Rec>("JDFTICKET.JOBPARTID", &Rec::jobPartId),
};

// AddTicket: written after the row and its JDF, stopping at the first failure.
const int kAddOrder[] = {
    C_HOLDDEVID, C_JMFRETURL,      C_PREVIEWCACHEDFILEPATH, C_PREVIEWREMOTEURL, C_UPLOADURL, C_SENDERID,
    C_SUBTIME,   C_LASTUPDATETIME, C_QSUBSPARAMS,           C_STATUSMSG,        C_STATUS,    C_STATE,
    C_JOBID,     C_JOBPARTID};

// UpdateTicketRecord: every set column, the last write's result counts.
const int kUpdateOrder[] = {C_HOLDDEVID,        C_JDF,      C_JMFRETURL, C_PREVIEWCACHEDFILEPATH,
                            C_PREVIEWREMOTEURL, C_JOBID,    C_JOBPARTID, C_LASTUPDATETIME,
                            C_QSUBSPARAMS,      C_SENDERID, C_STATUS,    C_STATE,
                            C_STATUSMSG,        C_SUBTIME,  C_UPLOADURL};

// GetTicketRecord reads these before and after filling lastUpdateTime from SUBTIME.
const int kReadOrderHead[] = {C_HOLDDEVID, C_JDF, C_JMFRETURL, C_JOBID, C_JOBPARTID};
const int kReadOrderTail[] = {
    C_QSUBSPARAMS,           C_SENDERID,        C_STATUS, C_STATE, C_STATUSMSG, C_SUBTIME, C_UPLOADURL, C_QENTRYID,
    C_PREVIEWCACHEDFILEPATH, C_PREVIEWREMOTEURL};

const char* const kQentryId = "JDFTICKET.QENTRYID";

}  // namespace

CTicketDataProvider::CTicketDataProvider()
    : m_pDatabase(CDatabaseFactory().GetDatabaseInterface()), m_pLogger(Logger::Initialise()) {}

CTicketDataProvider::~CTicketDataProvider() {}

bool CTicketDataProvider::AddTicket(CTicketRecord* rec) {
    // The key is always generated here; a record that brings its own is refused.
    if (!rec->qentryId.empty()) return false;
    wchar_t key[kKeyChars] = {};
    const provider::Row row{m_pDatabase, kTable, key, PARAM_WSTRING};
    // The JDF is written whatever the insert returned, and its result counts.
    std::vector<dl_ColumnValue> first;
    if (!rec->jdf.empty()) first.push_back(provider::Always(*rec, kColumns[C_JDF]));
    const bool ok = provider::InsertColumns(row, true, false, first, *rec, kColumns, kAddOrder);
    if (key[0] != 0) rec->qentryId = key;
    return ok;
}

bool CTicketDataProvider::GetTicketRecord(const std::wstring& qentryId, CTicketRecord* rec) {
    if (qentryId.empty()) return false;
    NORVA_ASSERT(rec != nullptr, "ticketRecordP != __null");

    dl_MultiValue query;
    provider::Select(query, kTable, "JDFTICKET.*");
    provider::AddEquals(query, kQentryId, qentryId);
    provider::RunQuery(m_pDatabase, m_pLogger, query,
                       L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecord",
                       L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecord");
    if (query.GetRecordCount() != 1) return false;
    Tuplist row;
    if (!provider::FetchRecord(query, 0, row)) return false;

    provider::ReadColumns(row, *rec, kColumns, kReadOrderHead);
    // LASTUPDATETIME is not read: the record's update time is the submission time.
    rec->lastUpdateTime = provider::TimeOr(row[kColumns[C_SUBTIME].name], TimeStamp(0));
    provider::ReadColumns(row, *rec, kColumns, kReadOrderTail);
    return true;
}

bool CTicketDataProvider::RemoveTicket(const std::wstring& qentryId) {
    m_pLogger->log(kLogLevel, L"%ls", L"Inside CTicketDataProvider::RemoveTicket");
    return m_pDatabase->DeleteTicket(kTable, qentryId.c_str(), PARAM_WSTRING);
}

bool CTicketDataProvider::UpdateTicketRecord(const std::wstring& qentryId, const TicketTableRecord& rec) {
    if (qentryId.empty()) return false;
    std::vector<dl_ColumnValue> columns = provider::SetColumns(rec, kColumns, kUpdateOrder, provider::WriteMode::Every);
    // Written one by one, blob columns get the address of a _BLOB record, not
    // its text (kept so; the JDF text itself is replaced through UpdateJDF).
    for (dl_ColumnValue& column : columns) column.blobRecord = column.type == PARAM_BLOB;
    return m_pDatabase->WriteRow(kTable, qentryId.c_str(), PARAM_WSTRING, columns.data(), columns.size(), false);
}

bool CTicketDataProvider::GetJDF(const std::wstring& qentryId, std::wstring& jdf) {
    _BLOB blob;
    const bool ok =
        m_pDatabase->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.JDF", &blob, PARAM_BLOB);
    if (ok && blob.data != nullptr) jdf = blob.data;
    return ok;
}

bool CTicketDataProvider::UpdateJDF(const std::wstring& qentryId, const std::wstring& jdf) {
    if (jdf.empty()) return false;
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.JDF", jdf.c_str(), PARAM_BLOB);
}

// Reads one text column of a row into `out`; `out` is kept when the read fails.
static bool GetText(dl_MainInterface* db, const std::wstring& qentryId, const char* column, std::wstring& out) {
    if (qentryId.empty()) return false;
    wchar_t buffer[kTextChars] = {};
    const bool ok = db->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, column, buffer, PARAM_WSTRING);
    if (ok) out = buffer;
    return ok;
}

bool CTicketDataProvider::GetHoldDeviceID(const std::wstring& qentryId, std::wstring& devId) {
    return GetText(m_pDatabase, qentryId, "JDFTICKET.HOLDDEVID", devId);
}

bool CTicketDataProvider::GetSenderID(const std::wstring& qentryId, std::wstring& senderId) {
    return GetText(m_pDatabase, qentryId, "JDFTICKET.SENDERID", senderId);
}

bool CTicketDataProvider::GetTicketStatus(const std::wstring& qentryId, int& status) {
    if (qentryId.empty()) return false;
    return m_pDatabase->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATUS", &status, PARAM_INT);
}

bool CTicketDataProvider::UpdateTicketStatus(const std::wstring& qentryId, int status) {
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATUS", &status, PARAM_INT);
}

bool CTicketDataProvider::GetTicketStatusMsg(const std::wstring& qentryId, std::wstring& msg) {
    return GetText(m_pDatabase, qentryId, "JDFTICKET.STATUSMSG", msg);
}

bool CTicketDataProvider::UpdateTicketStatusMsg(const std::wstring& qentryId, const std::wstring& msg) {
    if (qentryId.empty()) return false;
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATUSMSG", msg.c_str(),
                                     PARAM_WSTRING);
}

bool CTicketDataProvider::GetQentryID(const std::wstring& jobId, const std::wstring& senderId, std::wstring& jobPartId,
                                      std::wstring& qentryId) {
    if (jobId.empty() || senderId.empty()) return false;
    dl_MultiValue query;
    query.InsertTickettype(1, kTable);
    query.InsertKeys(2, kQentryId, "JDFTICKET.JOBPARTID");
    provider::AddEquals(query, "JDFTICKET.JOBID", jobId);
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, "JDFTICKET.SENDERID", senderId);
    provider::RunQuery(m_pDatabase, m_pLogger, query, L"Before ExecuteQuery() from CTicketDataProvider::GetQentryID",
                       L"Returned from ExecuteQuery() inside CTicketDataProvider::GetQentryID");
    if (query.GetRecordCount() != 1) return false;
    Tuplist row;
    provider::FetchRecord(query, 0, row);
    qentryId = provider::TextOr(row[kQentryId], std::wstring());
    jobPartId = provider::TextOr(row["JDFTICKET.JOBPARTID"], std::wstring());
    return true;
}

// The keys of all records of `query`, last record first. A record without a
// key is not tested for (the key column is never empty in a result).
static std::list<std::wstring> KeysLastFirst(dl_MultiValue& query) {
    std::list<std::wstring> keys;
    for (int index = query.GetRecordCount() - 1; index >= 0; --index) {
        Tuplist row;
        provider::FetchRecord(query, index, row);
        keys.push_back(provider::TextAsIs(row[kQentryId]));
    }
    return keys;
}

// Appends the non-empty keys of `query`, last record first; false when a
// record could not be fetched (the keys appended so far stay).
static bool AppendKeysLastFirst(dl_MultiValue& query, std::list<std::wstring>& keys) {
    Tuplist row;
    for (int index = query.GetRecordCount() - 1; index >= 0; --index) {
        if (!provider::FetchRecord(query, index, row)) return false;
        std::wstring key = provider::TextOr(row[kQentryId], std::wstring());
        if (!key.empty()) keys.push_back(key);
    }
    return true;
}

std::list<std::wstring> CTicketDataProvider::GetAllQueueEntryIds(std::wstring holdDevId) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.HOLDDEVID", holdDevId);
    provider::RunQuery(m_pDatabase, m_pLogger, query,
                       L"Before ExecuteQuery() from CTicketDataProvider::GetAllQueueEntryIds",
                       L"Returned from ExecuteQuery() inside CTicketDataProvider::GetAllQueueEntryIds");
    return KeysLastFirst(query);
}

std::list<std::wstring> CTicketDataProvider::GetAllQueueEntryIDs() {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::RunQuery(m_pDatabase, m_pLogger, query,
                       L"Before ExecuteQuery() from CTicketDataProvider::GetAllQueueEntryIDs",
                       L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetAllQueueEntryIDs");
    return KeysLastFirst(query);
}

std::list<std::wstring> CTicketDataProvider::GetTicketRecords(std::wstring holdDevId, int state) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.HOLDDEVID", holdDevId);
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, "JDFTICKET.STATE", state);
    provider::RunQuery(m_pDatabase, m_pLogger, query,
                       L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecords",
                       L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecords");
    std::list<std::wstring> keys;
    AppendKeysLastFirst(query, keys);
    return keys;
}

bool CTicketDataProvider::RestoreState(std::wstring qentryId) {
    int prev = -1;
    if (!m_pDatabase->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.PREVSTATE", &prev, PARAM_INT))
        return false;
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATE", &prev, PARAM_INT);
}

bool CTicketDataProvider::SetJDFState(std::wstring qentryId, int state) {
    // One-level undo: the current state moves to PREVSTATE before the new one is set.
    int current = -1;
    bool ok =
        m_pDatabase->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATE", &current, PARAM_INT);
    if (ok)
        ok = m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.PREVSTATE", &current,
                                       PARAM_INT);
    if (ok)
        ok = m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATE", &state, PARAM_INT);
    return ok;
}

bool CTicketDataProvider::GetJDFState(std::wstring qentryId, int& state) {
    return m_pDatabase->GetParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.STATE", &state, PARAM_INT);
}

bool CTicketDataProvider::IsJobPresent(const std::wstring& jobId, const std::wstring& jobPartId,
                                       const std::wstring& senderId, std::wstring& qentryId) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddToken(query, COND_BRACKET, "(");
    provider::AddEquals(query, "JDFTICKET.JOBID", jobId);
    if (!jobPartId.empty()) {
        provider::AddOperator(query, "AND");
        provider::AddEquals(query, "JDFTICKET.JOBPARTID", jobPartId);
    }
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, "JDFTICKET.SENDERID", senderId);
    provider::AddToken(query, COND_BRACKET, ")");
    provider::RunQuery(m_pDatabase, m_pLogger, query, L"Before ExecuteQuery() from CTicketDataProvider::IsJobPresent",
                       L"Returned from ExecuteQuery() Inside CTicketDataProvider::IsJobPresent");
    Tuplist row;
    if (query.GetRecordCount() != 1 || !provider::FetchRecord(query, 0, row)) return false;
    qentryId = provider::TextOr(row[kQentryId], std::wstring());
    return true;
}

bool CTicketDataProvider::GetRecords(std::list<std::wstring>& qentryIds, int sendStatus) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.JDFSENDSTATUS", sendStatus);
    // The log lines are those of GetTicketRecords, as they have always been.
    provider::RunQuery(m_pDatabase, m_pLogger, query,
                       L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecords",
                       L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecords");
    return AppendKeysLastFirst(query, qentryIds);
}

bool CTicketDataProvider::Update_JDFSendStatus(std::wstring& qentryId, int sendStatus) {
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.JDFSENDSTATUS", &sendStatus,
                                     PARAM_INT);
}
