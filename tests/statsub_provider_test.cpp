// CStatusSubDataProvider against the private server: records, the guards, the
// searches with their conditions, subscription matching and removal.
#include <gtest/gtest.h>

#include <tuple>

#include "CStatusSubDataProvider.h"
#include "TestSupport.h"

using testing_support::ByProfile;
using testing_support::Traced;

// A column of STATSSUBS, and the select of all columns, as this run's profile names them.
std::wstring Col(const std::wstring& column) { return ByProfile(L"STATSSUBS." + column, L"`STATSSUBS`.`" + column + L"`"); }
std::wstring All() { return ByProfile(L"SELECT STATSSUBS.* FROM STATSSUBS", L"SELECT `STATSSUBS`.* FROM `STATSSUBS`"); }

struct StatusSubProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"STATSSUBS"}); }
    static auto Fields(const StatusSubTableRecord& r) {
        return std::tie(r.ID, r.REFID, r.URL, r.STATSUBS, r.LASTSIG, r.LASTUPDATE, r.DEVDETLEVEL, r.JOBDETAIL, r.QUEUEINFO, r.EMPLOYEINFO,
                        r.DEVICEID, r.QENTRYID, r.JOBID, r.JOBPARTID, r.REPEATSTEP, r.REPEATTIME, r.RESPONSE, r.SENDERID);
    }

    testing_support::RawDb db;
    testing_support::LogCapture log;
    CStatusSubDataProvider provider;
    std::vector<StatusSubTableRecord> out = std::vector<StatusSubTableRecord>(1);  // readers append to what is there
};

