#include <gtest/gtest.h>

#include <tuple>

#include "CStatusSubDataProvider.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

const std::wstring kAll = L"SELECT STATSSUBS.* FROM STATSSUBS";

class StatusSubProviderTest : public ::testing::Test {
protected:
    void SetUp() override { db.Reset({"STATSSUBS"}); }

    int Add(const wchar_t* device, const wchar_t* qentry, const wchar_t* sender, const wchar_t* job,
            const wchar_t* url, const wchar_t* jobDetail = L"") {
        StatusSubTableRecord r{-1, L"", url, L"", L"", TimeStamp(0), L"", jobDetail, -1,
                               -1, device, qentry, job, L"", -1, -1, L"", sender};
        EXPECT_TRUE(provider.AddRecord(&r));
        return r.ID;
    }
    // a: D1/Q1/S1/J1/P1, repeating; b: D1/Q2/S1/J2; c: D2/Q1/S2/J1.
    void AddThree() {
        a = Add(L"D1", L"Q1", L"S1", L"J1", L"http://a");
        StatusSubTableRecord more;
        more.JOBPARTID = L"P1";
        more.REPEATTIME = 30;
        ASSERT_TRUE(provider.UpdateRecord(a, more));
        b = Add(L"D1", L"Q2", L"S1", L"J2", L"http://a");
        c = Add(L"D2", L"Q1", L"S2", L"J1", L"http://b");
    }
    static auto Fields(const StatusSubTableRecord& r) {
        return std::tie(r.ID, r.REFID, r.URL, r.STATSUBS, r.LASTSIG, r.LASTUPDATE, r.DEVDETLEVEL, r.JOBDETAIL,
                        r.QUEUEINFO, r.EMPLOYEINFO, r.DEVICEID, r.QENTRYID, r.JOBID, r.JOBPARTID, r.REPEATSTEP,
                        r.REPEATTIME, r.RESPONSE, r.SENDERID);
    }
    std::vector<int> Ids() const {
        std::vector<int> ids;
        for (const auto& rec : out) ids.push_back(rec.ID);
        return ids;
    }

    RawDb db;
    CStatusSubDataProvider provider;
    std::vector<StatusSubTableRecord> out;
    int a = -1, b = -1, c = -1;
};

TEST_F(StatusSubProviderTest, RoundTripUpdatesAndGuards) {
    TimeStamp when(0);
    when.year = 2024;  // the store cannot write a DATETIME: reads back unset
    StatusSubTableRecord rec{-1, L"ref-\u00e4", L"http://h/\u6771\u4eac", std::wstring(150000, L'\u00e9') + L"<Q/>",
                             std::wstring(120000, L'\u4eac'), when, L"Brief", L"Full", 1, 0, L"Dev\u00f6", L"Q1",
                             L"J1", L"P1", 5, 60, std::wstring(100000, L'\u00df'), L"S\u00fc"};
    ASSERT_TRUE(provider.AddRecord(&rec));
    StatusSubTableRecord bare;  // only the row: SQL NULL reads back as 0 for an INT column, not -1
    ASSERT_TRUE(provider.AddRecord(&bare));
    ASSERT_EQ(2, bare.ID);
    out.resize(1);  // readers append
    LogCapture log;
    ASSERT_TRUE(provider.GetRecords(L"", L"", L"", L"", true, out));
    EXPECT_TRUE(log.Contains(kAll));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::GetRecords"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    ASSERT_EQ(3u, out.size());
    rec.LASTUPDATE = TimeStamp(0);
    EXPECT_TRUE(Fields(rec) == Fields(out[1]));
    EXPECT_TRUE(Fields(StatusSubTableRecord{2, L"", L"", L"", L"", TimeStamp(0), L"", L"", 0, 0, L"", L"", L"", L"",
                                            0, 0, L"", L""}) == Fields(out[2]));

    // SENDERID is written only after a successful write.
    StatusSubTableRecord update;
    update.SENDERID = L"S9";
    EXPECT_FALSE(provider.UpdateRecord(2, update));
    EXPECT_EQ("<null>", db.Scalar("SELECT SENDERID FROM STATSSUBS WHERE ID=2"));
    update.REFID = L"R9";
    EXPECT_TRUE(provider.UpdateRecord(2, update));
    EXPECT_EQ("S9", db.Scalar("SELECT SENDERID FROM STATSSUBS WHERE ID=2"));
    EXPECT_TRUE(provider.UpdateLastStatusSignal(2, L"sig\u00e4") && provider.UpdateResponse(2, L"resp"));
    EXPECT_EQ("sig\u00e4|resp", db.Scalar("SELECT CONCAT(LASTSIG, '|', RESPONSE) FROM STATSSUBS WHERE ID=2"));

    log.Clear();
    EXPECT_FALSE(provider.DeleteRecord(-1) || provider.UpdateRecord(-1, update) || provider.UpdateRecord(2, {}) ||
                 provider.UpdateLastStatusSignal(-1, L"x") || provider.UpdateLastStatusSignal(2, L"") ||
                 provider.UpdateLastSigSendStatus(-1, true) || provider.UpdateResponse(-1, L"x") ||
                 provider.UpdateResponse(2, L""));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_TRUE(provider.DeleteRecord(1));
    EXPECT_EQ(1, db.Count("STATSSUBS"));
}

