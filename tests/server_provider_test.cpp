#include <gtest/gtest.h>

#include <tuple>

#include "CDeviceDataProvider.h"
#include "CServerDataProvider.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

class ServerProviderTest : public ::testing::Test {
protected:
    void SetUp() override { db.Reset({"DEVICE", "SERVER"}); }
    RawDb db;
    CServerDataProvider provider;
};

TEST_F(ServerProviderTest, AddReadUpdateAndLogin) {
    ServerTableRecord rec;
    rec.COMPNAME = L"Rechner-\u00e4", rec.STATMSG = L"l\u00e4uft", rec.STATE = 2, rec.LOGINPWD = L"p\u00e4ss";
    rec.LOGINSERNAME = std::wstring(1023, L'\u6771');  // the longest a column holds
    rec.SERIALNO = L"SN-1", rec.VERSION = L"3.1", rec.STYPE = 4;
    ASSERT_TRUE(provider.AddServer(&rec));
    ASSERT_EQ(1, rec.SERVERID);

    ServerTableRecord back;
    LogCapture log;
    ASSERT_TRUE(provider.GetServerRecord(1, &back));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CServerDataProvider::GetServerRecord"));
    EXPECT_TRUE(log.Contains(L"SELECT SERVER.* FROM SERVER WHERE ( SERVER.SERVERID = '1' ) "));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CServerDataProvider::GetServerRecord"));
    EXPECT_EQ(std::tie(rec.SERVERID, rec.COMPNAME, rec.STATMSG, rec.STATE, rec.LOGINPWD, rec.LOGINSERNAME, rec.SERIALNO,
                       rec.VERSION, rec.STYPE),
              std::tie(back.SERVERID, back.COMPNAME, back.STATMSG, back.STATE, back.LOGINPWD, back.LOGINSERNAME,
                       back.SERIALNO, back.VERSION, back.STYPE));
    EXPECT_FALSE(provider.GetServerRecord(2, &back));
    std::wstring name = L"x", pwd = L"y";
    EXPECT_TRUE(provider.GetLoginInfo(1, name, pwd));
    EXPECT_EQ(std::tie(rec.LOGINSERNAME, rec.LOGINPWD), std::tie(name, pwd));

    // Only the set field is written, and its write is the answer.
    ServerTableRecord upd;
    upd.STATE = 6;
    log.Clear();
    EXPECT_TRUE(provider.UpdateServerRecord(1, upd));
    EXPECT_TRUE(log.Contains(L"UPDATE SERVER SET STATE = '6' WHERE SERVERID = '1'"));
    EXPECT_EQ(1u, log.Count(L"Inside CMysqlDatabaseInterface::AddParameter()"));
    EXPECT_FALSE(provider.UpdateServerRecord(1, ServerTableRecord()));
    EXPECT_TRUE(provider.UpdateServerState(1, 9));
    EXPECT_EQ("9", db.Scalar("SELECT STATE FROM SERVER WHERE SERVERID = 1"));

    // The password is not read when the login name cannot be.
    db.Exec("ALTER TABLE SERVER RENAME COLUMN LOGINSERNAME TO LOGINX");
    name = L"x", pwd = L"y";
    log.Clear();
    const bool ok = provider.GetLoginInfo(1, name, pwd);
    db.Exec("ALTER TABLE SERVER RENAME COLUMN LOGINX TO LOGINSERNAME");
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.Contains(L"SELECT LOGINSERNAME FROM SERVER WHERE SERVERID = '1'"));
    EXPECT_FALSE(log.ContainsText(L"LOGINPWD"));
    EXPECT_EQ(L"xy", name + pwd);

    // -1 is refused before any SQL; the null check comes before it.
    log.Clear();
    EXPECT_FALSE(provider.GetServerRecord(-1, &back) || provider.UpdateServerRecord(-1, upd) ||
                 provider.UpdateServerState(-1, 1) || provider.GetLoginInfo(-1, name, pwd) || provider.DeleteServer(-1));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_DEATH(provider.GetServerRecord(-1, nullptr),
                 "\\.\\./\\.\\./src/CServerDataProvider:237: virtual bool CServerDataProvider::GetServerRecord\\(int, "
                 "CServerRecord\\*\\): Assertion .serverRecordP != __null. failed");
}

TEST_F(ServerProviderTest, ListsLookupsAndRefusedDelete) {
    for (const wchar_t* host : {L"HostA", L"HostB", L"HostA"}) {
        ServerTableRecord rec;
        rec.COMPNAME = host, rec.STYPE = 2;
        ASSERT_TRUE(provider.AddServer(&rec));
    }
    LogCapture log;
    EXPECT_EQ(3, provider.GetRecordCount());
    EXPECT_TRUE(log.Contains(L"SELECT SERVER.SERVERID FROM SERVER"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CServerDataProvider::GetRecordCount"));

    std::vector<ServerTableRecord> out(1);
    EXPECT_TRUE(provider.GetServerRecords(out));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CServerDataProvider::GetServerRecords"));
    ASSERT_EQ(4u, out.size());
    EXPECT_EQ(std::make_tuple(-1, 3, 2, std::wstring(L"HostB"), 1),
              std::tie(out[0].SERVERID, out[1].SERVERID, out[2].SERVERID, out[2].COMPNAME, out[3].SERVERID));

    int id = 0;  // of two matches the last in the result is reported
    EXPECT_EQ(3, provider.IsServerAndServerTypeExists(L"HostA", 2, id));
    EXPECT_EQ(3, id);
    EXPECT_TRUE(log.Contains(L"SELECT SERVER.STYPE ,SERVER.COMPNAME ,SERVER.SERVERID FROM SERVER"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CServerDataProvider::IsServerAndServerTypeExists"));
    EXPECT_EQ(-1, provider.IsServerAndServerTypeExists(L"hosta", 2, id));
    EXPECT_EQ(-1, id);
    EXPECT_EQ(-1, provider.IsServerAndServerTypeExists(L"HostB", 3, id));

    // A server that devices still refer to stays, and the answer is true.
    DeviceTableRecord dev;
    dev.deviceId = L"D1", dev.serverId = 1;
    ASSERT_TRUE(CDeviceDataProvider().AddDevice(&dev));
    log.Clear();
    EXPECT_TRUE(provider.DeleteServer(1));
    EXPECT_TRUE(log.Contains(L"Inside CServerDataProvider::DeleteServer() Voilation of foreign Key, Device present for the serverid"));
    EXPECT_FALSE(log.ContainsText(L"DELETE FROM"));
    EXPECT_EQ(1, db.Count("SERVER", "SERVERID = 1"));
    EXPECT_TRUE(provider.DeleteServer(2));
    EXPECT_TRUE(log.Contains(L"DELETE FROM SERVER WHERE SERVERID='2'"));
    EXPECT_EQ(0, db.Count("SERVER", "SERVERID = 2"));
}

}  // namespace
