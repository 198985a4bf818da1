#include "CStatusSubDataProvider.h"

#include <Logger.h>

#include <initializer_list>
#include <utility>

#include "CDatabaseFactory.h"
#include "Tuplist.h"
#include "dl_MainInterface.h"
#include "dl_MultiValue.h"
#include "private/ProviderSupport.h"

using provider::Column;
typedef StatusSubTableRecord Rec;

namespace {

// Columns of STATSSUBS in record field order.
constexpr Column<Rec> kColumns[] = {
    provider::IntColumn("STATSSUBS.ID", &Rec::ID),
    provider::TextColumn("STATSSUBS.REFID", &Rec::REFID),
    provider::TextColumn("STATSSUBS.URL", &Rec::URL),
    provider::BlobColumn("STATSSUBS.STATSUBS", &Rec::STATSUBS),
    provider::BlobColumn("STATSSUBS.LASTSIG", &Rec::LASTSIG),
    provider::TimeColumn("STATSSUBS.LASTUPDATE", &Rec::LASTUPDATE),
    provider::TextColumn("STATSSUBS.DEVDETLEVEL", &Rec::DEVDETLEVEL),
    provider::TextColumn("STATSSUBS.JOBDETAIL", &Rec::JOBDETAIL),
    provider::IntColumn("STATSSUBS.QUEUEINFO", &Rec::QUEUEINFO),
    provider::IntColumn("STATSSUBS.EMPLOYEINFO", &Rec::EMPLOYEINFO),
    provider::TextColumn("STATSSUBS.DEVICEID", &Rec::DEVICEID),
    provider::TextColumn("STATSSUBS.QENTRYID", &Rec::QENTRYID),
    provider::TextColumn("STATSSUBS.JOBID", &Rec::JOBID),
    provider::TextColumn("STATSSUBS.JOBPARTID", &Rec::JOBPARTID),
    provider::IntColumn("STATSSUBS.REPEATSTEP", &Rec::REPEATSTEP),
    provider::IntColumn("STATSSUBS.REPEATTIME", &Rec::REPEATTIME),
    provider::BlobColumn("STATSSUBS.RESPONSE", &Rec::RESPONSE),
    provider::TextColumn("STATSSUBS.SENDERID", &Rec::SENDERID),
};

// The index of a column in kColumns, by its name without the table.
constexpr int Col(const char* column) { return provider::IndexOf(kColumns, column); }
using Field = int;
constexpr Field COL_ID = Col("ID"), COL_REFID = Col("REFID"), COL_URL = Col("URL"), COL_LASTSIG = Col("LASTSIG"),
                COL_LASTUPDATE = Col("LASTUPDATE"), COL_DEVICEID = Col("DEVICEID"), COL_QENTRYID = Col("QENTRYID"),
                COL_JOBID = Col("JOBID"), COL_JOBPARTID = Col("JOBPARTID"), COL_REPEATTIME = Col("REPEATTIME"),
                COL_RESPONSE = Col("RESPONSE"), COL_SENDERID = Col("SENDERID");

// Writers take the set fields in column-name order (the key is never written).
constexpr int kWriteOrder[] = {Col("DEVDETLEVEL"), Col("DEVICEID"),  Col("EMPLOYEINFO"), Col("JOBDETAIL"),
                               Col("JOBID"),       Col("JOBPARTID"), Col("LASTSIG"),     Col("LASTUPDATE"),
                               Col("QENTRYID"),    Col("QUEUEINFO"), Col("REFID"),       Col("REPEATSTEP"),
                               Col("REPEATTIME"),  Col("RESPONSE"),  Col("SENDERID"),    Col("STATSUBS"),
                               Col("URL")};

const char* Name(Field field) { return kColumns[field].name; }

const char kAll[] = "STATSSUBS.*";
const wchar_t kAfterGetRecords[] = L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords";
const provider::Trace kGetRecords = {L"Before ExecuteQuery() from CStatusSubDataProvider::GetRecords",
                                     kAfterGetRecords};

bool Invalid(int id) { return !provider::IsSetUnsigned(id); }

// Copies one result row into a record, every field in field order; a column
// without a value gives the field's default.
void ReadRecord(Tuplist& row, Rec& rec) { provider::ReadAllColumns(row, rec, kColumns); }

// Runs a GetRecords query and appends its rows to `out`, skipping those
// `keep` refuses; reading ends at the first row that cannot be fetched.
template <class Keep>
void ReadRows(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, std::vector<Rec>& out, Keep keep) {
    provider::WalkQuery(db, logger, query, kGetRecords, provider::Walk::FirstToLast, [&](Tuplist& row) {
        Rec rec;
        ReadRecord(row, rec);
        if (keep(rec)) out.push_back(std::move(rec));
    });
}

void ReadRows(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, std::vector<Rec>& out) {
    ReadRows(db, logger, query, out, [](const Rec&) { return true; });
}

// (DEVICEID = deviceId) when given, then "AND" (column = value) for each
// further non-empty value, with or without a device test before it
// (docs/kept-behaviours.md, P12).
void AddDeviceTests(dl_MultiValue& query, const std::wstring& deviceId,
                    std::initializer_list<std::pair<Field, const std::wstring*>> more) {
    if (!deviceId.empty()) provider::AddEquals(query, Name(COL_DEVICEID), deviceId);
    for (const auto& test : more) {
        if (test.second->empty()) continue;
        provider::AddOperator(query, "AND");
        provider::AddEquals(query, Name(test.first), *test.second);
    }
}

}  // namespace

