#include <gtest/gtest.h>

#include <tuple>

#include "CDeviceDataProvider.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

class DeviceProviderTest : public ::testing::Test {
protected:
    void SetUp() override { db.Reset({"DEVICE", "SERVER"}); }
    bool Add(const std::wstring& id, int serverId, int devIndex = -1) {
        DeviceTableRecord rec;
        rec.deviceId = id, rec.serverId = serverId, rec.devIndex = devIndex;
        return provider.AddDevice(&rec);
    }
    RawDb db;
    CDeviceDataProvider provider;
};

TEST_F(DeviceProviderTest, AddReadUpdateAndSingleColumns) {
    DeviceTableRecord rec;
    rec.deviceId = L"D1", rec.serverId = 7, rec.devCaps = std::wstring(1 << 20, L'\u00e9');
    rec.subUrl = L"http://h/\u6771\u4eac", rec.devIndex = 3, rec.interName = L"Stra\u00dfe";
    rec.displayName = L"\u00c9tage", rec.status = -2, rec.statusMsg = L"bereit \u2713", rec.devCondition = L"ok";
    rec.conditionCode = 3, rec.deviceOpMode = 0, rec.lastUpdateTime = TimeStamp(5);
    LogCapture log;
    ASSERT_TRUE(provider.AddDevice(&rec));
    EXPECT_TRUE(log.Contains(L"UPDATE DEVICE SET DEVICEID = 'D1' WHERE DEVICEID = 'D1'"));
    // The server rejects "SET CONDITION": logged only, the column stays NULL.
    EXPECT_TRUE(log.Contains(L"UPDATE DEVICE SET CONDITION = '3' WHERE DEVICEID = 'D1'"));
    EXPECT_EQ("-2|<null>|0", db.Scalar("SELECT CONCAT_WS('|', STATUS, IFNULL(`CONDITION`,'<null>'), DEVICEOPMODE) FROM DEVICE"));

    DeviceTableRecord back;
    back.reservedInt = 9, back.reservedText = L"kept";
    log.Clear();
    ASSERT_TRUE(provider.GetDeviceRecord(L"D1", &back));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CDeviceDataProvider::GetDeviceRecord"));
    EXPECT_TRUE(log.Contains(L"SELECT DEVICE.* FROM DEVICE WHERE ( DEVICE.DEVICEID = 'D1' ) "));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetDeviceRecord"));
    EXPECT_EQ(std::tie(rec.serverId, rec.deviceId, rec.subUrl, rec.devIndex, rec.interName, rec.displayName, rec.status,
                       rec.statusMsg, rec.devCondition),
              std::tie(back.serverId, back.deviceId, back.subUrl, back.devIndex, back.interName, back.displayName,
                       back.status, back.statusMsg, back.devCondition));
    EXPECT_TRUE(rec.devCaps == back.devCaps);
    EXPECT_EQ(std::make_tuple(0, 0, 9, std::wstring(L"kept")),
              std::tie(back.conditionCode, back.deviceOpMode, back.reservedInt, back.reservedText));
    EXPECT_EQ(TimeStamp(0), back.lastUpdateTime);
    std::wstring caps;
    EXPECT_TRUE(provider.GetDevCaps(L"D1", caps));
    EXPECT_TRUE(rec.devCaps == caps);

    // Four columns only; nothing set is true without SQL.
    DeviceTableRecord upd;
    upd.devCaps = L"c", upd.subUrl = L"s", upd.status = 4, upd.statusMsg = L"m", upd.displayName = L"not written";
    EXPECT_TRUE(provider.UpdateDeviceRecord(L"D1", upd));
    EXPECT_EQ("c|s|4|m|\u00c9tage", db.Scalar("SELECT CONCAT_WS('|', DEVCAPS, SUBURL, STATUS, STATUSMSG, DISPLAYNAME) FROM DEVICE"));
    DeviceTableRecord none;
    log.Clear();
    EXPECT_TRUE(provider.UpdateDeviceRecord(L"D1", none));
    EXPECT_FALSE(provider.UpdateDeviceRecord(L"", upd));
    EXPECT_FALSE(provider.UpdateDeviceRecord(L"D1", &upd));
    EXPECT_FALSE(provider.AddDevice(&none));
    EXPECT_FALSE(provider.GetDeviceRecord(L"", nullptr));
    EXPECT_FALSE(provider.DeleteDevice(L""));
    EXPECT_TRUE(log.Lines().empty());

    bool valid = false;
    std::wstring id = L"D1", unknown = L"nope";
    EXPECT_TRUE(provider.IsDeviceIDValid(id, &valid) && valid);
    EXPECT_EQ(7, provider.GetServerId(id));
    EXPECT_EQ(-1, provider.GetServerId(unknown));
    db.Exec("UPDATE DEVICE SET SERVERID = -1");
    valid = false;
    EXPECT_TRUE(provider.IsDeviceIDValid(id, &valid));
    EXPECT_FALSE(valid);
    EXPECT_FALSE(provider.GetDeviceRecord(unknown, &back));
    EXPECT_TRUE(provider.DeleteDevice(id));
    EXPECT_EQ(0, db.Count("DEVICE"));
}

