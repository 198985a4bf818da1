#include "CServerDataProvider.h"

#include <Logger.h>

#include "CDatabaseFactory.h"
#include "CDeviceDataProvider.h"
#include "private/ProviderSupport.h"

using provider::Column;

namespace {

typedef ServerTableRecord R;
// The columns of SERVER and the record fields they hold.
constexpr Column<R> kColumns[] = {
    provider::IntColumn("SERVER.SERVERID", &R::SERVERID),
    provider::TextColumn("SERVER.COMPNAME", &R::COMPNAME),
    provider::TextColumn("SERVER.STATMSG", &R::STATMSG),
    provider::IntColumn("SERVER.STATE", &R::STATE),
    provider::TextColumn("SERVER.LOGINPWD", &R::LOGINPWD),
    provider::TextColumn("SERVER.LOGINSERNAME", &R::LOGINSERNAME),
    provider::TextColumn("SERVER.SERIALNO", &R::SERIALNO),
    provider::TextColumn("SERVER.VERSION", &R::VERSION),
    provider::IntColumn("SERVER.STYPE", &R::STYPE),
};

// The index of a column in kColumns, by its name without the table.
constexpr int Col(const char* column) { return provider::IndexOf(kColumns, column); }

// Written by AddServer and UpdateServerRecord.
constexpr int kWriteOrder[] = {Col("COMPNAME"), Col("LOGINPWD"), Col("LOGINSERNAME"), Col("SERIALNO"),
                               Col("STYPE"),    Col("STATE"),    Col("STATMSG"),      Col("VERSION")};
// Read back by GetServerRecord.
constexpr int kRecordOrder[] = {Col("COMPNAME"), Col("LOGINPWD"), Col("LOGINSERNAME"), Col("SERIALNO"), Col("SERVERID"),
                                Col("STYPE"),    Col("STATE"),    Col("STATMSG"),      Col("VERSION")};
// Read back by GetServerRecords.
constexpr int kListOrder[] = {Col("SERVERID"), Col("COMPNAME"),     Col("STATMSG"),  Col("STATE"),  Col("LOGINPWD"),
                              Col("LOGINSERNAME"), Col("SERIALNO"), Col("VERSION"), Col("STYPE")};

// Size of the buffers a wide-string column is read into (VARCHAR(1023) and its NUL).
const size_t kTextBufferSize = 1024;

}  // namespace

CServerDataProvider::CServerDataProvider() {
    m_pDatabase = nullptr;
    m_tableType = TICKET_SERVER;
    m_pDatabase = CDatabaseFactory().GetDatabaseInterface();
    m_pLogger = Logger::Initialise();
}

CServerDataProvider::~CServerDataProvider() {}

bool CServerDataProvider::AddServer(CServerRecord* rec) {
    int id = -1;
    const provider::Row row{m_pDatabase, m_tableType, &id, PARAM_INT};
    const bool ok = provider::InsertColumns(row, true, false, {}, *rec, kColumns, kWriteOrder);
    if (id != -1) rec->SERVERID = id;
    return ok;
}

bool CServerDataProvider::DeleteServer(int serverId) {
    if (serverId == -1) return false;

    // Devices refer to their server: such a server stays, and the answer is
    // true (docs/kept-behaviours.md, P11).
    CDeviceDataProvider devices;
    if (devices.IsDevicePresentForServer(serverId)) {
        m_pLogger->log(provider::kLogLevel, L"%ls",
                       L"Inside CServerDataProvider::DeleteServer() Voilation of foreign Key, Device present for the serverid");
        return true;
    }
    return m_pDatabase->DeleteTicket(m_tableType, &serverId, PARAM_INT);
}

bool CServerDataProvider::UpdateServerRecord(int serverId, const ServerTableRecord& rec) {
    if (serverId == -1) return false;
    const provider::Row row{m_pDatabase, m_tableType, &serverId, PARAM_INT};
    // Every set field is written; the last write decides, none gives false.
    return provider::WriteColumns(row, rec, kColumns, kWriteOrder, provider::WriteMode::Every, false);
}

