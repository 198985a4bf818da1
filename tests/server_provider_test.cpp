// CServerDataProvider against the private server: records, login data, the
// lists and their orders, and the refused delete.
#include <gtest/gtest.h>

#include <tuple>

#include "CServerDataProvider.h"
#include "TestSupport.h"

struct ServerProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"DEVICE", "SERVER"}); }
    testing_support::RawDb db;
    CServerDataProvider provider;
};

// A null record stops the process (checked before -1); a record round trips; an update writes only its set field;
// -1 and an empty update are refused before any SQL; the password is not read when the login name cannot be.
TEST_F(ServerProviderTest, AddReadUpdateAndLogin) {
    EXPECT_DEATH(provider.GetServerRecord(-1, nullptr),
                 "\\.\\./\\.\\./src/CServerDataProvider:237: virtual bool CServerDataProvider::GetServerRecord\\(int, "
                 "CServerRecord\\*\\): Assertion .serverRecordP != __null. failed");
    ServerTableRecord rec{-1, L"Rechner-\u00e4", L"l\u00e4uft", 2, L"p\u00e4ss", std::wstring(1023, L'\u6771') /* longest */,
                          L"SN-1", L"3.1", 4}, back;
    ASSERT_TRUE(provider.AddServer(&rec));
    ASSERT_TRUE(provider.GetServerRecord(1, &back));
    const auto fields = [](const ServerTableRecord& r) {
        return std::tie(r.SERVERID, r.COMPNAME, r.STATMSG, r.STATE, r.LOGINPWD, r.LOGINSERNAME, r.SERIALNO, r.VERSION, r.STYPE);
    };
    EXPECT_EQ(fields(rec), fields(back));
    std::wstring name = L"x", pwd = L"y";
    EXPECT_TRUE(provider.GetLoginInfo(1, name, pwd) && name == rec.LOGINSERNAME && pwd == rec.LOGINPWD);

    ServerTableRecord upd{-1, L"", L"", -1, L"", L"", L"", L"", 6};  // only STYPE set
    EXPECT_TRUE(provider.UpdateServerRecord(1, upd) && provider.UpdateServerState(1, 9));
    EXPECT_EQ("9|Rechner-\u00e4|l\u00e4uft|p\u00e4ss|SN-1|3.1|6",
              db.Scalar("SELECT CONCAT_WS('|', STATE, COMPNAME, STATMSG, LOGINPWD, SERIALNO, VERSION, STYPE) FROM SERVER"));

    testing_support::LogCapture log;
    EXPECT_FALSE(provider.GetServerRecord(-1, &back) || provider.UpdateServerRecord(-1, upd) || provider.UpdateServerRecord(1, {}) ||
                 provider.UpdateServerState(-1, 1) || provider.GetLoginInfo(-1, name, pwd) || provider.DeleteServer(-1));
    EXPECT_TRUE(log.Lines().empty());
    db.Exec("ALTER TABLE SERVER RENAME COLUMN LOGINSERNAME TO LOGINX");
    EXPECT_FALSE(provider.GetLoginInfo(1, name, pwd));
    db.Exec("ALTER TABLE SERVER RENAME COLUMN LOGINX TO LOGINSERNAME");
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"SELECT LOGINSERNAME FROM SERVER WHERE SERVERID = '1'",
                                                        L"SELECT `LOGINSERNAME` FROM `SERVER` WHERE `SERVERID` = ?\nvalues: 1")));
    EXPECT_FALSE(log.ContainsText(L"LOGINPWD"));
}

// Lists in reverse result order (appended); of two matches the last in the result is reported, names compare
// case-sensitively; a server that devices still refer to stays, and the answer is true; a missing one reads as
// false; the log lines.
TEST_F(ServerProviderTest, ListsLookupsAndRefusedDelete) {
    db.Exec("INSERT INTO SERVER(SERVERID, COMPNAME, STYPE) VALUES (1, 'HostA', 2), (2, 'HostB', 2), (3, 'HostA', 2)");
    testing_support::LogCapture log;
    EXPECT_EQ(3, provider.GetRecordCount());
    std::vector<ServerTableRecord> out(1);
    ASSERT_TRUE(provider.GetServerRecords(out) && out.size() == 4);
    EXPECT_EQ(std::make_tuple(-1, 3, 2, std::wstring(L"HostB"), 1),
              std::tie(out[0].SERVERID, out[1].SERVERID, out[2].SERVERID, out[2].COMPNAME, out[3].SERVERID));
    int id = 0;
    EXPECT_TRUE(provider.IsServerAndServerTypeExists(L"HostA", 2, id) == 3 && id == 3);
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"SELECT SERVER.STYPE ,SERVER.COMPNAME ,SERVER.SERVERID FROM SERVER",
                                                        L"SELECT `SERVER`.`STYPE` ,`SERVER`.`COMPNAME` ,`SERVER`.`SERVERID` FROM `SERVER`")));
    EXPECT_TRUE(provider.IsServerAndServerTypeExists(L"hosta", 2, id) == -1 && id == -1 &&
                provider.IsServerAndServerTypeExists(L"HostB", 3, id) == -1);

    db.Exec("INSERT INTO DEVICE(DEVICEID, SERVERID) VALUES('D1', 1)");
    EXPECT_TRUE(provider.DeleteServer(1));
    EXPECT_TRUE(log.Contains(L"Inside CServerDataProvider::DeleteServer() Voilation of foreign Key, Device present for the serverid"));
    EXPECT_FALSE(log.ContainsText(L"DELETE FROM"));
    EXPECT_TRUE(provider.DeleteServer(2));
    EXPECT_EQ("1,3", db.Scalar("SELECT GROUP_CONCAT(SERVERID ORDER BY SERVERID) FROM SERVER"));
    EXPECT_FALSE(provider.GetServerRecord(2, &out[0]));
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"SELECT SERVER.* FROM SERVER WHERE ( SERVER.SERVERID = '2' ) ",
                                                        L"SELECT `SERVER`.* FROM `SERVER` WHERE ( `SERVER`.`SERVERID` = ? ) \nvalues: 2")));
    for (const wchar_t* op : {L"GetServerRecord", L"GetRecordCount", L"GetServerRecords", L"IsServerAndServerTypeExists"}) {
        EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CServerDataProvider::" + std::wstring(op))) << op;
        EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CServerDataProvider::" + std::wstring(op))) << op;
    }
}
