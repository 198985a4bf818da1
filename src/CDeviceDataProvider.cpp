#include "CDeviceDataProvider.h"

#include <Logger.h>

#include "CDatabaseFactory.h"
#include "_BLOB.h"
#include "private/ProviderSupport.h"

using provider::Column;
using provider::SetTest;

namespace {

const TICKET_TYPE_NV kTable = TICKET_DEVICE;

typedef DeviceTableRecord R;
// The columns of DEVICE and the record fields they hold.
constexpr Column<R> kColumns[] = {
    provider::IntColumn("DEVICE.SERVERID", &R::serverId),
    provider::TextColumn("DEVICE.DEVICEID", &R::deviceId),
    provider::BlobColumn("DEVICE.DEVCAPS", &R::devCaps),
    provider::TextColumn("DEVICE.SUBURL", &R::subUrl),
    provider::IntColumn("DEVICE.DEVINDEX", &R::devIndex),
    provider::TextColumn("DEVICE.INTERNAME", &R::interName),
    provider::TextColumn("DEVICE.DISPLAYNAME", &R::displayName),
    provider::IntColumn("DEVICE.STATUS", &R::status),
    provider::TextColumn("DEVICE.STATUSMSG", &R::statusMsg),
    provider::TextColumn("DEVICE.DEVCONDITION", &R::devCondition),
    // These two count as set from zero up; the other ints only skip -1.
    provider::IntColumn("DEVICE.CONDITION", &R::conditionCode, SetTest::NonNegative),
    provider::IntColumn("DEVICE.DEVICEOPMODE", &R::deviceOpMode, SetTest::NonNegative),
    provider::TimeColumn("DEVICE.LASTUPDATETIME", &R::lastUpdateTime),
};

// The index of a column in kColumns, by its name without the table.
constexpr int Col(const char* column) { return provider::IndexOf(kColumns, column); }

// Written by AddDevice after the key column.
constexpr int kAddOrder[] = {Col("SERVERID"),     Col("SUBURL"),    Col("DEVCAPS"),      Col("DEVINDEX"),
                             Col("INTERNAME"),    Col("DISPLAYNAME"), Col("STATUS"),     Col("STATUSMSG"),
                             Col("DEVCONDITION"), Col("CONDITION"), Col("DEVICEOPMODE"), Col("LASTUPDATETIME")};
// The only columns UpdateDeviceRecord touches.
constexpr int kUpdateOrder[] = {Col("DEVCAPS"), Col("SUBURL"), Col("STATUS"), Col("STATUSMSG")};
// Read back from a "DEVICE.*" record.
constexpr int kReadOrder[] = {Col("SERVERID"),    Col("DEVICEID"),  Col("DEVINDEX"),       Col("SUBURL"),
                              Col("DEVCAPS"),     Col("INTERNAME"), Col("DISPLAYNAME"),    Col("STATUS"),
                              Col("STATUSMSG"),   Col("DEVCONDITION"), Col("CONDITION"),   Col("LASTUPDATETIME"),
                              Col("DEVICEOPMODE")};

// An int laid out so that reading it as a wide C string stops inside this
// object: the int is the first character, the zeros after it end the text.
struct IntAsWideText {
    int value;
    wchar_t end[2]{};
};

}  // namespace

CDeviceDataProvider::CDeviceDataProvider() {
    m_pDatabase = CDatabaseFactory().GetDatabaseInterface();
    m_pLogger = Logger::Initialise();
}

CDeviceDataProvider::~CDeviceDataProvider() {}

bool CDeviceDataProvider::AddDevice(CDeviceRecord* rec) {
    if (rec->deviceId.empty()) return false;
    const std::wstring key = rec->deviceId;
    const provider::Row row{m_pDatabase, kTable, key.c_str(), PARAM_WSTRING};
    // The key column is written again whatever the insert answered, so a device
    // that is there already is updated. Nothing written so far is undone when a
    // later write fails.
    const dl_ColumnValue keyColumn = {"DEVICE.DEVICEID", key.c_str(), PARAM_WSTRING, false, false};
    return provider::InsertColumns(row, false, true, {keyColumn}, *rec, kColumns, kAddOrder);
}

bool CDeviceDataProvider::DeleteDevice(const std::wstring& devId) {
    if (devId.empty()) return false;
    return m_pDatabase->DeleteTicket(kTable, devId.c_str(), PARAM_WSTRING);
}

bool CDeviceDataProvider::UpdateDeviceRecord(const std::wstring& devId, const DeviceTableRecord& rec) {
    if (devId.empty()) return false;
    const provider::Row row{m_pDatabase, kTable, devId.c_str(), PARAM_WSTRING};
    // Every set column is attempted; the last write decides, none gives true.
    return provider::WriteColumns(row, rec, kColumns, kUpdateOrder, provider::WriteMode::Every, true);
}

// Kept as a placeholder: callers update through the const-reference overload.
bool CDeviceDataProvider::UpdateDeviceRecord(const std::wstring&, CDeviceRecord*) { return false; }

