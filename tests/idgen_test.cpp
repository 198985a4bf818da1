// Sequential identifier generation (the default mode) against the server.
#include <gtest/gtest.h>

#include "IdGenFixture.h"

using testing_support::LogCapture;

namespace {

using SequentialIdTest = testing_support::IdGenTest;

TEST_F(SequentialIdTest, OnePastTheLargerOfKeysAndMark) {
    LogCapture log;
    EXPECT_EQ(1, NextContentId());  // empty table, mark 0
    EXPECT_EQ("1", db.Scalar("SELECT CONTENT FROM MAXID"));
    EXPECT_TRUE(log.Contains(L"SELECT CONTENT FROM MAXID"));
    EXPECT_TRUE(log.Contains(L"SELECT CONTENTID FROM CONTENT"));
    EXPECT_TRUE(log.Contains(L"UPDATE MAXID SET CONTENT ='1'"));
    EXPECT_TRUE(log.Contains(L"Inside CMysqlDatabaseInterface::GenerateIntID()"));

    db.Exec("INSERT INTO CONTENT (CONTENTID) VALUES (1), (2), (7)");
    db.Exec("UPDATE MAXID SET CONTENT = 10");
    EXPECT_EQ(11, NextContentId());
    db.Exec("UPDATE MAXID SET CONTENT = 3");
    EXPECT_EQ(8, NextContentId());
    EXPECT_EQ("8", db.Scalar("SELECT CONTENT FROM MAXID"));
}

TEST_F(SequentialIdTest, TextKeysAndUnknownTypes) {
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES ('1'), ('2'), ('122'), ('job-9')");
    wchar_t key[33];
    std::wmemset(key, L'x', 33);
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(L"123"), key);  // "job-9" has no leading number: 0

    LogCapture log;
    int untouched = 77;
    store->GenerateNewID(TICKET_JDFTICKET, &untouched, PARAM_DOUBLE);
    EXPECT_EQ(77, untouched);
    EXPECT_TRUE(log.Contains(L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id"));

    // A key beyond the int range reads as the largest int: no identifier is
    // left, so nothing is written rather than a wrapped-around number.
    db.Exec("INSERT INTO JDFTICKET (QENTRYID) VALUES (' 99999999999x')");
    key[0] = L'\0';
    store->GenerateNewID(TICKET_JDFTICKET, key, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(), key);
    EXPECT_TRUE(log.ContainsText(L"no identifier left"));
}

}  // namespace
