// CStatusSubDataProvider against the private server: records, the guards, the
// searches with their conditions, subscription matching and removal.
#include <gtest/gtest.h>

#include <tuple>

#include "CStatusSubDataProvider.h"
#include "TestSupport.h"

const std::wstring kAll = L"SELECT STATSSUBS.* FROM STATSSUBS";

class StatusSubProviderTest : public ::testing::Test {
protected:
    void SetUp() override { db.Reset({"STATSSUBS"}); }

    int Add(const wchar_t* device, const wchar_t* qentry, const wchar_t* sender, const wchar_t* job, const wchar_t* url,
            const wchar_t* jobDetail = L"") {
        StatusSubTableRecord r{-1, L"", url, L"", L"", TimeStamp(0), L"", jobDetail, -1, -1, device, qentry, job, L"", -1, -1, L"", sender};
        EXPECT_TRUE(provider.AddRecord(&r));
        return r.ID;
    }
    static auto Fields(const StatusSubTableRecord& r) {
        return std::tie(r.ID, r.REFID, r.URL, r.STATSUBS, r.LASTSIG, r.LASTUPDATE, r.DEVDETLEVEL, r.JOBDETAIL, r.QUEUEINFO, r.EMPLOYEINFO,
                        r.DEVICEID, r.QENTRYID, r.JOBID, r.JOBPARTID, r.REPEATSTEP, r.REPEATTIME, r.RESPONSE, r.SENDERID);
    }

    testing_support::RawDb db;
    CStatusSubDataProvider provider;
    std::vector<StatusSubTableRecord> out = std::vector<StatusSubTableRecord>(1);  // readers append to what is there
};