bool CDeviceDataProvider::IsDeviceIDValid(const std::wstring& devId, bool* valid) {
    int sid = -1;
    const bool ok = m_pDatabase->GetParameter(kTable, devId.c_str(), PARAM_WSTRING, "DEVICE.SERVERID", &sid, PARAM_INT);
    // Only ever sets the flag; the caller initialises it.
    if (ok && sid != -1 && valid != nullptr) *valid = true;
    return ok;
}

bool CDeviceDataProvider::GetDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) {
    if (devId.empty()) return false;
    NORVA_ASSERT(rec != nullptr, "deviceRecordP != __null");

    return provider::ReadOneByKey(m_pDatabase, m_pLogger, kTable, "DEVICE.*", "DEVICE.DEVICEID", devId,
                                  {L"Before ExecuteQuery() from CDeviceDataProvider::GetDeviceRecord",
                                   L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetDeviceRecord"},
                                  [rec](Tuplist& row) { provider::ReadColumns(row, *rec, kColumns, kReadOrder); });
}

bool CDeviceDataProvider::GetDeviceRecordsConnectedToServer(int serverId, std::vector<DeviceTableRecord>& out) {
    if (!provider::IsSetUnsigned(serverId)) return false;

    dl_MultiValue query;
    provider::Select(query, kTable, "DEVICE.*");
    provider::AddEquals(query, "DEVICE.SERVERID", serverId);
    // Appends in result order; `out` keeps what it held.
    provider::AppendRecords(m_pDatabase, m_pLogger, query,
                            {L"Before ExecuteQuery() from CDeviceDataProvider::GetDeviceRecordsConnectedToServer",
                             L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetDeviceRecordsConnectedToServer"},
                            provider::Walk::FirstToLast, kColumns, kReadOrder, out);
    return true;
}

bool CDeviceDataProvider::GetDeviceID(int serverId, int devIndex, std::wstring& devId) {
    devId.clear();

    int count = 0;
    dl_MultiValue query;
    if (serverId >= 1 && devIndex >= 1) {
        // Each int goes in as a one-character wide text (docs/kept-behaviours.md, P6).
        const IntAsWideText server{serverId};
        const IntAsWideText index{devIndex};
        provider::Select(query, kTable, "DEVICE.DEVICEID");
        provider::AddEquals(query, "DEVICE.SERVERID", PARAM_WSTRING, &server.value);
        provider::AddOperator(query, "AND");
        provider::AddEquals(query, "DEVICE.DEVINDEX", PARAM_WSTRING, &index.value);
        count = provider::RunForCount(m_pDatabase, m_pLogger, query,
                                      {L"Before ExecuteQuery() from CDeviceDataProvider::GetDeviceID",
                                       L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetDeviceID"});
    }
    // Callers ask only for a pair that names exactly one device.
    int nRecCnt = count;
    NORVA_ASSERT(nRecCnt == 1, "nRecCnt == 1");

    Tuplist row;
    provider::FetchRecord(query, 0, row);
    devId = provider::TextAsIs(row["DEVICE.DEVICEID"]);
    return !devId.empty();
}

int CDeviceDataProvider::GetServerId(std::wstring& devId) {
    int sid = -1;
    // An unknown device leaves -1 in place.
    m_pDatabase->GetParameter(kTable, devId.c_str(), PARAM_WSTRING, "DEVICE.SERVERID", &sid, PARAM_INT);
    return sid;
}

bool CDeviceDataProvider::GetDevCaps(const std::wstring& devId, std::wstring& caps) {
    _BLOB blob;
    const bool ok = m_pDatabase->GetParameter(kTable, devId.c_str(), PARAM_WSTRING, "DEVICE.DEVCAPS", &blob, PARAM_BLOB);
    if (ok && blob.data != nullptr) caps = blob.data;
    return ok;
}

std::list<std::wstring> CDeviceDataProvider::GetAllDeviceIds() {
    std::list<std::wstring> ids;
    dl_MultiValue query;
    provider::Select(query, kTable, "DEVICE.DEVICEID");
    // Last record first: the list comes out in reverse result order.
    provider::WalkQuery(m_pDatabase, m_pLogger, query,
                        {L"Before ExecuteQuery() from CDeviceDataProvider::GetAllDeviceIds",
                         L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetAllDeviceIds"},
                        provider::Walk::LastToFirst,
                        [&ids](Tuplist& row) { ids.push_back(provider::TextAsIs(row["DEVICE.DEVICEID"])); });
    return ids;
}

bool CDeviceDataProvider::IsDevicePresentForServer(int serverId) {
    if (serverId == -1) return false;

    dl_MultiValue query;
    provider::Select(query, kTable, "DEVICE.DEVICEID");
    provider::AddEquals(query, "DEVICE.SERVERID", serverId);
    return provider::RunForCount(m_pDatabase, m_pLogger, query,
                                 {L"Before ExecuteQuery() from CDeviceDataProvider::IsDevicePresentForServer",
                                  L"Returned from ExecuteQuery() Inside CDeviceDataProvider::IsDevicePresentForServer"}) > 0;
}