bool CServerDataProvider::GetLoginInfo(int serverId, std::wstring& loginName, std::wstring& password) {
    if (serverId == -1) return false;

    // The store writes as much as the value holds, so read into buffers
    // that fit any column value and hand the texts on from there.
    wchar_t name[kTextBufferSize] = {};
    bool ok = m_pDatabase->GetParameter(m_tableType, &serverId, PARAM_INT, "SERVER.LOGINSERNAME", name, PARAM_WSTRING);
    if (!ok) return false;
    loginName = name;

    wchar_t pwd[kTextBufferSize] = {};
    ok = m_pDatabase->GetParameter(m_tableType, &serverId, PARAM_INT, "SERVER.LOGINPWD", pwd, PARAM_WSTRING);
    if (ok) password = pwd;
    return ok;
}

bool CServerDataProvider::UpdateServerState(int serverId, int state) {
    if (serverId == -1) return false;
    return m_pDatabase->AddParameter(m_tableType, &serverId, PARAM_INT, "SERVER.STATE", &state, PARAM_INT);
}

bool CServerDataProvider::GetServerRecord(int serverId, CServerRecord* out) {
    NORVA_ASSERT_AT(out != nullptr, "serverRecordP != __null", "../../src/CServerDataProvider", 237,
                    "virtual bool CServerDataProvider::GetServerRecord(int, CServerRecord*)");
    if (serverId == -1) return false;

    return provider::ReadOneByKey(m_pDatabase, m_pLogger, m_tableType, "SERVER.*", "SERVER.SERVERID", serverId,
                                  {L"Before ExecuteQuery() from CServerDataProvider::GetServerRecord",
                                   L"Returned from ExecuteQuery() Inside CServerDataProvider::GetServerRecord"},
                                  [out](Tuplist& row) { provider::ReadColumns(row, *out, kColumns, kRecordOrder); });
}

int CServerDataProvider::IsServerAndServerTypeExists(std::wstring compName, int serverType, int& serverId) {
    serverId = -1;

    dl_MultiValue query;
    query.InsertTickettype(1, TICKET_SERVER);
    query.InsertKeys(3, "SERVER.STYPE", "SERVER.COMPNAME", "SERVER.SERVERID");
    // From the last row back: of several matches the last in the result wins.
    provider::WalkQuery(m_pDatabase, m_pLogger, query,
                        {L"Before ExecuteQuery() from CServerDataProvider::IsServerAndServerTypeExists",
                         L"Returned from ExecuteQuery() Inside CServerDataProvider::IsServerAndServerTypeExists"},
                        provider::Walk::LastToFirst, [&](Tuplist& row) {
                            if (provider::IntOr(row["SERVER.STYPE"], -1) != serverType) return true;
                            if (provider::TextOr(row["SERVER.COMPNAME"], std::wstring()) != compName) return true;
                            serverId = provider::IntOr(row["SERVER.SERVERID"], -1);
                            return false;
                        });
    return serverId;
}

bool CServerDataProvider::GetServerRecords(std::vector<ServerTableRecord>& out) {
    dl_MultiValue query;
    provider::Select(query, TICKET_SERVER, "SERVER.*");
    // Appended from the last row back, i.e. in reverse result order.
    provider::AppendRecords(m_pDatabase, m_pLogger, query,
                            {L"Before ExecuteQuery() from CServerDataProvider::GetServerRecords",
                             L"Returned from ExecuteQuery() Inside CServerDataProvider::GetServerRecords"},
                            provider::Walk::LastToFirst, kColumns, kListOrder, out);
    return true;
}

int CServerDataProvider::GetRecordCount() {
    dl_MultiValue query;
    provider::Select(query, TICKET_SERVER, "SERVER.SERVERID");
    return provider::RunForCount(m_pDatabase, m_pLogger, query,
                                 {L"Before ExecuteQuery() from CServerDataProvider::GetRecordCount",
                                  L"Returned from ExecuteQuery() Inside CServerDataProvider::GetRecordCount"});
}
