// Lowest-free identifier generation. The mode is read once, when the store
// is created, so this program switches it on before anything else runs.
#include <ConfigurationControl.h>
#include <gtest/gtest.h>

#include "CMysqlDatabaseInterface.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

class LowestFreeIdTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ConfigurationControl::SetIDPattern(true); }
    void SetUp() override {
        db.Reset({"CONTENT", "JDFTICKET"});
        store = CMysqlDatabaseInterface::GetInstance();
    }
    int NextContentId() {
        int id = -1;
        store->GenerateNewID(TICKET_CONTENT, &id, PARAM_INT);
        return id;
    }
    RawDb db;
    CMysqlDatabaseInterface* store = nullptr;
};

TEST_F(LowestFreeIdTest, FillsTheFirstGap) {
    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (4), (1), (2)");
    db.Exec("UPDATE MAXID SET CONTENT = 10");
    LogCapture log;
    EXPECT_EQ(3, NextContentId());
    EXPECT_EQ("10", db.Scalar("SELECT CONTENT FROM MAXID"));  // raised only when passed
    EXPECT_FALSE(log.ContainsText(L"UPDATE MAXID"));

    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (3)");
    db.Exec("UPDATE MAXID SET CONTENT = 0");
    EXPECT_EQ(5, NextContentId());
    EXPECT_EQ("5", db.Scalar("SELECT CONTENT FROM MAXID"));
}

TEST_F(LowestFreeIdTest, KeyZeroUsesUpACandidate) {
    // As it stands: a key of 0 counts like a match, so the free 1 is skipped.
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES ('x'), ('2')");
    wchar_t key[33] = {0};
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(L"3"), key);
}

}  // namespace
