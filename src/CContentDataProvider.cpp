#include "CContentDataProvider.h"

#include <Logger.h>

#include <algorithm>

#include "CDatabaseFactory.h"
#include "Tuplist.h"
#include "dl_MultiValue.h"
#include "private/ProviderSupport.h"

using provider::Column;
using provider::IntColumn;
using provider::ReadMode;
using provider::SetTest;
using provider::TextColumn;
using provider::TimeColumn;

namespace {

typedef ContentTableRecord Rec;

// The CONTENT columns of a record. nPages counts as set when it is not 0
// (its record default), cacheStat when it is not -1.
constexpr Column<Rec> kColumns[] = {
    IntColumn("CONTENT.CONTENTID", &Rec::contentId),
    TextColumn("CONTENT.RUN_ID", &Rec::runId),
    TextColumn("CONTENT.QENTRYID", &Rec::qentryId),
    TextColumn("CONTENT.REMOTEURL", &Rec::remoteUrl),
    TextColumn("CONTENT.CACFILEPATH", &Rec::cacFilePath),
    IntColumn("CONTENT.CACHESTAT", &Rec::cacheStat),
    TextColumn("CONTENT.DISPLAYNAME", &Rec::displayName),
    IntColumn("CONTENT.NPAGES", &Rec::nPages, SetTest::NotZero),
    TextColumn("CONTENT.FILETYPE", &Rec::fileType),
    TimeColumn("CONTENT.CACHEDATE", &Rec::cacheDate),
    TimeColumn("CONTENT.LASTMODDATE", &Rec::lastModDate),
    TextColumn("CONTENT.PREVIEWREMOTEURL", &Rec::previewRemoteUrl),
    TextColumn("CONTENT.PREVIEWCACFILEPATH", &Rec::previewCacFilePath),
};

// The index of a column in kColumns, by its name without the table.
constexpr int Col(const char* column) { return provider::IndexOf(kColumns, column); }
constexpr int kContentId = Col("CONTENTID"), kRunId = Col("RUN_ID"), kQentryId = Col("QENTRYID"),
              kDisplayName = Col("DISPLAYNAME"), kPreviewRemoteUrl = Col("PREVIEWREMOTEURL");

// Columns written by AddRecord and UpdateRecord, in this order.
constexpr int kWriteOrder[] = {Col("QENTRYID"),  Col("RUN_ID"),      Col("REMOTEURL"), Col("CACFILEPATH"),
                               Col("PREVIEWREMOTEURL"), Col("PREVIEWCACFILEPATH"), Col("CACHESTAT"), Col("DISPLAYNAME"),
                               Col("NPAGES"),    Col("FILETYPE"),    Col("CACHEDATE"), Col("LASTMODDATE")};

// GetRecord: the columns read with the default rule after QENTRYID and RUN_ID.
constexpr int kRecordReadOrder[] = {Col("REMOTEURL"), Col("CACFILEPATH"), Col("PREVIEWREMOTEURL"), Col("PREVIEWCACFILEPATH"),
                                    Col("CACHESTAT"), Col("DISPLAYNAME"), Col("NPAGES"),           Col("FILETYPE"),
                                    Col("CACHEDATE"), Col("LASTMODDATE"), Col("CONTENTID")};

// GetRecords: the columns read with the default rule. Into a fresh record a
// missing RUN_ID leaves the empty runId, which the default rule gives too.
// DISPLAYNAME and PREVIEWREMOTEURL follow rules of their own (ReadListed).
constexpr int kRecordsReadOrder[] = {Col("QENTRYID"),  Col("RUN_ID"),      Col("REMOTEURL"), Col("CACFILEPATH"),
                                     Col("CACHESTAT"), Col("NPAGES"),      Col("FILETYPE"),  Col("CACHEDATE"),
                                     Col("LASTMODDATE"), Col("CONTENTID"), Col("PREVIEWCACFILEPATH")};

const provider::Trace kGetContentId = {L"Before ExecuteQuery() from CContentDataProvider::GetContentId",
                                       L"Returned from ExecuteQuery() Inside CContentDataProvider::GetContentId"};
// GetRecord traces its query with these lines too.
const provider::Trace kGetRecords = {L"Before ExecuteQuery() from CContentDataProvider::GetRecords",
                                     L"Returned from ExecuteQuery() Inside CContentDataProvider::GetRecords"};

// Cache paths are stored with forward slashes.
void NormalisePath(std::wstring& path) { std::replace(path.begin(), path.end(), L'\\', L'/'); }

// Copies one record of a GetRecords result into a fresh record.
ContentTableRecord ReadListed(Tuplist& row) {
    ContentTableRecord rec;
    provider::ReadColumns(row, rec, kColumns, kRecordsReadOrder);
    // Taken without a test: a missing DISPLAYNAME raises out of GetRecords.
    provider::ReadColumn(row, rec, kColumns[kDisplayName], ReadMode::AsIs);
    // A missing PREVIEWREMOTEURL reads as the -1 of the integer columns taken
    // as a wide character.
    rec.previewRemoteUrl =
        provider::TextOr(row[kColumns[kPreviewRemoteUrl].name], std::wstring(1, static_cast<wchar_t>(-1)));
    return rec;
}

}  // namespace

