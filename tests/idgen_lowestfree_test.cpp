// Lowest-free identifier generation. The mode is read once, when the store
// is created, so this program switches it on before anything else runs.
#include <ConfigurationControl.h>
#include <gtest/gtest.h>

#include "IdGenFixture.h"

using testing_support::LogCapture;

namespace {

class LowestFreeIdTest : public testing_support::IdGenTest {
protected:
    static void SetUpTestSuite() { ConfigurationControl::SetIDPattern(true); }
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

    // Text keys that give a number twice or a negative one never make the
    // walk stop on a number already taken.
    db.Exec("DELETE FROM JDFTICKET");
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES ('-5'), ('1'), ('01'), ('2')");
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(L"3"), key);
}

}  // namespace
