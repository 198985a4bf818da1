// CTicketDataProvider against the private server: records, single columns,
// searches, the state undo and the kept quirks.
#include <gtest/gtest.h>

#include <tuple>

#include "CTicketDataProvider.h"
#include "TestSupport.h"

using testing_support::LogCapture;
typedef std::list<std::wstring> Keys;

class TicketProviderTest : public ::testing::Test {
protected:
    void SetUp() override { db.Reset({"JDFTICKET"}); }

    // The columns of the logged UPDATE statements, in the order they ran.
    static std::vector<std::wstring> UpdatedColumns(const LogCapture& log) {
        const std::wstring prefix = L"UPDATE JDFTICKET SET ";
        std::vector<std::wstring> columns;
        for (const auto& line : log.Lines())
            if (line.compare(0, prefix.size(), prefix) == 0)
                columns.push_back(line.substr(prefix.size(), line.find_first_of(L" =", prefix.size()) - prefix.size()));
        return columns;
    }
    static bool NoSql(const LogCapture& log) { return !log.ContainsText(L"JDFTICKET"); }
    static auto Fields(const TicketTableRecord& r) {
        return std::tie(r.previewCachedFilePath, r.previewRemoteUrl, r.qentryId, r.jdf, r.holdDevId, r.jmfRetUrl,
                        r.uploadUrl, r.senderId, r.subTime, r.lastUpdateTime, r.qsubsParams, r.statusMsg, r.status,
                        r.state, r.jobId, r.jobPartId);
    }

    testing_support::RawDb db;
    CTicketDataProvider provider;
};