CContentDataProvider::CContentDataProvider() : m_pDatabase(nullptr), m_tableType(TICKET_CONTENT), m_pLogger(nullptr) {
    m_pDatabase = CDatabaseFactory().GetDatabaseInterface();
    m_pLogger = Logger::Initialise();
}

CContentDataProvider::~CContentDataProvider() {}

int CContentDataProvider::GetContentId(const std::wstring& qentryId, const std::wstring& runId) {
    dl_MultiValue query;
    provider::Select(query, TICKET_CONTENT, kColumns[kContentId].name);
    provider::AddEquals(query, kColumns[kQentryId].name, qentryId);
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, kColumns[kRunId].name, runId);
    const int nRecCnt = provider::RunForCount(m_pDatabase, m_pLogger, query, kGetContentId);
    NORVA_ASSERT(nRecCnt == 1, "nRecCnt == 1");
    Tuplist row;
    provider::FetchRecord(query, 0, row);
    return provider::IntOr(row[kColumns[kContentId].name], -1);
}

bool CContentDataProvider::AddRecord(CContentRecord* rec) {
    // The cache paths go out with forward slashes; the caller's record keeps its text.
    ContentTableRecord written = *rec;
    NormalisePath(written.cacFilePath);
    NormalisePath(written.previewCacFilePath);

    int id = -1;
    const provider::Row row = {m_pDatabase, m_tableType, &id, PARAM_INT};
    const bool ok = provider::InsertColumns(row, true, false, {}, written, kColumns, kWriteOrder);
    if (id != -1) rec->contentId = id;
    return ok;
}

bool CContentDataProvider::DeleteRecord(int contentId) {
    if (contentId != -1) return m_pDatabase->DeleteTicket(m_tableType, &contentId, PARAM_INT);
    m_pLogger->log(provider::kLogLevel, L"%ls", L"CContentDataProvider::DeleteRecord() Failed since contentID == -1");
    return false;
}

bool CContentDataProvider::GetRecord(int contentId, CContentRecord* rec) {
    if (contentId == -1) return false;
    NORVA_ASSERT(rec != nullptr, "contentRecordP != __null");

    return provider::ReadOneByKey(m_pDatabase, m_pLogger, TICKET_CONTENT, "CONTENT.*", kColumns[kContentId].name,
                                  contentId, kGetRecords, [rec](Tuplist& row) {
                                      provider::ReadColumn(row, *rec, kColumns[kQentryId], ReadMode::AsIs);
                                      provider::ReadColumn(row, *rec, kColumns[kRunId], ReadMode::KeepIfMissing);
                                      provider::ReadColumns(row, *rec, kColumns, kRecordReadOrder);
                                  });
}

bool CContentDataProvider::GetRecords(const std::wstring& qentryId, std::vector<ContentTableRecord>& out) {
    if (qentryId.empty()) {
        m_pLogger->log(provider::kLogLevel, L"%ls", L"CContentDataProvider::GetRecords()-> Empty QueuEntry");
        return false;
    }

    dl_MultiValue query;
    provider::Select(query, TICKET_CONTENT, "CONTENT.*");
    provider::AddEquals(query, kColumns[kQentryId].name, qentryId);
    // Appended in result order; `out` keeps what it held.
    provider::WalkQuery(m_pDatabase, m_pLogger, query, kGetRecords, provider::Walk::FirstToLast,
                        [&out](Tuplist& row) { out.push_back(ReadListed(row)); });
    return true;
}

bool CContentDataProvider::UpdateRecord(int contentId, const ContentTableRecord& rec) {
    if (contentId == -1) return false;
    // Every set column is attempted; the last write's result counts. Paths are
    // written as they stand.
    const provider::Row row = {m_pDatabase, m_tableType, &contentId, PARAM_INT};
    return provider::WriteColumns(row, rec, kColumns, kWriteOrder, provider::WriteMode::Every, false);
}