CStatusSubDataProvider::CStatusSubDataProvider() {
    m_pDatabase = nullptr;
    m_tableType = TICKET_STATSSUBS;
    m_pDatabase = CDatabaseFactory().GetDatabaseInterface();
    m_pLogger = Logger::Initialise();
}

CStatusSubDataProvider::~CStatusSubDataProvider() {}

bool CStatusSubDataProvider::AddRecord(StatusSubTableRecord* rec) {
    int id = -1;
    const provider::Row row{m_pDatabase, m_tableType, &id, PARAM_INT};
    const bool ok = provider::InsertColumns(row, true, false, {}, *rec, kColumns, kWriteOrder);
    if (!Invalid(id)) rec->ID = id;
    return ok;
}

bool CStatusSubDataProvider::DeleteRecord(int id) {
    if (Invalid(id)) return false;
    return m_pDatabase->DeleteTicket(m_tableType, &id, PARAM_INT);
}

bool CStatusSubDataProvider::UpdateRecord(int id, const StatusSubTableRecord& rec) {
    if (Invalid(id)) return false;
    // Every set column is attempted and the last write's result counts, but
    // SENDERID is written only while that result is true.
    std::vector<dl_ColumnValue> columns = provider::SetColumns(rec, kColumns, kWriteOrder, provider::WriteMode::Every);
    for (dl_ColumnValue& column : columns) column.whileOk = column.column == Name(COL_SENDERID);
    return WriteRow(m_pDatabase, m_tableType, &id, PARAM_INT, columns.data(), columns.size(), false);
}

bool CStatusSubDataProvider::UpdateLastStatusSignal(int id, const std::wstring& signal) {
    if (Invalid(id) || signal.empty()) return false;
    return m_pDatabase->AddParameter(m_tableType, &id, PARAM_INT, Name(COL_LASTSIG), signal.c_str(), PARAM_BLOB);
}

bool CStatusSubDataProvider::UpdateLastSigSendStatus(int id, bool sent) {
    if (Invalid(id)) return false;
    int value = sent ? 1 : 0;
    return m_pDatabase->AddParameter(m_tableType, &id, PARAM_INT, "STATSSUBS.LASTSIGSENDSTATUS", &value, PARAM_INT);
}

