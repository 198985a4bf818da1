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

using provider::BlobColumn;
using provider::IntColumn;
using provider::TextColumn;
using provider::TimeColumn;

constexpr Column<Rec> kColumns[] = {
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

// The index of a column in kColumns, by its name without the table.
constexpr int Col(const char* column) { return provider::IndexOf(kColumns, column); }
constexpr int C_JDF = Col("JDF");  // written on its own by AddTicket

// AddTicket: written after the row and its JDF, stopping at the first failure.
constexpr int kAddOrder[] = {Col("HOLDDEVID"),  Col("JMFRETURL"), Col("PREVIEWCACHEDFILEPATH"), Col("PREVIEWREMOTEURL"),
                             Col("UPLOADURL"),  Col("SENDERID"),  Col("SUBTIME"),               Col("LASTUPDATETIME"),
                             Col("QSUBSPARAMS"), Col("STATUSMSG"), Col("STATUS"),               Col("STATE"),
                             Col("JOBID"),      Col("JOBPARTID")};

// UpdateTicketRecord: every set column, the last write's result counts.
constexpr int kUpdateOrder[] = {Col("HOLDDEVID"),        Col("JDF"),         Col("JMFRETURL"), Col("PREVIEWCACHEDFILEPATH"),
                                Col("PREVIEWREMOTEURL"), Col("JOBID"),       Col("JOBPARTID"), Col("LASTUPDATETIME"),
                                Col("QSUBSPARAMS"),      Col("SENDERID"),    Col("STATUS"),    Col("STATE"),
                                Col("STATUSMSG"),        Col("SUBTIME"),     Col("UPLOADURL")};

// GetTicketRecord reads these before and after filling lastUpdateTime from SUBTIME.
constexpr int kReadOrderHead[] = {Col("HOLDDEVID"), Col("JDF"), Col("JMFRETURL"), Col("JOBID"), Col("JOBPARTID")};
constexpr int kReadOrderTail[] = {Col("QSUBSPARAMS"), Col("SENDERID"),    Col("STATUS"),
                                  Col("STATE"),       Col("STATUSMSG"),   Col("SUBTIME"),
                                  Col("UPLOADURL"),   Col("QENTRYID"),    Col("PREVIEWCACHEDFILEPATH"),
                                  Col("PREVIEWREMOTEURL")};

const char* const kQentryId = "JDFTICKET.QENTRYID";

// GetTicketRecords traces its query with these lines, and GetRecords too.
const provider::Trace kGetTicketRecords = {
    L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecords",
    L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecords"};

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

    return provider::ReadOneByKey(
        m_pDatabase, m_pLogger, kTable, "JDFTICKET.*", kQentryId, qentryId,
        {L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecord",
         L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecord"},
        [rec](Tuplist& row) {
            provider::ReadColumns(row, *rec, kColumns, kReadOrderHead);
            // LASTUPDATETIME is not read: the record's update time is the submission time.
            rec->lastUpdateTime = provider::TimeOr(row[kColumns[Col("SUBTIME")].name], TimeStamp(0));
            provider::ReadColumns(row, *rec, kColumns, kReadOrderTail);
        });
}

bool CTicketDataProvider::RemoveTicket(const std::wstring& qentryId) {
    m_pLogger->log(kLogLevel, L"%ls", L"Inside CTicketDataProvider::RemoveTicket");
    return m_pDatabase->DeleteTicket(kTable, qentryId.c_str(), PARAM_WSTRING);
}

bool CTicketDataProvider::UpdateTicketRecord(const std::wstring& qentryId, const TicketTableRecord& rec) {
    if (qentryId.empty()) return false;
    std::vector<dl_ColumnValue> columns = provider::SetColumns(rec, kColumns, kUpdateOrder, provider::WriteMode::Every);
    // Blob columns go as _BLOB records (docs/kept-behaviours.md, P2).
    for (dl_ColumnValue& column : columns) column.blobRecord = column.type == PARAM_BLOB;
    return WriteRow(m_pDatabase, kTable, qentryId.c_str(), PARAM_WSTRING, columns.data(), columns.size(), false);
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
    return provider::ReadOne(m_pDatabase, m_pLogger, query,
                             {L"Before ExecuteQuery() from CTicketDataProvider::GetQentryID",
                              L"Returned from ExecuteQuery() inside CTicketDataProvider::GetQentryID"},
                             [&](Tuplist& row) {
                                 qentryId = provider::TextOr(row[kQentryId], std::wstring());
                                 jobPartId = provider::TextOr(row["JDFTICKET.JOBPARTID"], std::wstring());
                             });
}

// Runs `query` and answers the keys of all its records, last record first. A
// record without a key is not tested for (the key column is never empty in a
// result).
static std::list<std::wstring> KeysLastFirst(dl_MainInterface* db, Logger* logger, dl_MultiValue& query,
                                             const provider::Trace& trace) {
    std::list<std::wstring> keys;
    provider::WalkQuery(db, logger, query, trace, provider::Walk::LastToFirst,
                        [&keys](Tuplist& row) { keys.push_back(provider::TextAsIs(row[kQentryId])); });
    return keys;
}

// Runs `query` and appends the non-empty keys of its records, last record
// first; false when a record could not be fetched (the keys appended so far
// stay).
static bool AppendKeysLastFirst(dl_MainInterface* db, Logger* logger, dl_MultiValue& query,
                                const provider::Trace& trace, std::list<std::wstring>& keys) {
    return provider::WalkQuery(db, logger, query, trace, provider::Walk::LastToFirst, [&keys](Tuplist& row) {
        std::wstring key = provider::TextOr(row[kQentryId], std::wstring());
        if (!key.empty()) keys.push_back(key);
    });
}

std::list<std::wstring> CTicketDataProvider::GetAllQueueEntryIds(std::wstring holdDevId) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.HOLDDEVID", holdDevId);
    return KeysLastFirst(m_pDatabase, m_pLogger, query,
                         {L"Before ExecuteQuery() from CTicketDataProvider::GetAllQueueEntryIds",
                          L"Returned from ExecuteQuery() inside CTicketDataProvider::GetAllQueueEntryIds"});
}

std::list<std::wstring> CTicketDataProvider::GetAllQueueEntryIDs() {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    return KeysLastFirst(m_pDatabase, m_pLogger, query,
                         {L"Before ExecuteQuery() from CTicketDataProvider::GetAllQueueEntryIDs",
                          L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetAllQueueEntryIDs"});
}

std::list<std::wstring> CTicketDataProvider::GetTicketRecords(std::wstring holdDevId, int state) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.HOLDDEVID", holdDevId);
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, "JDFTICKET.STATE", state);
    std::list<std::wstring> keys;
    AppendKeysLastFirst(m_pDatabase, m_pLogger, query, kGetTicketRecords, keys);
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
    return provider::ReadOne(m_pDatabase, m_pLogger, query,
                             {L"Before ExecuteQuery() from CTicketDataProvider::IsJobPresent",
                              L"Returned from ExecuteQuery() Inside CTicketDataProvider::IsJobPresent"},
                             [&qentryId](Tuplist& row) { qentryId = provider::TextOr(row[kQentryId], std::wstring()); });
}

bool CTicketDataProvider::GetRecords(std::list<std::wstring>& qentryIds, int sendStatus) {
    dl_MultiValue query;
    provider::Select(query, kTable, kQentryId);
    provider::AddEquals(query, "JDFTICKET.JDFSENDSTATUS", sendStatus);
    // Traced with GetTicketRecords' lines (docs/kept-behaviours.md, C3).
    return AppendKeysLastFirst(m_pDatabase, m_pLogger, query, kGetTicketRecords, qentryIds);
}

bool CTicketDataProvider::Update_JDFSendStatus(std::wstring& qentryId, int sendStatus) {
    return m_pDatabase->AddParameter(kTable, qentryId.c_str(), PARAM_WSTRING, "JDFTICKET.JDFSENDSTATUS", &sendStatus,
                                     PARAM_INT);
}