TEST_F(StatusSubProviderTest, SearchesBuildTheirConditions) {
    AddThree();
    LogCapture log;
    provider.GetRecords(L"", L"S1", L"J1", L"", true, out);
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.SENDERID = 'S1' ) AND ( STATSSUBS.JOBID = 'J1' ) "));
    provider.GetRecords(L"", L"S1", L"J1", L"", false, out);
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.SENDERID = 'S1' ) OR ( STATSSUBS.JOBID = 'J1' ) "));
    EXPECT_TRUE(provider.GetRecords(out));  // due: REPEATTIME set, LASTUPDATE (insertion time) passed
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.REPEATTIME IS NOT NULL ) AND "
                                    L"( CURRENT_TIMESTAMP >= STATSSUBS.LASTUPDATE ) "));
    ASSERT_TRUE(provider.UpdateLastSigSendStatus(a, true) && provider.UpdateLastSigSendStatus(b, false));
    provider.GetRecords(true, out);
    EXPECT_TRUE(log.Contains(kAll + L" WHERE ( STATSSUBS.LASTSIGSENDSTATUS = '1' ) "));
    provider.GetRecords(false, out);
    provider.GetRecords(std::wstring(L"D1"), std::wstring(L"Q2"), out);
    EXPECT_EQ(std::vector<int>({a, a, b, c, a, a, b, b}), Ids());

    // No device id: the condition begins with AND; the failure is only logged.
    out.clear();
    EXPECT_TRUE(provider.GetRecords(std::wstring(), std::wstring(L"Q1"), out));
    EXPECT_TRUE(log.Contains(kAll + L" WHERE AND ( STATSSUBS.QENTRYID = 'Q1' ) "));
    EXPECT_TRUE(log.Contains(L"CMysqlDatabaseInterface::ExecuteQuery : Failed to execute Query."));
    EXPECT_TRUE(out.empty());

    StatusSubTableRecord one;
    EXPECT_TRUE(provider.GetRecord(one, L"D2", L"S2"));
    EXPECT_EQ(c, one.ID);
    EXPECT_FALSE(provider.GetRecord(one, L"D1", L"S1"));  // two rows
    EXPECT_FALSE(provider.GetRecord(one, L"D3", L"S1"));  // none
    EXPECT_EQ(c, one.ID);

    int count = -1;
    EXPECT_TRUE(provider.GetRecordsCount(count));
    EXPECT_EQ(3, count);
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecordsCount"));
}

TEST_F(StatusSubProviderTest, NeedStatusSubscriptionAndRemoveRecords) {
    AddThree();
    const int plain = Add(L"D1", L"-1", L"S1", L"", L"http://g");
    const int detailed = Add(L"D1", L"-1", L"S3", L"", L"http://g", L"Full");
    LogCapture log;
    EXPECT_FALSE(provider.NeedStatusSubscription(L"Q1", L"J1", L"", L""));
    EXPECT_TRUE(log.Lines().empty());

    StatusSubTableRecord rec;
    rec.QENTRYID = L"Q1", rec.JOBID = L"J1", rec.JOBPARTID = L"P1", rec.SENDERID = L"S1";
    EXPECT_FALSE(provider.NeedStatusSubscription(rec, 0));
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS WHERE ( ( STATSSUBS.QENTRYID = 'Q1' ) AND "
                             L"( STATSSUBS.JOBID = 'J1' ) AND ( STATSSUBS.JOBPARTID = 'P1' ) AND "
                             L"( STATSSUBS.SENDERID = 'S1' ) ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CStatusSubDataProvider::NeedStatusSubscription"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords"));
    rec.SENDERID = L"S2";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 0));

    // Global subscriptions (queue entry "-1"): mode 1 without job detail, mode 2 with it.
    rec.DEVICEID = L"D1", rec.SENDERID = L"S1";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 2));
    EXPECT_EQ(-1, rec.ID);
    EXPECT_FALSE(provider.NeedStatusSubscription(rec, 1));
    EXPECT_EQ(plain, rec.ID);
    rec.SENDERID = L"S3";
    EXPECT_TRUE(provider.NeedStatusSubscription(rec, 1));
    EXPECT_FALSE(provider.NeedStatusSubscription(rec, 2));
    EXPECT_EQ(detailed, rec.ID);

    StatusSubTableRecord pattern;
    pattern.DEVICEID = L"D1";
    EXPECT_FALSE(provider.RemoveRecords(pattern));  // no URL
    pattern.URL = L"http://a", pattern.QENTRYID = L"Q2", pattern.REPEATTIME = 30;  // ints never take part
    EXPECT_TRUE(provider.RemoveRecords(pattern));
    EXPECT_TRUE(log.Contains(L"SELECT STATSSUBS.ID FROM STATSSUBS WHERE ( ( STATSSUBS.URL = 'http://a' ) AND "
                             L"( STATSSUBS.DEVICEID = 'D1' ) AND ( STATSSUBS.QENTRYID = 'Q2' ) ) "));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CStatusSubDataProvider::RemoveRecords"));
    EXPECT_EQ(4, db.Count("STATSSUBS"));
    EXPECT_EQ(0, db.Count("STATSSUBS", "ID=" + std::to_string(b)));
}

}  // namespace
