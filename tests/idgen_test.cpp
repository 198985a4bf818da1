// Sequential identifier generation (the default mode) against the server.
#include <gtest/gtest.h>

#include "IdGenFixture.h"
#include "private/StoreRows.h"

using testing_support::LogCapture;

namespace {

using SequentialIdTest = testing_support::IdGenTest;

using testing_support::ByProfile;

// The exact profile takes one past the larger of the largest key and the
// mark; the safe one raises the mark in one statement and reads no keys.
TEST_F(SequentialIdTest, OnePastTheLargerOfKeysAndMark) {
    LogCapture log;
    EXPECT_EQ(1, NextContentId());  // empty table, mark 0
    EXPECT_EQ("1", db.Scalar("SELECT CONTENT FROM MAXID"));
    if (testing_support::Safe()) {
        EXPECT_TRUE(log.Contains(L"UPDATE `MAXID` SET `CONTENT` = LAST_INSERT_ID(GREATEST(`CONTENT`, 0) + 1)"));
        EXPECT_TRUE(log.Contains(L"SELECT LAST_INSERT_ID()"));
        EXPECT_FALSE(log.ContainsText(L"CONTENTID"));
    } else {
        EXPECT_TRUE(log.Contains(L"SELECT CONTENT FROM MAXID"));
        EXPECT_TRUE(log.Contains(L"SELECT CONTENTID FROM CONTENT"));
        EXPECT_TRUE(log.Contains(L"UPDATE MAXID SET CONTENT ='1'"));
        EXPECT_TRUE(log.Contains(L"Inside CMysqlDatabaseInterface::GenerateIntID()"));
    }

    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (1), (2), (7)");
    db.Exec("UPDATE MAXID SET CONTENT = 10");
    EXPECT_EQ(11, NextContentId());
    db.Exec("UPDATE MAXID SET CONTENT = 3");
    EXPECT_EQ(ByProfile(8, 4), NextContentId());
    EXPECT_EQ(ByProfile<std::string>("8", "4"), db.Scalar("SELECT CONTENT FROM MAXID"));

    // An insert with a generated key never lands on a taken one: the safe
    // profile tries the next number, and after two taken ones raises the mark
    // past the table's keys.
    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (5), (6)");
    int id = -1;
    const dl_ColumnValue name = {"CONTENT.DISPLAYNAME", L"new", PARAM_WSTRING, true, false};
    EXPECT_TRUE(InsertRow(store, TICKET_CONTENT, &id, PARAM_INT, true, false, &name, 1));
    EXPECT_EQ(ByProfile(9, 8), id);
    EXPECT_EQ("new", db.Scalar("SELECT DISPLAYNAME FROM CONTENT WHERE CONTENTID = " + std::to_string(id)));
    EXPECT_EQ(6, db.Count("CONTENT"));
}

TEST_F(SequentialIdTest, TextKeysAndUnknownTypes) {
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES ('1'), ('2'), ('122'), ('job-9')");
    wchar_t key[33];
    std::wmemset(key, L'x', 33);
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(ByProfile(L"123", L"1"), key);  // "job-9" has no leading number: 0

    LogCapture log;
    int untouched = 77;
    store->GenerateNewID(TICKET_JDFTICKET, &untouched, PARAM_DOUBLE);
    EXPECT_EQ(77, untouched);
    EXPECT_TRUE(log.Contains(L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id"));

    // No identifier left in the int range: nothing is written rather than a
    // wrapped-around number. The exact profile finds it from a key beyond the
    // range; the safe one has the server refuse the mark past INT_MAX.
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES (' 99999999999x')");
    db.Exec("UPDATE MAXID SET JDFTICKET = 2147483647");
    key[0] = L'\0';
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(), key);
    EXPECT_TRUE(log.ContainsText(ByProfile(L"no identifier left", L"refused the statement (error 1264)")));
    EXPECT_EQ("2147483647", db.Scalar("SELECT JDFTICKET FROM MAXID"));
}

// Keys and mark below 0: the exact profile refuses (one past them is not a
// valid identifier) and leaves the mark alone; the safe one counts the mark as 0.
TEST_F(SequentialIdTest, NegativeKeysAndMark) {
    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (-7), (-5)");
    db.Exec("UPDATE MAXID SET CONTENT = -10");
    LogCapture log;
    EXPECT_EQ(ByProfile(-1, 1), NextContentId());
    EXPECT_EQ(ByProfile<std::string>("-10", "1"), db.Scalar("SELECT CONTENT FROM MAXID"));
    EXPECT_EQ(!testing_support::Safe(), log.ContainsText(L"GenerateNewID() : no identifier above 0 follows -5"));
}

}  // namespace