TEST_F(TicketProviderTest, AddUpdateAndReadRecords) {
    TicketTableRecord rec{L"/cache/p1", L"http://p/1", L"", L"<JDF/>", L"DEV1", L"http://ret", L"http://up",
                          L"SND", TimeStamp(5), TimeStamp(6), L"q=1", L"printing", 7, 3, L"JOB", L"PART"};
    LogCapture log;
    ASSERT_TRUE(provider.AddTicket(&rec));
    EXPECT_EQ(L"1", rec.qentryId);
    EXPECT_TRUE(log.Contains(L"INSERT INTO JDFTICKET(QENTRYID) VALUES('1')"));
    EXPECT_TRUE(log.Contains(L"UPDATE JDFTICKET SET STATUS = '7' WHERE QENTRYID = '1'"));
    EXPECT_EQ((std::vector<std::wstring>{L"JDF", L"HOLDDEVID", L"JMFRETURL", L"PREVIEWCACHEDFILEPATH",
                                         L"PREVIEWREMOTEURL", L"UPLOADURL", L"SENDERID", L"SUBTIME", L"LASTUPDATETIME",
                                         L"QSUBSPARAMS", L"STATUSMSG", L"STATUS", L"STATE", L"JOBID", L"JOBPARTID"}),
              UpdatedColumns(log));

    log.Clear();
    TicketTableRecord back;
    back.subTime = back.lastUpdateTime = TimeStamp(9);  // both are overwritten from SUBTIME
    ASSERT_TRUE(provider.GetTicketRecord(L"1", &back));
    EXPECT_TRUE(log.Contains(L"SELECT JDFTICKET.* FROM JDFTICKET WHERE ( JDFTICKET.QENTRYID = '1' ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecord") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecord"));
    rec.subTime = rec.lastUpdateTime = TimeStamp(0);  // DATETIME columns never come back with a value
    EXPECT_EQ(Fields(rec), Fields(back));
    EXPECT_FALSE(provider.GetTicketRecord(L"nokey", &back));
    EXPECT_EQ(L"1", back.qentryId);

    // A record bringing its own key is refused; -1 is not written, -2 is.
    log.Clear();
    EXPECT_FALSE(provider.AddTicket(&rec));
    EXPECT_TRUE(NoSql(log));
    TicketTableRecord minimal;
    minimal.status = -2;
    ASSERT_TRUE(provider.AddTicket(&minimal));
    EXPECT_EQ(std::vector<std::wstring>{L"STATUS"}, UpdatedColumns(log));
    EXPECT_EQ("-2", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID='2'"));

    // Updates walk their own order and never write the key; the JDF is replaced through UpdateJDF.
    log.Clear();
    rec.holdDevId = L"DEV2";
    rec.subTime = TimeStamp(5);
    rec.lastUpdateTime = TimeStamp(6);
    EXPECT_TRUE(provider.UpdateTicketRecord(L"1", rec));
    EXPECT_EQ((std::vector<std::wstring>{L"HOLDDEVID", L"JDF", L"JMFRETURL", L"PREVIEWCACHEDFILEPATH",
                                         L"PREVIEWREMOTEURL", L"JOBID", L"JOBPARTID", L"LASTUPDATETIME", L"QSUBSPARAMS",
                                         L"SENDERID", L"STATUS", L"STATE", L"STATUSMSG", L"SUBTIME", L"UPLOADURL"}),
              UpdatedColumns(log));
    EXPECT_EQ("DEV2", db.Scalar("SELECT HOLDDEVID FROM JDFTICKET WHERE QENTRYID='1'"));
    ASSERT_TRUE(provider.UpdateJDF(L"1", L"<JDF ID=\"n\"/>"));
    std::wstring jdf;
    ASSERT_TRUE(provider.GetJDF(L"1", jdf));
    EXPECT_EQ(L"<JDF ID=\"n\"/>", jdf);

    log.Clear();
    EXPECT_FALSE(provider.UpdateTicketRecord(L"", rec));
    EXPECT_FALSE(provider.GetTicketRecord(L"", nullptr));
    EXPECT_TRUE(NoSql(log));
}

using TicketProviderDeathTest = TicketProviderTest;
TEST_F(TicketProviderDeathTest, NullRecordStops) {
    EXPECT_DEATH(provider.GetTicketRecord(L"1", nullptr), "ticketRecordP != __null");
}

TEST_F(TicketProviderTest, LargeUnicodeJdfRoundTrips) {
    const std::wstring unit = L"<Node Name=\"Ünïcødé € 😀\" Ref=\"中文\"/>\n";
    std::wstring big;
    while (big.size() < 3 * 1024 * 1024) big += unit;
    db.Exec("INSERT INTO JDFTICKET(QENTRYID) VALUES('q')");
    ASSERT_TRUE(provider.UpdateJDF(L"q", big));
    EXPECT_EQ(std::to_string(big.size()), db.Scalar("SELECT CHAR_LENGTH(JDF) FROM JDFTICKET WHERE QENTRYID='q'"));
    std::wstring back;
    ASSERT_TRUE(provider.GetJDF(L"q", back));
    EXPECT_TRUE(back == big);
    LogCapture log;
    EXPECT_FALSE(provider.UpdateJDF(L"q", L""));
    EXPECT_TRUE(NoSql(log));
}

TEST_F(TicketProviderTest, SingleColumnsAndStateUndo) {
    db.Exec("INSERT INTO JDFTICKET(QENTRYID, HOLDDEVID, SENDERID, STATUSMSG, STATE) VALUES('k', 'D', 'S', 'M', 1)");
    LogCapture log;
    std::wstring text = L"keep";
    int number = 42;
    EXPECT_FALSE(provider.GetHoldDeviceID(L"", text) || provider.GetSenderID(L"", text) ||
                 provider.GetTicketStatusMsg(L"", text) || provider.GetTicketStatus(L"", number) ||
                 provider.UpdateTicketStatusMsg(L"", L"m"));
    EXPECT_TRUE(NoSql(log));
    EXPECT_EQ(L"keep", text);
    EXPECT_TRUE(provider.GetHoldDeviceID(L"k", text) && text == L"D");
    EXPECT_TRUE(provider.GetSenderID(L"k", text) && text == L"S");
    EXPECT_TRUE(provider.GetTicketStatusMsg(L"k", text) && text == L"M");
    EXPECT_TRUE(provider.UpdateTicketStatusMsg(L"k", L""));
    EXPECT_EQ("", db.Scalar("SELECT STATUSMSG FROM JDFTICKET WHERE QENTRYID='k'"));
    std::wstring key = L"k";
    EXPECT_TRUE(provider.UpdateTicketStatus(key, 7) && provider.Update_JDFSendStatus(key, 1));
    EXPECT_TRUE(provider.GetTicketStatus(key, number) && number == 7);
    EXPECT_EQ("1", db.Scalar("SELECT JDFSENDSTATUS FROM JDFTICKET WHERE QENTRYID='k'"));

    EXPECT_TRUE(provider.SetJDFState(L"k", 4));
    EXPECT_TRUE(provider.GetJDFState(L"k", number) && number == 4);
    EXPECT_TRUE(provider.RestoreState(L"k"));
    db.Exec("UPDATE JDFTICKET SET STATE = 9");  // a second restore brings back the same state
    EXPECT_TRUE(provider.RestoreState(L"k"));
    EXPECT_TRUE(provider.GetJDFState(L"k", number) && number == 1);
    // A missing key reads nothing yet succeeds, so the writes run and match no row.
    EXPECT_TRUE(provider.SetJDFState(L"none", 5));
    EXPECT_TRUE(log.Contains(L"UPDATE JDFTICKET SET PREVSTATE = '-1' WHERE QENTRYID = 'none'"));
    EXPECT_EQ(1, db.Count("JDFTICKET"));

    EXPECT_TRUE(provider.RemoveTicket(L"k") && log.Contains(L"Inside CTicketDataProvider::RemoveTicket"));
    EXPECT_TRUE(log.Contains(L"DELETE FROM JDFTICKET WHERE QENTRYID='k'"));
    EXPECT_EQ(0, db.Count("JDFTICKET"));
}

TEST_F(TicketProviderTest, Searches) {
    LogCapture log;
    EXPECT_TRUE(provider.GetAllQueueEntryIDs().empty());
    // Every index orders these rows alike, so the server returns them as listed.
    db.Exec("INSERT INTO JDFTICKET(QENTRYID, HOLDDEVID, STATE, JOBID, JOBPARTID, SENDERID, JDFSENDSTATUS) VALUES"
            "('','D0',5,'J0','','S0',0), ('a','D1',2,'J1','P1','S1',1), ('b','D1',2,'J2','P2','S1',1),"
            "('c','D1',3,'J2','P3','S1',2), ('d','D2',2,'J3','','S2',2)");
    EXPECT_EQ((Keys{L"d", L"c", L"b", L"a", L""}), provider.GetAllQueueEntryIDs());
    EXPECT_EQ((Keys{L"c", L"b", L"a"}), provider.GetAllQueueEntryIds(L"D1"));
    EXPECT_EQ(Keys{L"d"}, provider.GetAllQueueEntryIds(L"D2"));
    EXPECT_TRUE(provider.GetAllQueueEntryIds(L"D9").empty());
    EXPECT_EQ((Keys{L"b", L"a"}), provider.GetTicketRecords(L"D1", 2));
    EXPECT_EQ(Keys{L"c"}, provider.GetTicketRecords(L"D1", 3));
    EXPECT_TRUE(provider.GetTicketRecords(L"D0", 5).empty());  // the empty key is skipped
    Keys keys{L"x"};
    EXPECT_TRUE(provider.GetRecords(keys, 1) && provider.GetRecords(keys, 2) && provider.GetRecords(keys, 7));
    EXPECT_EQ((Keys{L"x", L"b", L"a", L"d", L"c"}), keys);

    std::wstring part = L"-", key = L"-";
    EXPECT_FALSE(provider.GetQentryID(L"", L"S1", part, key));
    EXPECT_FALSE(log.ContainsText(L"CTicketDataProvider::GetQentryID"));
    EXPECT_FALSE(provider.GetQentryID(L"J2", L"S1", part, key) || provider.GetQentryID(L"J9", L"S1", part, key));
    EXPECT_TRUE(provider.GetQentryID(L"J1", L"S1", part, key) && part == L"P1" && key == L"a");
    EXPECT_TRUE(log.Contains(L"SELECT JDFTICKET.QENTRYID ,JDFTICKET.JOBPARTID FROM JDFTICKET WHERE "
                             L"( JDFTICKET.JOBID = 'J1' ) AND ( JDFTICKET.SENDERID = 'S1' ) "));
    EXPECT_FALSE(provider.IsJobPresent(L"J2", L"", L"S1", key) || provider.IsJobPresent(L"J9", L"", L"S1", key));
    EXPECT_TRUE(log.Contains(L"SELECT JDFTICKET.QENTRYID FROM JDFTICKET WHERE "
                             L"( ( JDFTICKET.JOBID = 'J2' ) AND ( JDFTICKET.SENDERID = 'S1' ) ) "));
    EXPECT_TRUE(provider.IsJobPresent(L"J2", L"P2", L"S1", key) && key == L"b");
    EXPECT_TRUE(log.Contains(L"SELECT JDFTICKET.QENTRYID FROM JDFTICKET WHERE ( ( JDFTICKET.JOBID = 'J2' ) "
                             L"AND ( JDFTICKET.JOBPARTID = 'P2' ) AND ( JDFTICKET.SENDERID = 'S1' ) ) "));

    const std::pair<const wchar_t*, const wchar_t*> lines[] = {
        {L"GetQentryID", L"inside"},          {L"GetAllQueueEntryIds", L"inside"}, {L"IsJobPresent", L"Inside"},
        {L"GetAllQueueEntryIDs", L"Inside"}, {L"GetTicketRecords", L"Inside"}};
    for (const auto& line : lines) {
        const std::wstring op = std::wstring(L"CTicketDataProvider::") + line.first;
        EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from " + op)) << op;
        EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() " + std::wstring(line.second) + L" " + op)) << op;
    }
    // GetRecords logs GetTicketRecords' lines: three calls of each above.
    EXPECT_EQ(6u, log.Count(L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecords"));
}