TEST_F(DeviceProviderTest, QueriesAndOrders) {
    DeviceTableRecord neg;  // a negative condition code is skipped, a negative status is not
    neg.deviceId = L"A", neg.serverId = 7, neg.devIndex = 1, neg.conditionCode = neg.deviceOpMode = neg.status = -2;
    LogCapture log;
    ASSERT_TRUE(provider.AddDevice(&neg));
    EXPECT_FALSE(log.ContainsText(L"SET CONDITION") || log.ContainsText(L"SET DEVICEOPMODE"));
    EXPECT_TRUE(log.Contains(L"UPDATE DEVICE SET STATUS = '-2' WHERE DEVICEID = 'A'"));
    ASSERT_TRUE(Add(L"B", 7, 2) && Add(L"C", 7, 3) && Add(L"X", 8));

    std::vector<DeviceTableRecord> out(1);
    ASSERT_TRUE(provider.GetDeviceRecordsConnectedToServer(7, out));
    EXPECT_TRUE(log.Contains(L"SELECT DEVICE.* FROM DEVICE WHERE ( DEVICE.SERVERID = '7' ) "));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetDeviceRecordsConnectedToServer"));
    ASSERT_EQ(4u, out.size());
    EXPECT_EQ(std::make_tuple(std::wstring(), std::wstring(L"A"), std::wstring(L"C"), 3),
              std::tie(out[0].deviceId, out[1].deviceId, out[3].deviceId, out[3].devIndex));
    EXPECT_TRUE(provider.IsDevicePresentForServer(8));
    EXPECT_TRUE(log.Contains(L"SELECT DEVICE.DEVICEID FROM DEVICE WHERE ( DEVICE.SERVERID = '8' ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CDeviceDataProvider::IsDevicePresentForServer"));
    EXPECT_FALSE(provider.IsDevicePresentForServer(9));
    EXPECT_EQ((std::list<std::wstring>{L"X", L"C", L"B", L"A"}), provider.GetAllDeviceIds());
    EXPECT_TRUE(log.Contains(L"SELECT DEVICE.DEVICEID FROM DEVICE"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CDeviceDataProvider::GetAllDeviceIds"));
    log.Clear();
    EXPECT_FALSE(provider.GetDeviceRecordsConnectedToServer(-1, out) || provider.IsDevicePresentForServer(-1));
    EXPECT_EQ(4u, out.size());
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(DeviceProviderTest, DeviceIdLookupAndAssertions) {
    // The ints go in as one-character texts: 49 and 50 are '1' and '2'.
    ASSERT_TRUE(Add(L"R12", 1, 2));
    std::wstring id = L"old";
    LogCapture log;
    EXPECT_TRUE(provider.GetDeviceID(49, 50, id));
    EXPECT_EQ(L"R12", id);
    EXPECT_TRUE(log.Contains(L"SELECT DEVICE.DEVICEID FROM DEVICE WHERE ( DEVICE.SERVERID = '1' ) AND ( DEVICE.DEVINDEX = '2' ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CDeviceDataProvider::GetDeviceID"));
    EXPECT_DEATH(provider.GetDeviceID(1, 2, id), "nRecCnt == 1");
    EXPECT_DEATH(provider.GetDeviceID(0, 50, id), "nRecCnt == 1");
    EXPECT_DEATH(provider.GetDeviceRecord(L"R12", nullptr), "deviceRecordP != __null");
}

}  // namespace
