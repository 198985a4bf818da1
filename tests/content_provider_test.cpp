#include <gtest/gtest.h>

#include <tuple>

#include "CContentDataProvider.h"
#include "TestSupport.h"

namespace {

struct ContentProviderTest : ::testing::Test {
    void SetUp() override { db.Reset({"CONTENT"}); }
    // Every field set; the store cannot write a DATETIME, so cacheDate reads back unset.
    static ContentTableRecord Full(const std::wstring& qentryId, const std::wstring& runId) {
        return {-1, runId, qentryId, L"http://h/\u6771\u4eac.pdf", L"cache\\job\\a.pdf", 2, L"Stra\u00dfe \u00e9t\u00e9",
                12, L"PDF", TimeStamp(3), TimeStamp(0), L"http://h/p.png", L"prev\\p.png"};
    }
    testing_support::RawDb db;
    CContentDataProvider provider;
};

TEST_F(ContentProviderTest, RecordRoundTripPathsUpdateAndDelete) {
    ContentTableRecord rec = Full(L"Q\u00fc1", L"Lauf-\u00e4");
    ASSERT_TRUE(provider.AddRecord(&rec));
    ASSERT_EQ(1, rec.contentId);
    EXPECT_EQ(L"cache\\job\\a.pdf", rec.cacFilePath);  // the caller's text stays
    EXPECT_EQ("cache/job/a.pdf", db.Scalar("SELECT CACFILEPATH FROM CONTENT WHERE CONTENTID=1"));
    EXPECT_EQ("prev/p.png", db.Scalar("SELECT PREVIEWCACFILEPATH FROM CONTENT WHERE CONTENTID=1"));

    ContentTableRecord back;
    testing_support::LogCapture log;
    ASSERT_TRUE(provider.GetRecord(1, &back));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CContentDataProvider::GetRecords"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CContentDataProvider::GetRecords"));
    EXPECT_FALSE(log.ContainsText(L"return NULL here"));  // every column name found
    EXPECT_EQ(std::tie(rec.contentId, rec.cacheStat, rec.nPages), std::tie(back.contentId, back.cacheStat, back.nPages));
    EXPECT_EQ(std::tie(rec.runId, rec.qentryId, rec.remoteUrl, rec.displayName, rec.fileType, rec.previewRemoteUrl),
              std::tie(back.runId, back.qentryId, back.remoteUrl, back.displayName, back.fileType, back.previewRemoteUrl));
    EXPECT_EQ(L"cache/job/a.pdf", back.cacFilePath);
    EXPECT_EQ(L"prev/p.png", back.previewCacFilePath);
    EXPECT_TRUE(back.cacheDate == TimeStamp(0) && back.lastModDate == TimeStamp(0));

    // Updates send paths as they stand (the server then reads bare backslashes as escapes).
    ContentTableRecord update;
    update.cacFilePath = L"x\\y\\z";
    EXPECT_TRUE(provider.UpdateRecord(1, update));
    EXPECT_TRUE(log.Contains(L"UPDATE CONTENT SET CACFILEPATH = 'x\\y\\z' WHERE CONTENTID = '1'"));
    EXPECT_NE("x/y/z", db.Scalar("SELECT CACFILEPATH FROM CONTENT WHERE CONTENTID=1"));
    EXPECT_FALSE(provider.UpdateRecord(-1, update));
    EXPECT_FALSE(provider.UpdateRecord(1, ContentTableRecord()));

    log.Clear();
    EXPECT_FALSE(provider.DeleteRecord(-1));
    EXPECT_EQ(std::vector<std::wstring>{L"CContentDataProvider::DeleteRecord() Failed since contentID == -1"},
              log.Lines());
    EXPECT_TRUE(provider.DeleteRecord(1));
    EXPECT_EQ(0, db.Count("CONTENT"));
}

TEST_F(ContentProviderTest, UnsetCountersContentIdQueryAndNullRunId) {
    ContentTableRecord rec;
    rec.qentryId = L"Q1";
    rec.runId = L"R1";
    testing_support::LogCapture log;
    ASSERT_TRUE(provider.AddRecord(&rec));
    EXPECT_FALSE(log.ContainsText(L"SET NPAGES") || log.ContainsText(L"SET CACHESTAT"));

    log.Clear();
    EXPECT_EQ(rec.contentId, provider.GetContentId(L"Q1", L"R1"));
    EXPECT_TRUE(log.Contains(
        L"SELECT CONTENT.CONTENTID FROM CONTENT WHERE ( CONTENT.QENTRYID = 'Q1' ) AND ( CONTENT.RUN_ID = 'R1' ) "));
    EXPECT_TRUE(log.Contains(L"Before ExecuteQuery() from CContentDataProvider::GetContentId"));
    EXPECT_TRUE(log.Contains(L"Returned from ExecuteQuery() Inside CContentDataProvider::GetContentId"));

    // A NULL RUN_ID reads back as an empty text with a value: it replaces the caller's.
    db.Exec("UPDATE CONTENT SET RUN_ID = NULL");
    ContentTableRecord back;
    back.runId = L"old";
    ASSERT_TRUE(provider.GetRecord(rec.contentId, &back));
    EXPECT_EQ(L"", back.runId);
}

TEST_F(ContentProviderTest, GetRecordsAppendsInResultOrder) {
    for (const wchar_t* run : {L"R1", L"R2"}) {
        ContentTableRecord rec = Full(L"Q1", run);
        ASSERT_TRUE(provider.AddRecord(&rec));
    }
    ContentTableRecord other = Full(L"Q2", L"R3");
    ASSERT_TRUE(provider.AddRecord(&other));

    std::vector<ContentTableRecord> out(1);
    ASSERT_TRUE(provider.GetRecords(L"Q1", out));
    ASSERT_EQ(3u, out.size());
    EXPECT_EQ(std::make_tuple(-1, 1, 2), std::make_tuple(out[0].contentId, out[1].contentId, out[2].contentId));
    EXPECT_EQ(std::make_tuple(L"R2", L"Q1", Full(L"", L"").displayName, L"prev/p.png", 12),
              std::make_tuple(out[2].runId, out[2].qentryId, out[2].displayName, out[2].previewCacFilePath, out[2].nPages));

    testing_support::LogCapture log;
    EXPECT_FALSE(provider.GetRecords(L"", out));
    EXPECT_TRUE(log.Contains(L"CContentDataProvider::GetRecords()-> Empty QueuEntry"));
    EXPECT_EQ(3u, out.size());
}

TEST_F(ContentProviderTest, ContractViolationsStopTheProcess) {
    EXPECT_FALSE(provider.GetRecord(-1, nullptr));  // the -1 test comes first
    EXPECT_DEATH(provider.GetRecord(5, nullptr), "contentRecordP != __null");
    EXPECT_DEATH(provider.GetContentId(L"none", L"none"), "nRecCnt == 1");
}

}  // namespace
