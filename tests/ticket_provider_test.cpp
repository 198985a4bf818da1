// CTicketDataProvider against the private server: records, single columns,
// searches, the state undo and the kept quirks.
#include <gtest/gtest.h>

#include <tuple>

#include "CTicketDataProvider.h"
#include "TestSupport.h"

using testing_support::ByProfile;
using testing_support::LogCapture;
typedef std::list<std::wstring> Keys;

struct TicketProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"JDFTICKET"}); }

    // The columns of the logged UPDATE statements, in the order they ran, each followed by a space.
    static std::wstring UpdatedColumns(const LogCapture& log) {
        std::wstring columns;
        for (const auto& line : log.Lines())
            if (line.rfind(L"UPDATE JDFTICKET SET ", 0) == 0) columns += line.substr(21, line.find_first_of(L" =", 21) - 21) + L" ";
        return columns;
    }
    static auto Fields(const TicketTableRecord& r) {
        return std::tie(r.previewCachedFilePath, r.previewRemoteUrl, r.qentryId, r.jdf, r.holdDevId, r.jmfRetUrl, r.uploadUrl,
                        r.senderId, r.subTime, r.lastUpdateTime, r.qsubsParams, r.statusMsg, r.status, r.state, r.jobId, r.jobPartId);
    }

    testing_support::RawDb db;
    CTicketDataProvider provider;
};

// AddTicket writes the generated key, then the set fields in its own order (-1 and empty skipped, -2 written);
// UpdateTicketRecord walks another order without the key; the record reads back whole, both times from SUBTIME;
// the JDF and single columns read and write through the server (an empty message is written); SetJDFState and
// RestoreState form a one-level undo. The safe profile writes each record in one statement, stores the time
// stamps and answers false for a key with no row.
TEST_F(TicketProviderTest, RecordsSingleColumnsAndStateUndo) {
    TicketTableRecord rec{L"/cache/p1", L"http://p/1", L"", L"<JDF N=\"\u00dc\u20ac\U0001F600\u4e2d\"/>", L"DEV1",
                          L"http://ret", L"http://up", L"SND", testing_support::Stamp(2026, 11, 24, 9, 0, 0),
                          testing_support::Stamp(2026, 11, 24, 9, 5, 0), L"q=1", L"printing", -2, 3, L"JOB", L"PART"};
    LogCapture log;
    ASSERT_TRUE(provider.AddTicket(&rec));
    if (testing_support::Safe()) {
        EXPECT_TRUE(log.ContainsText(L"INSERT INTO `JDFTICKET` (`QENTRYID`, `JDF`, `HOLDDEVID`, `JMFRETURL`, `PREVIEWCACHEDFILEPATH`, "
                                     L"`PREVIEWREMOTEURL`, `UPLOADURL`, `SENDERID`, `SUBTIME`, `LASTUPDATETIME`, `QSUBSPARAMS`, "
                                     L"`STATUSMSG`, `STATUS`, `STATE`, `JOBID`, `JOBPARTID`) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
        EXPECT_TRUE(log.ContainsText(L"values: '1', '<JDF N="));
    } else {
        EXPECT_EQ(L"JDF HOLDDEVID JMFRETURL PREVIEWCACHEDFILEPATH PREVIEWREMOTEURL UPLOADURL SENDERID SUBTIME LASTUPDATETIME "
                  L"QSUBSPARAMS STATUSMSG STATUS STATE JOBID JOBPARTID ", UpdatedColumns(log));
        EXPECT_TRUE(log.Contains(L"UPDATE JDFTICKET SET STATUS = '-2' WHERE QENTRYID = '1'"));
    }
    EXPECT_EQ("-2", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '1'"));
    log.Clear();
    EXPECT_NE(testing_support::Safe(), provider.UpdateTicketRecord(L"other", rec));
    if (testing_support::Safe())
        EXPECT_TRUE(log.ContainsText(L"UPDATE `JDFTICKET` SET `HOLDDEVID` = ?, `JDF` = ?, ") &&
                    log.ContainsText(L"values: 'DEV1', '<JDF N="));
    else
        EXPECT_EQ(L"HOLDDEVID JDF JMFRETURL PREVIEWCACHEDFILEPATH PREVIEWREMOTEURL JOBID JOBPARTID LASTUPDATETIME "
                  L"QSUBSPARAMS SENDERID STATUS STATE STATUSMSG SUBTIME UPLOADURL ", UpdatedColumns(log));

    TicketTableRecord back, unset;
    back.subTime = back.lastUpdateTime = TimeStamp(9);  // both are overwritten from SUBTIME
    ASSERT_TRUE(provider.GetTicketRecord(L"1", &back));
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT JDFTICKET.* FROM JDFTICKET WHERE ( JDFTICKET.QENTRYID = '1' ) ",
                                       L"SELECT `JDFTICKET`.* FROM `JDFTICKET` WHERE ( `JDFTICKET`.`QENTRYID` = ? ) \nvalues: '1'")));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecord") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CTicketDataProvider::GetTicketRecord"));
    // The update time read is the submission time; the exact profile never stores either.
    rec.subTime = rec.lastUpdateTime = testing_support::Stored(rec.subTime);
    EXPECT_EQ(Fields(rec), Fields(back));
    EXPECT_TRUE(!provider.GetTicketRecord(L"nokey", &back) && back.qentryId == L"1");
    log.Clear();
    EXPECT_TRUE(provider.AddTicket(&unset) && unset.qentryId == L"2" && UpdatedColumns(log).empty());
    EXPECT_EQ(testing_support::Safe(), log.Contains(L"INSERT INTO `JDFTICKET` (`QENTRYID`) VALUES (?)\nvalues: '2'"));

    std::wstring dev, sender, msg, key = L"1";
    EXPECT_TRUE(provider.UpdateJDF(key, L"<JDF/>") && provider.GetJDF(key, back.jdf) && back.jdf == L"<JDF/>");
    EXPECT_TRUE(provider.GetHoldDeviceID(key, dev) && provider.GetSenderID(key, sender) && provider.GetTicketStatusMsg(key, msg));
    EXPECT_EQ(L"DEV1 SND printing", dev + L" " + sender + L" " + msg);
    EXPECT_TRUE(provider.UpdateTicketStatusMsg(key, L"") && provider.UpdateTicketStatus(key, 7) && provider.Update_JDFSendStatus(key, 1));
    EXPECT_EQ("|7|1", db.Scalar("SELECT CONCAT_WS('|', STATUSMSG, STATUS, JDFSENDSTATUS) FROM JDFTICKET WHERE QENTRYID='1'"));
    EXPECT_TRUE(provider.GetTicketStatus(key, back.status) && back.status == 7);

    EXPECT_TRUE(provider.SetJDFState(key, 4) && provider.GetJDFState(key, back.state) && back.state == 4);
    EXPECT_TRUE(provider.RestoreState(key) && provider.GetJDFState(key, back.state) && back.state == 3);
    db.Exec("UPDATE JDFTICKET SET STATE = 9");  // a second restore brings back the same state
    EXPECT_TRUE(provider.RestoreState(key) && provider.GetJDFState(key, back.state) && back.state == 3);
    // A missing key reads nothing yet succeeds, so the writes run and match no row; the safe profile stops at the read.
    EXPECT_NE(testing_support::Safe(), provider.SetJDFState(L"none", 5));
    EXPECT_NE(testing_support::Safe(), log.Contains(L"UPDATE JDFTICKET SET PREVSTATE = '-1' WHERE QENTRYID = 'none'"));
}