bool CStatusSubDataProvider::UpdateResponse(int id, const std::wstring& response) {
    if (Invalid(id) || response.empty()) return false;
    return m_pDatabase->AddParameter(m_tableType, &id, PARAM_INT, Name(COL_RESPONSE), response.c_str(), PARAM_BLOB);
}

bool CStatusSubDataProvider::GetRecords(const std::wstring& qentryId, const std::wstring& senderId,
                                        const std::wstring& jobId, const std::wstring& jobPartId, bool matchAll,
                                        std::vector<StatusSubTableRecord>& out) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    const std::pair<Field, const std::wstring*> tests[] = {
        {COL_QENTRYID, &qentryId}, {COL_SENDERID, &senderId}, {COL_JOBID, &jobId}, {COL_JOBPARTID, &jobPartId}};
    bool first = true;
    for (const auto& test : tests) {
        if (test.second->empty()) continue;
        if (!first) provider::AddOperator(query, matchAll ? "AND" : "OR");
        provider::AddEquals(query, Name(test.first), *test.second);
        first = false;
    }
    ReadRows(m_pDatabase, m_pLogger, query, out);
    return true;
}

// Time-driven subscriptions that are due. CURRENT_TIMESTAMP goes in as a
// column token so that it reaches the statement unquoted.
bool CStatusSubDataProvider::GetRecords(std::vector<StatusSubTableRecord>& out) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    provider::AddToken(query, COND_BRACKET, "(");
    provider::AddToken(query, COND_COLUMN, Name(COL_REPEATTIME));
    provider::AddOperator(query, "IS NOT NULL");
    provider::AddToken(query, COND_BRACKET, ")");
    provider::AddOperator(query, "AND");
    provider::AddToken(query, COND_BRACKET, "(");
    provider::AddToken(query, COND_COLUMN, "CURRENT_TIMESTAMP");
    provider::AddOperator(query, ">=");
    provider::AddToken(query, COND_COLUMN, Name(COL_LASTUPDATE));
    provider::AddToken(query, COND_BRACKET, ")");
    ReadRows(m_pDatabase, m_pLogger, query, out);
    return true;
}

bool CStatusSubDataProvider::GetRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    provider::AddEquals(query, "STATSSUBS.LASTSIGSENDSTATUS", sendStatus ? 1 : 0);
    ReadRows(m_pDatabase, m_pLogger, query, out);
    return true;
}

bool CStatusSubDataProvider::GetRecords(std::wstring deviceId, std::wstring qentryId,
                                        std::vector<StatusSubTableRecord>& out) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    AddDeviceTests(query, deviceId, {{COL_QENTRYID, &qentryId}});
    ReadRows(m_pDatabase, m_pLogger, query, out);
    return true;
}

bool CStatusSubDataProvider::GetRecord(StatusSubTableRecord& out, std::wstring deviceId, std::wstring senderId) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    AddDeviceTests(query, deviceId, {{COL_SENDERID, &senderId}});
    return provider::ReadOne(m_pDatabase, m_pLogger, query, kGetRecords, [&out](Tuplist& row) { ReadRecord(row, out); });
}

// Rows of a device's subscriptions, keeping those without job detail when
// `withoutJobDetail` is true and those with job detail otherwise.
bool CStatusSubDataProvider::GetGlobalSubscriptionRecords(std::wstring deviceId, std::wstring qentryId,
                                                          std::vector<StatusSubTableRecord>& out,
                                                          bool withoutJobDetail, std::wstring senderId) {
    dl_MultiValue query;
    provider::Select(query, m_tableType, kAll);
    AddDeviceTests(query, deviceId, {{COL_QENTRYID, &qentryId}, {COL_SENDERID, &senderId}});
    ReadRows(m_pDatabase, m_pLogger, query, out, [withoutJobDetail](const Rec& rec) { return rec.JOBDETAIL.empty() == withoutJobDetail; });
    return true;
}