// Every field (long Unicode texts too) round trips through the server and GetRecords appends; an unset INT reads
// back as 0; SENDERID is updated only after a successful write; the -1/empty guards refuse before any SQL.
TEST_F(StatusSubProviderTest, RoundTripUpdatesAndGuards) {
    StatusSubTableRecord rec{-1, L"ref-\u00e4", L"http://h/\u6771\u4eac", std::wstring(150000, L'\u00e9') + L"<Q/>",
                             std::wstring(120000, L'\u4eac'), TimeStamp(5), L"Brief", L"Full", 1, 0, L"Dev\u00f6", L"Q1",
                             L"J1", L"P1", 5, 60, std::wstring(100000, L'\u00df'), L"S\u00fc"};
    ASSERT_TRUE(provider.AddRecord(&rec));
    StatusSubTableRecord bare;  // only the row
    ASSERT_TRUE(provider.AddRecord(&bare));
    testing_support::LogCapture log;
    ASSERT_TRUE(provider.GetRecords(L"", L"", L"", L"", true, out));
    EXPECT_TRUE(log.Contains(kAll) && log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::GetRecords") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    ASSERT_EQ(3u, out.size());
    rec.LASTUPDATE = TimeStamp(0);  // the store cannot write a DATETIME: reads back unset
    EXPECT_TRUE(Fields(rec) == Fields(out[1]));
    EXPECT_TRUE(Fields(StatusSubTableRecord{2, L"", L"", L"", L"", TimeStamp(0), L"", L"", 0, 0, L"", L"", L"", L"",
                                            0, 0, L"", L""}) == Fields(out[2]));

    StatusSubTableRecord update;
    update.REFID = L"R9", update.REPEATTIME = 30, update.SENDERID = L"S9";
    EXPECT_TRUE(provider.UpdateRecord(2, update));
    update.REFID.clear(), update.REPEATTIME = -1, update.SENDERID = L"S8";
    EXPECT_FALSE(provider.UpdateRecord(2, update));  // SENDERID alone is not written
    EXPECT_TRUE(provider.UpdateLastStatusSignal(2, L"sig\u00e4") && provider.UpdateResponse(2, L"resp"));
    EXPECT_EQ("R9|30|S9|sig\u00e4|resp",
              db.Scalar("SELECT CONCAT_WS('|', REFID, REPEATTIME, SENDERID, LASTSIG, RESPONSE) FROM STATSSUBS WHERE ID=2"));

    log.Clear();
    EXPECT_FALSE(provider.DeleteRecord(-1) || provider.UpdateRecord(-1, update) || provider.UpdateRecord(2, {}) ||
                 provider.UpdateLastStatusSignal(-1, L"x") || provider.UpdateLastStatusSignal(2, L"") ||
                 provider.UpdateLastSigSendStatus(-1, true) || provider.UpdateResponse(-1, L"x") || provider.UpdateResponse(2, L"") ||
                 provider.RemoveRecords(update) /* no URL */ || provider.NeedStatusSubscription(L"Q1", L"J1", L"", L"") ||
                 provider.NeedStatusSubscription(L"Q1", L"", L"", L"S1"));
    EXPECT_TRUE(log.Lines().empty());
}

// The searches build their conditions as specified (AND/OR, the unquoted CURRENT_TIMESTAMP, a leading AND without
// a device id), exactly-one GetRecord, the count; NeedStatusSubscription by job (mode 0) and by global subscription
// with/without job detail (modes 2/1); RemoveRecords selects by URL and the set text fields only.
TEST_F(StatusSubProviderTest, SearchesMatchingAndRemoval) {
    const int a = Add(L"D1", L"Q1", L"S1", L"J1", L"http://a");
    db.Exec("UPDATE STATSSUBS SET JOBPARTID = 'P1', REPEATTIME = 30");  // a repeats
    const int b = Add(L"D1", L"Q2", L"S1", L"J2", L"http://a"), c = Add(L"D2", L"Q1", L"S2", L"J1", L"http://b");
    StatusSubTableRecord rec;
    rec.QENTRYID = L"Q1", rec.JOBID = L"J1", rec.JOBPARTID = L"P1", rec.SENDERID = L"S1";
    testing_support::LogCapture log;
    EXPECT_FALSE(provider.NeedStatusSubscription(rec, 0));
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS WHERE ( ( STATSSUBS.QENTRYID = 'Q1' ) AND "
                             L"( STATSSUBS.JOBID = 'J1' ) AND ( STATSSUBS.JOBPARTID = 'P1' ) AND ( STATSSUBS.SENDERID = 'S1' ) ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::NeedStatusSubscription") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    rec.SENDERID = L"S2";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 0));

    provider.GetRecords(L"", L"S1", L"J1", L"", true, out);
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.SENDERID = 'S1' ) AND ( STATSSUBS.JOBID = 'J1' ) "));
    provider.GetRecords(L"", L"S1", L"J1", L"", false, out);
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.SENDERID = 'S1' ) OR ( STATSSUBS.JOBID = 'J1' ) "));
    EXPECT_TRUE(provider.GetRecords(out));  // due: REPEATTIME set, LASTUPDATE (insertion time) passed
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.REPEATTIME IS NOT NULL ) AND ( CURRENT_TIMESTAMP >= STATSSUBS.LASTUPDATE ) "));
    ASSERT_TRUE(provider.UpdateLastSigSendStatus(a, true) && provider.UpdateLastSigSendStatus(b, false));
    provider.GetRecords(true, out);
    provider.GetRecords(false, out);
    provider.GetRecords(std::wstring(L"D1"), std::wstring(L"Q2"), out);
    std::vector<int> ids;
    for (const auto& r : out) ids.push_back(r.ID);
    EXPECT_EQ(std::vector<int>({-1, a, a, b, c, a, a, b, b}), ids);
    out.clear();  // no device id: the condition begins with AND and the query fails
    EXPECT_TRUE(provider.GetRecords(std::wstring(), std::wstring(L"Q1"), out) && out.empty());
    EXPECT_TRUE(log.Contains(kAll + L" WHERE AND ( STATSSUBS.QENTRYID = 'Q1' ) "));

    StatusSubTableRecord one;
    EXPECT_TRUE(provider.GetRecord(one, L"D2", L"S2") && one.ID == c);
    EXPECT_FALSE(provider.GetRecord(one, L"D1", L"S1") || provider.GetRecord(one, L"D3", L"S1") || one.ID != c);  // 2 rows, 0 rows
    int count = -1;
    EXPECT_TRUE(provider.GetRecordsCount(count) && count == 3);
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecordsCount"));

    const int plain = Add(L"D1", L"-1", L"S1", L"", L"http://g");
    const int detailed = Add(L"D1", L"-1", L"S3", L"", L"http://g", L"Full");
    rec.DEVICEID = L"D1", rec.SENDERID = L"S1";  // global subscriptions: queue entry "-1"
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 2) && rec.ID == -1);
    EXPECT_TRUE(!provider.NeedStatusSubscription(rec, 1) && rec.ID == plain);
    rec.SENDERID = L"S3";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 1) && !provider.NeedStatusSubscription(rec, 2) && rec.ID == detailed);

    // c's own record as the pattern: the empty texts and all ints (0 here) never take part.
    EXPECT_TRUE(provider.RemoveRecords(one) &&
                log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::RemoveRecords"));
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS WHERE ( ( STATSSUBS.URL = 'http://b' ) AND ( STATSSUBS.DEVICEID = 'D2' ) "
                             L"AND ( STATSSUBS.JOBID = 'J1' ) AND ( STATSSUBS.QENTRYID = 'Q1' ) AND ( STATSSUBS.SENDERID = 'S2' ) ) "));
    EXPECT_EQ("1,2,4,5", db.Scalar("SELECT GROUP_CONCAT(ID ORDER BY ID) FROM STATSSUBS"));  // c removed through DeleteRecord
}