// The guards (empty key, empty JDF, a record with its own key, GetQentryID without job or sender) refuse before
// any SQL and leave out-values alone; a null record stops the process. Searches: lists in reverse result order
// (GetTicketRecords and GetRecords skip empty keys, GetRecords appends), exactly-one matches, the exact SQL
// texts, and the log lines with their deliberate "inside"/"Inside" spellings; RemoveTicket.
TEST_F(TicketProviderTest, GuardsSearchesAndRemove) {
    EXPECT_DEATH(provider.GetTicketRecord(L"1", nullptr), "ticketRecordP != __null");  // first: the child reruns this test
    TicketTableRecord keyed;
    keyed.qentryId = L"new";
    std::wstring text = L"keep", part = L"keep", key = L"k";
    LogCapture log;
    EXPECT_FALSE(provider.AddTicket(&keyed) || provider.UpdateTicketRecord(L"", keyed) || provider.UpdateJDF(L"k", L"") ||
                 provider.GetTicketRecord(L"", nullptr) || provider.GetHoldDeviceID(L"", text) ||
                 provider.GetSenderID(L"", text) || provider.GetTicketStatusMsg(L"", text) || provider.GetTicketStatus(L"", keyed.status) ||
                 provider.UpdateTicketStatusMsg(L"", L"m") || provider.GetQentryID(L"", L"S", part, key) ||
                 provider.GetQentryID(L"J", L"", part, key));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(std::make_tuple(L"keep", L"keep", L"k", -1), std::tie(text, part, key, keyed.status));

    // Every index orders these rows alike, so the server returns them as listed; "k" is removed first.
    db.Exec("INSERT INTO JDFTICKET(QENTRYID, HOLDDEVID, STATE, JOBID, JOBPARTID, SENDERID, JDFSENDSTATUS) VALUES"
            "('','D0',5,'J0','','S0',1), ('a','D1',2,'J1','P1','S1',1), ('b','D1',2,'J2','P2','S1',1),"
            "('c','D1',3,'J2','P3','S1',2), ('d','D2',2,'J3','','S2',2), ('k','D3',0,'','','',0)");
    EXPECT_TRUE(provider.RemoveTicket(L"k") && log.Contains(L"Inside CTicketDataProvider::RemoveTicket"));
    EXPECT_EQ((Keys{L"d", L"c", L"b", L"a", L""}), provider.GetAllQueueEntryIDs());
    EXPECT_EQ((Keys{L"c", L"b", L"a"}), provider.GetAllQueueEntryIds(L"D1"));
    EXPECT_EQ((Keys{L"b", L"a"}), provider.GetTicketRecords(L"D1", 2));
    Keys keys{L"x"};  // the empty key is skipped
    EXPECT_TRUE(provider.GetRecords(keys, 1) && provider.GetRecords(keys, 2));
    EXPECT_EQ((Keys{L"x", L"b", L"a", L"d", L"c"}), keys);
    EXPECT_EQ(3u, log.Count(L"Before ExecuteQuery() from CTicketDataProvider::GetTicketRecords"));  // shared by GetRecords

    EXPECT_FALSE(provider.GetQentryID(L"J2", L"S1", part, key) || provider.GetQentryID(L"J9", L"S1", part, key));
    EXPECT_TRUE(provider.GetQentryID(L"J1", L"S1", part, key) && part == L"P1" && key == L"a");
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT JDFTICKET.QENTRYID ,JDFTICKET.JOBPARTID FROM JDFTICKET WHERE "
                                       L"( JDFTICKET.JOBID = 'J1' ) AND ( JDFTICKET.SENDERID = 'S1' ) ",
                                       L"SELECT `JDFTICKET`.`QENTRYID` ,`JDFTICKET`.`JOBPARTID` FROM `JDFTICKET` WHERE "
                                       L"( `JDFTICKET`.`JOBID` = ? ) AND ( `JDFTICKET`.`SENDERID` = ? ) \nvalues: 'J1', 'S1'")));
    EXPECT_FALSE(provider.IsJobPresent(L"J2", L"", L"S1", key) || provider.IsJobPresent(L"J9", L"", L"S1", key));
    const std::wstring job = ByProfile(L"SELECT JDFTICKET.QENTRYID FROM JDFTICKET WHERE ( ( JDFTICKET.JOBID = 'J2' ) AND ( ",
                                       L"SELECT `JDFTICKET`.`QENTRYID` FROM `JDFTICKET` WHERE ( ( `JDFTICKET`.`JOBID` = 'J2' ) AND ( ");  // see Traced
    const std::wstring table = ByProfile(L"JDFTICKET.", L"`JDFTICKET`.");
    const auto column = [&](const wchar_t* name) { return table + ByProfile(std::wstring(name), L"`" + std::wstring(name) + L"`"); };
    EXPECT_TRUE(log.Contains(testing_support::Traced(job + column(L"SENDERID") + L" = 'S1' ) ) ")));
    EXPECT_TRUE(provider.IsJobPresent(L"J2", L"P2", L"S1", key) && key == L"b");
    EXPECT_TRUE(log.Contains(
        testing_support::Traced(job + column(L"JOBPARTID") + L" = 'P2' ) AND ( " + column(L"SENDERID") + L" = 'S1' ) ) ")));

    for (const auto& [word, op] : {std::make_pair(L"inside", L"GetQentryID"), {L"inside", L"GetAllQueueEntryIds"},
                                   {L"Inside", L"IsJobPresent"}, {L"Inside", L"GetAllQueueEntryIDs"}, {L"Inside", L"GetTicketRecords"}}) {
        EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CTicketDataProvider::" + std::wstring(op))) << op;
        EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() " + std::wstring(word) + L" CTicketDataProvider::" + op)) << op;
    }
}

// UpdateTicketRecord hands the store the address of a _BLOB record for the
// blob columns, so what lands in JDF is the record's own bytes (at most two
// characters), never the text; UpdateJDF is the way to replace it. The safe
// profile writes the text.
TEST_F(TicketProviderTest, UpdateWritesTheBlobRecordNotItsText) {
    db.Exec("INSERT INTO JDFTICKET (QENTRYID, JDF) VALUES ('T1', '<old/>')");
    TicketTableRecord rec;
    rec.jdf = L"<new/>";
    EXPECT_TRUE(provider.UpdateTicketRecord(L"T1", rec));
    const std::string jdf = db.Scalar("SELECT JDF FROM JDFTICKET WHERE QENTRYID='T1'"),
                      length = db.Scalar("SELECT CHAR_LENGTH(JDF) FROM JDFTICKET WHERE QENTRYID='T1'");
    EXPECT_EQ(testing_support::Safe(), jdf == "<new/>");
    EXPECT_NE("<old/>", jdf);
    EXPECT_TRUE(testing_support::Safe() || std::stoi(length) <= 2) << length;
}
