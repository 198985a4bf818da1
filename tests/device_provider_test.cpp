// CDeviceDataProvider against the private server: records, the kept quirks of
// AddDevice and GetDeviceID, the lists and their orders.
#include <gtest/gtest.h>

#include <tuple>

#include "CDeviceDataProvider.h"
#include "TestSupport.h"

struct DeviceProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"DEVICE", "SERVER"}); }
    testing_support::RawDb db;
    CDeviceDataProvider provider;
};

// The assertions that stop the process (first: the child reruns this test). AddDevice rewrites the key column and
// writes -2 and 0, while the server rejects CONDITION (the safe profile sends one INSERT and stores it); the record reads back whole with the reserved fields
// untouched; UpdateDeviceRecord writes its four columns only; the single-column reads; the -1/empty guards refuse
// before any SQL. Then a negative condition code or op mode is not written; the lists in result order (appended)
// and reverse result order; GetDeviceID takes its ints as one-character texts; the log lines.
TEST_F(DeviceProviderTest, RecordsQueriesAndQuirks) {
    DeviceTableRecord rec{7, L"D1", 9, std::wstring(1 << 20, L'\u00e9'), L"http://h/\u6771\u4eac", 3, L"Stra\u00dfe",
                          L"\u00c9tage", -2, L"bereit \u2713", L"ok", 3, 0, testing_support::Stamp(2026, 2, 28, 23, 59, 59), L"kept"},
        back, upd, none;
    using testing_support::ByProfile;
    std::wstring id = L"D1", caps, unknown = L"nope";
    EXPECT_DEATH(provider.GetDeviceID(0, 50, caps), "nRecCnt == 1");  // no query run: no record
    EXPECT_DEATH(provider.GetDeviceRecord(L"12", nullptr), "deviceRecordP != __null");
    testing_support::LogCapture log;
    ASSERT_TRUE(provider.AddDevice(&rec));
    if (testing_support::Safe()) {
        EXPECT_TRUE(log.ContainsText(L"INSERT INTO `DEVICE` (`DEVICEID`, `SERVERID`, `SUBURL`, `DEVCAPS`, `DEVINDEX`"));
        EXPECT_TRUE(log.ContainsText(L"`CONDITION`, `DEVICEOPMODE`, `LASTUPDATETIME`) VALUES (?, ?, "));
    } else {
        EXPECT_TRUE(log.Contains(L"UPDATE DEVICE SET DEVICEID = 'D1' WHERE DEVICEID = 'D1'"));
        EXPECT_TRUE(log.Contains(L"UPDATE DEVICE SET CONDITION = '3' WHERE DEVICEID = 'D1'"));  // logged only: stays NULL
    }
    EXPECT_EQ(ByProfile<std::string>("-2|<null>|0", "-2|3|0"),
              db.Scalar("SELECT CONCAT_WS('|', STATUS, IFNULL(`CONDITION`,'<null>'), DEVICEOPMODE) FROM DEVICE"));

    back.reservedInt = 9, back.reservedText = L"kept";
    ASSERT_TRUE(provider.GetDeviceRecord(id, &back));
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT DEVICE.* FROM DEVICE WHERE ( DEVICE.DEVICEID = 'D1' ) ",
                                       L"SELECT `DEVICE`.* FROM `DEVICE` WHERE ( `DEVICE`.`DEVICEID` = ? ) \nvalues: 'D1'")));
    const auto fields = [](const DeviceTableRecord& r) {
        return std::tie(r.serverId, r.deviceId, r.reservedInt, r.devCaps, r.subUrl, r.devIndex, r.interName, r.displayName,
                        r.status, r.statusMsg, r.devCondition, r.conditionCode, r.deviceOpMode, r.lastUpdateTime, r.reservedText);
    };
    // The exact profile: a NULL reads back as 0, a DATETIME never comes back.
    rec.conditionCode = ByProfile(0, 3), rec.lastUpdateTime = testing_support::Stored(rec.lastUpdateTime);
    EXPECT_TRUE(fields(rec) == fields(back));
    EXPECT_TRUE(provider.GetDevCaps(id, caps) && caps == rec.devCaps);

    upd.devCaps = L"c", upd.subUrl = L"s", upd.status = 4, upd.statusMsg = L"m", upd.displayName = L"not written";
    EXPECT_TRUE(provider.UpdateDeviceRecord(id, upd));
    EXPECT_EQ("c|s|4|m|\u00c9tage", db.Scalar("SELECT CONCAT_WS('|', DEVCAPS, SUBURL, STATUS, STATUSMSG, DISPLAYNAME) FROM DEVICE"));
    std::vector<DeviceTableRecord> out(1);
    log.Clear();
    EXPECT_FALSE(provider.UpdateDeviceRecord(L"", upd) || provider.UpdateDeviceRecord(id, &upd) ||
                 provider.AddDevice(&none) || provider.GetDeviceRecord(L"", nullptr) || provider.DeleteDevice(L"") ||
                 provider.GetDeviceRecordsConnectedToServer(-1, out) || provider.IsDevicePresentForServer(-1));
    EXPECT_TRUE(provider.UpdateDeviceRecord(id, none) && log.Lines().empty() && out.size() == 1);  // nothing to write

    bool valid = false;
    EXPECT_TRUE(provider.IsDeviceIDValid(id, &valid) && valid);
    EXPECT_EQ(std::make_pair(7, -1), std::make_pair(provider.GetServerId(id), provider.GetServerId(unknown)));
    db.Exec("UPDATE DEVICE SET SERVERID = -1");
    EXPECT_TRUE(provider.IsDeviceIDValid(id, &valid) && valid);  // never set to false, left as it was
    EXPECT_TRUE(provider.DeleteDevice(id) && db.Count("DEVICE") == 0);

    log.Clear();
    using Row = std::tuple<const wchar_t*, int, int>;  // id, server, index; the ids sort as their servers do
    for (const auto& [dev, server, index] : {Row{L"A", 7, 1}, Row{L"B", 7, 2}, Row{L"C", 7, 3}, Row{L"X", 8, -1}, Row{L"12", 1, 2}}) {
        DeviceTableRecord more;
        more.deviceId = dev, more.serverId = server, more.devIndex = index, more.conditionCode = more.deviceOpMode = -2;
        ASSERT_TRUE(provider.AddDevice(&more));
    }
    EXPECT_FALSE(log.ContainsText(ByProfile(L"SET CONDITION", L"`CONDITION`")) ||
                 log.ContainsText(ByProfile(L"SET DEVICEOPMODE", L"`DEVICEOPMODE`")));

    ASSERT_TRUE(provider.GetDeviceRecordsConnectedToServer(7, out) && out.size() == 4);
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT DEVICE.* FROM DEVICE WHERE ( DEVICE.SERVERID = '7' ) ",
                                       L"SELECT `DEVICE`.* FROM `DEVICE` WHERE ( `DEVICE`.`SERVERID` = ? ) \nvalues: 7")));
    EXPECT_EQ(std::make_tuple(std::wstring(), std::wstring(L"A"), std::wstring(L"B"), std::wstring(L"C"), 3),
              std::tie(out[0].deviceId, out[1].deviceId, out[2].deviceId, out[3].deviceId, out[3].devIndex));
    EXPECT_TRUE(provider.IsDevicePresentForServer(8) && !provider.IsDevicePresentForServer(9));
    EXPECT_EQ((std::list<std::wstring>{L"X", L"C", L"B", L"A", L"12"}), provider.GetAllDeviceIds());
    EXPECT_FALSE(provider.GetDeviceRecord(L"nope", &out[0]));
    EXPECT_TRUE(provider.GetDeviceID(49, 50, out[0].deviceId) && out[0].deviceId == L"12");  // 49 and 50 are '1' and '2'
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT DEVICE.DEVICEID FROM DEVICE", L"SELECT `DEVICE`.`DEVICEID` FROM `DEVICE`")));
    EXPECT_TRUE(log.Contains(ByProfile(
        L"SELECT DEVICE.DEVICEID FROM DEVICE WHERE ( DEVICE.SERVERID = '1' ) AND ( DEVICE.DEVINDEX = '2' ) ",
        L"SELECT `DEVICE`.`DEVICEID` FROM `DEVICE` WHERE ( `DEVICE`.`SERVERID` = ? ) AND ( `DEVICE`.`DEVINDEX` = ? ) \nvalues: '1', '2'")));
    for (const wchar_t* op : {L"GetDeviceRecord", L"GetDeviceRecordsConnectedToServer", L"IsDevicePresentForServer",
                              L"GetAllDeviceIds", L"GetDeviceID"}) {
        EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CDeviceDataProvider::" + std::wstring(op))) << op;
        EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CDeviceDataProvider::" + std::wstring(op))) << op;
    }
}