// Every field (long Unicode texts too) round trips through the server and GetRecords appends; an unset INT reads
// back as 0 (not set, -1, in the safe profile); SENDERID is updated only after a successful write (the safe
// profile writes the record in one statement); the -1/empty guards refuse before any SQL.
TEST_F(StatusSubProviderTest, RoundTripUpdatesAndGuards) {
    StatusSubTableRecord rec{-1, L"ref-\u00e4", L"http://h/\u6771\u4eac", std::wstring(150000, L'\u00e9'), std::wstring(120000, L'\u4eac'),
                             testing_support::Stamp(2025, 12, 31, 0, 0, 1), L"Brief", L"Full", 1, 0, L"Dev\u00f6", L"Q1", L"J1", L"P1", 5, 60, std::wstring(99999, L'\u00df'), L"S"};
    StatusSubTableRecord bare, update;  // bare: only the row
    ASSERT_TRUE(provider.AddRecord(&rec) && provider.AddRecord(&bare));
    ASSERT_TRUE(provider.GetRecords(L"", L"", L"", L"", true, out) && out.size() == 3);
    EXPECT_TRUE(log.Contains(All()) && log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::GetRecords") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    rec.LASTUPDATE = testing_support::Stored(rec.LASTUPDATE);  // the exact profile cannot write a DATETIME
    EXPECT_TRUE(Fields(rec) == Fields(out[1]));
    // The safe profile reads the row's own insertion time (the column's default).
    const TimeStamp inserted = ByProfile(TimeStamp(0), out[2].LASTUPDATE);
    EXPECT_TRUE(!testing_support::Safe() || inserted.year >= 2024);
    const int unset = ByProfile(0, -1);
    EXPECT_TRUE(Fields(StatusSubTableRecord{2, L"", L"", L"", L"", inserted, L"", L"", unset, unset, L"", L"", L"", L"",
                                            unset, unset, L"", L""}) == Fields(out[2]));

    update.REFID = L"R9", update.REPEATTIME = 30, update.SENDERID = L"S9";
    EXPECT_TRUE(provider.UpdateRecord(2, update));
    EXPECT_TRUE(provider.UpdateLastStatusSignal(2, L"sig\u00e4") && provider.UpdateResponse(2, L"resp"));

    // SENDERID alone is not written in the exact profile (it needs an earlier successful write).
    update.REFID.clear(), update.REPEATTIME = -1, update.SENDERID = L"S8";
    EXPECT_EQ(testing_support::Safe(), provider.UpdateRecord(2, update));
    log.Clear();  // below, URL is missing
    EXPECT_FALSE(provider.RemoveRecords(update) || provider.DeleteRecord(-1) ||
                 provider.UpdateRecord(-1, update) || provider.UpdateRecord(2, {}) || provider.UpdateLastStatusSignal(-1, L"x") ||
                 provider.UpdateLastStatusSignal(2, L"") || provider.UpdateLastSigSendStatus(-1, true) || provider.UpdateResponse(-1, L"x") ||
                 provider.UpdateResponse(2, L"") || provider.NeedStatusSubscription(L"Q1", L"J1", L"", L"") ||
                 provider.NeedStatusSubscription(L"Q1", L"", L"", L"S1"));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(ByProfile<std::string>("R9|30|S9|sig\u00e4|resp", "R9|30|S8|sig\u00e4|resp"),
              db.Scalar("SELECT CONCAT_WS('|', REFID, REPEATTIME, SENDERID, LASTSIG, RESPONSE) FROM STATSSUBS WHERE ID=2"));
}

// The searches build their conditions (AND/OR, the unquoted CURRENT_TIMESTAMP, a leading AND without
// a device id), exactly-one GetRecord, the count; NeedStatusSubscription by job (mode 0) and by global subscription
// with/without job detail (modes 2/1); RemoveRecords selects by URL and the set text fields only.
TEST_F(StatusSubProviderTest, SearchesMatchingAndRemoval) {
    // 1 to 3 by job (only 1 repeats); 4 and 5 global (queue entry "-1") at D1, 5 with job detail.
    db.Exec("INSERT INTO STATSSUBS(ID, DEVICEID, QENTRYID, SENDERID, JOBID, JOBPARTID, URL, JOBDETAIL, REPEATTIME) VALUES"
            "(1,'D1','Q1','S1','J1','P1','http://a',NULL,30), (2,'D1','Q2','S1','J2',NULL,'http://a',NULL,NULL),"
            "(3,'D2','Q1','S2','J1',NULL,'http://b',NULL,NULL), (4,'D1','-1','S1',NULL,NULL,'http://g',NULL,NULL),"
            "(5,'D1','-1','S3',NULL,NULL,'http://g','Full',NULL)");
    StatusSubTableRecord rec, one;
    rec.QENTRYID = L"Q1", rec.JOBID = L"J1", rec.JOBPARTID = L"P1", rec.SENDERID = L"S1";
    EXPECT_FALSE(provider.NeedStatusSubscription(rec, 0));
    const std::wstring idSelect = L"SELECT " + Col(L"ID") + ByProfile(L" FROM STATSSUBS", L" FROM `STATSSUBS`");
    EXPECT_TRUE(log.Contains(Traced(idSelect + L" WHERE ( ( " + Col(L"QENTRYID") + L" = 'Q1' ) AND ( " + Col(L"JOBID") +
                                    L" = 'J1' ) AND ( " + Col(L"JOBPARTID") + L" = 'P1' ) AND ( " + Col(L"SENDERID") +
                                    L" = 'S1' ) ) ")));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::NeedStatusSubscription") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    EXPECT_TRUE(provider.NeedStatusSubscription(L"Q1", L"J1", L"P1", L"S2"));

    // No device id: the condition begins with AND and the query fails.
    EXPECT_TRUE(provider.GetRecords(std::wstring(), std::wstring(L"Q1"), out) && out.size() == 1);
    EXPECT_TRUE(log.Contains(Traced(All() + L" WHERE AND ( " + Col(L"QENTRYID") + L" = 'Q1' ) ")));
    provider.GetRecords(L"", L"S1", L"J1", L"", true, out);
    EXPECT_TRUE(log.Contains(Traced(All() + L" WHERE ( " + Col(L"SENDERID") + L" = 'S1' ) AND ( " + Col(L"JOBID") + L" = 'J1' ) ")));
    provider.GetRecords(L"", L"S1", L"J1", L"", false, out);
    EXPECT_TRUE(log.Contains(Traced(All() + L" WHERE ( " + Col(L"SENDERID") + L" = 'S1' ) OR ( " + Col(L"JOBID") + L" = 'J1' ) ")));
    EXPECT_TRUE(provider.GetRecords(out));  // due: REPEATTIME set, LASTUPDATE (insertion time) passed
    EXPECT_TRUE(log.Contains(All() + L" WHERE ( " + Col(L"REPEATTIME") + L" IS NOT NULL ) AND ( CURRENT_TIMESTAMP >= " +
                             Col(L"LASTUPDATE") + L" ) "));
    ASSERT_TRUE(provider.UpdateLastSigSendStatus(1, true) && provider.UpdateLastSigSendStatus(2, false));
    for (bool sent : {true, false}) provider.GetRecords(sent, out);
    provider.GetRecords(std::wstring(L"D1"), std::wstring(L"Q2"), out);
    std::vector<int> ids;
    for (const auto& r : out) ids.push_back(r.ID);
    EXPECT_EQ(std::vector<int>({-1, 1, 1, 2, 3, 4, 1, 1, 2, 2}), ids);

    EXPECT_TRUE(provider.GetRecord(one, L"D2", L"S2") && one.ID == 3);
    EXPECT_FALSE(provider.GetRecord(one, L"D1", L"S1") || provider.GetRecord(one, L"D3", L"S1") || one.ID != 3);  // 3 rows, 0 rows
    int count = -1;
    EXPECT_TRUE(provider.GetRecordsCount(count) && count == 5 && log.Contains(idSelect) &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecordsCount"));

    rec.DEVICEID = L"D1";  // mode 2: with job detail, mode 1: without
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 2) && rec.ID == -1);
    EXPECT_TRUE(!provider.NeedStatusSubscription(rec, 1) && rec.ID == 4);
    rec.SENDERID = L"S3";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 1) && !provider.NeedStatusSubscription(rec, 2) && rec.ID == 5);

    // 3's own record as the pattern: the empty texts and all ints (0 here) never take part.
    EXPECT_TRUE(provider.RemoveRecords(one) &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::RemoveRecords"));
    EXPECT_TRUE(log.Contains(Traced(idSelect + L" WHERE ( ( " + Col(L"URL") + L" = 'http://b' ) AND ( " + Col(L"DEVICEID") +
                                    L" = 'D2' ) AND ( " + Col(L"JOBID") + L" = 'J1' ) AND ( " + Col(L"QENTRYID") +
                                    L" = 'Q1' ) AND ( " + Col(L"SENDERID") + L" = 'S2' ) ) ")));
    EXPECT_EQ("1,2,4,5", db.Scalar("SELECT GROUP_CONCAT(ID ORDER BY ID) FROM STATSSUBS"));  // removed through DeleteRecord
}