// True when the sender has no subscription for this queue entry and job
// (and job part, when given) yet.
bool CStatusSubDataProvider::NeedStatusSubscription(const std::wstring& qentryId, const std::wstring& jobId,
                                                    const std::wstring& jobPartId, const std::wstring& senderId) {
    if (jobId.empty() || senderId.empty()) return false;
    dl_MultiValue query;
    provider::Select(query, TICKET_STATSSUBS, Name(COL_ID));
    provider::AddToken(query, COND_BRACKET, "(");
    provider::AddEquals(query, Name(COL_QENTRYID), qentryId);
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, Name(COL_JOBID), jobId);
    if (!jobPartId.empty()) {
        provider::AddOperator(query, "AND");
        provider::AddEquals(query, Name(COL_JOBPARTID), jobPartId);
    }
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, Name(COL_SENDERID), senderId);
    provider::AddToken(query, COND_BRACKET, ")");
    // Closed with GetRecords' line (docs/kept-behaviours.md, C3).
    if (m_pDatabase)
        provider::RunQuery(m_pDatabase, m_pLogger, query,
                           {L"Before ExecuteQuery() from CStatusSubDataProvider::NeedStatusSubscription",
                            kAfterGetRecords});
    return query.GetRecordCount() < 1;
}

// Mode 0 asks about the record's queue entry and job; mode 1 about a global
// subscription (queue entry "-1") of the sender at the device without job
// detail, any other mode about one with job detail. A match found that way
// gives its id to rec.
bool CStatusSubDataProvider::NeedStatusSubscription(StatusSubTableRecord& rec, int mode) {
    if (mode == 0) return NeedStatusSubscription(rec.QENTRYID, rec.JOBID, rec.JOBPARTID, rec.SENDERID);
    std::vector<Rec> globals;
    GetGlobalSubscriptionRecords(rec.DEVICEID, L"-1", globals, mode == 1, std::wstring());
    for (const Rec& global : globals) {
        if (global.SENDERID == rec.SENDERID) {
            rec.ID = global.ID;
            return false;
        }
    }
    return true;
}

// Deletes the subscriptions to a URL that match every other identifying
// field the pattern sets.
bool CStatusSubDataProvider::RemoveRecords(const StatusSubTableRecord& pattern) {
    if (pattern.URL.empty()) return false;
    dl_MultiValue query;
    provider::Select(query, TICKET_STATSSUBS, Name(COL_ID));
    provider::AddToken(query, COND_BRACKET, "(");
    provider::AddEquals(query, Name(COL_URL), pattern.URL);
    for (Field field : {COL_REFID, COL_DEVICEID, COL_JOBID, COL_JOBPARTID, COL_QENTRYID, COL_SENDERID}) {
        const std::wstring& value = pattern.*kColumns[field].text;
        if (value.empty()) continue;
        provider::AddOperator(query, "AND");
        provider::AddEquals(query, Name(field), value);
    }
    provider::AddToken(query, COND_BRACKET, ")");
    if (!m_pDatabase) return false;
    provider::WalkQuery(m_pDatabase, m_pLogger, query,
                        {L"Before ExecuteQuery() from CStatusSubDataProvider::RemoveRecords",
                         L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::RemoveRecords"},
                        provider::Walk::FirstToLast,
                        [this](Tuplist& row) { DeleteRecord(provider::IntOr(row[Name(COL_ID)], -1)); });
    return true;
}

bool CStatusSubDataProvider::GetRecordsCount(int& count) {
    count = 0;
    dl_MultiValue query;
    provider::Select(query, TICKET_STATSSUBS, Name(COL_ID));
    if (!m_pDatabase) return false;
    count = provider::RunForCount(m_pDatabase, m_pLogger, query,
                                  {L"Before ExecuteQuery() from CStatusSubDataProvider::GetRecordsCount",
                                   L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecordsCount"});
    return true;
}
