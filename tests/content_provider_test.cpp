// CContentDataProvider against the private server: records, cache paths
// normalised on add only, the queries, the guards and the assertions.
#include <gtest/gtest.h>

#include <tuple>

#include "CContentDataProvider.h"
#include "TestSupport.h"

struct ContentProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"CONTENT"}); }
    // Every field set; only the safe profile writes a DATETIME, so cacheDate reads back unset in the exact one.
    static ContentTableRecord Full(const std::wstring& qentryId, const std::wstring& runId) {
        return {-1, runId, qentryId, L"http://h/\u6771\u4eac.pdf", L"cache\\job\\a.pdf", 2, L"Stra\u00dfe \u00e9t\u00e9",
                12, L"PDF", testing_support::Stamp(2026, 11, 24, 8, 30, 0), TimeStamp(0), L"http://h/p.png", L"prev\\p.png"};
    }
    testing_support::RawDb db;
    CContentDataProvider provider;
};

// The assertions that stop the process (first: the child reruns this test). AddRecord stores both cache paths with
// forward slashes and leaves the record's text alone; a record reads back whole (under GetRecords' log lines);
// GetRecords appends in result order; GetContentId finds the one row; the -1/empty guards refuse before any SQL,
// two of them with their log lines; UpdateRecord sends paths as they stand and skips unset counters (nPages 0,
// cacheStat -1); a NULL RUN_ID reads back as an empty text with a value and replaces the caller's.
TEST_F(ContentProviderTest, RecordsQueriesGuardsAndAssertions) {
    EXPECT_DEATH(provider.GetRecord(5, nullptr), "contentRecordP != __null");
    EXPECT_DEATH(provider.GetContentId(L"none", L"none"), "nRecCnt == 1");
    ContentTableRecord rec = Full(L"Q\u00fc1", L"Lauf-\u00e4"), r1 = Full(L"Q1", L"R1"), r2 = Full(L"Q1", L"R2"), back, update;
    testing_support::LogCapture log;
    ASSERT_TRUE(provider.AddRecord(&rec));
    EXPECT_EQ(L"cache\\job\\a.pdf", rec.cacFilePath);
    EXPECT_EQ("cache/job/a.pdf|prev/p.png", db.Scalar("SELECT CONCAT(CACFILEPATH, '|', PREVIEWCACFILEPATH) FROM CONTENT"));
    ASSERT_TRUE(provider.GetRecord(1, &back));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CContentDataProvider::GetRecords") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CContentDataProvider::GetRecords"));
    const auto fields = [](const ContentTableRecord& r) {
        return std::tie(r.contentId, r.runId, r.qentryId, r.remoteUrl, r.cacFilePath, r.cacheStat, r.displayName, r.nPages,
                        r.fileType, r.cacheDate, r.lastModDate, r.previewRemoteUrl, r.previewCacFilePath);
    };
    rec.cacFilePath = L"cache/job/a.pdf", rec.previewCacFilePath = L"prev/p.png", rec.cacheDate = testing_support::Stored(rec.cacheDate);
    EXPECT_TRUE(fields(rec) == fields(back));

    std::vector<ContentTableRecord> out(1);
    ASSERT_TRUE(provider.AddRecord(&r1) && provider.AddRecord(&r2));
    ASSERT_TRUE(provider.GetRecords(L"Q1", out) && out.size() == 3);
    EXPECT_EQ(std::make_tuple(-1, 2, 3, L"R2", L"Q1", rec.displayName, L"prev/p.png", 12),
              std::make_tuple(out[0].contentId, out[1].contentId, out[2].contentId, out[2].runId, out[2].qentryId,
                              out[2].displayName, out[2].previewCacFilePath, out[2].nPages));
    EXPECT_EQ(2, provider.GetContentId(L"Q1", L"R1"));
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(
        L"SELECT CONTENT.CONTENTID FROM CONTENT WHERE ( CONTENT.QENTRYID = 'Q1' ) AND ( CONTENT.RUN_ID = 'R1' ) ",
        L"SELECT `CONTENT`.`CONTENTID` FROM `CONTENT` WHERE ( `CONTENT`.`QENTRYID` = ? ) AND ( `CONTENT`.`RUN_ID` = ? ) \nvalues: 'Q1', 'R1'")));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CContentDataProvider::GetContentId") &&
                log.Contains(L"Returned from ExecuteQuery() Inside CContentDataProvider::GetContentId"));

    log.Clear();
    EXPECT_FALSE(provider.UpdateRecord(-1, update) || provider.UpdateRecord(1, ContentTableRecord()) ||
                 provider.GetRecord(-1, nullptr) || provider.DeleteRecord(-1) || provider.GetRecords(L"", out));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{L"CContentDataProvider::DeleteRecord() Failed since contentID == -1",
                                                      L"CContentDataProvider::GetRecords()-> Empty QueuEntry"}));
    update.cacFilePath = L"x\\y\\z";
    EXPECT_TRUE(provider.UpdateRecord(1, update) && !log.ContainsText(L"NPAGES") && !log.ContainsText(L"CACHESTAT"));
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"UPDATE CONTENT SET CACFILEPATH = 'x\\y\\z' WHERE CONTENTID = '1'",
                                                        L"UPDATE `CONTENT` SET `CACFILEPATH` = ? WHERE `CONTENTID` = ?\nvalues: 'x\\y\\z', 1")));
    EXPECT_TRUE(provider.DeleteRecord(1) && db.Count("CONTENT") == 2);
    db.Exec("UPDATE CONTENT SET RUN_ID = NULL");
    EXPECT_TRUE(provider.GetRecord(2, &back) && back.runId.empty());
}
