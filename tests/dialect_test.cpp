// The dialects' statements, built without a server: what each profile puts
// into a statement's text and what it binds beside it, and the identifier
// arithmetic. Each case runs once per profile (the parameter carries that
// profile's expected texts).
#include <gtest/gtest.h>

#include <Logger.h>

#include <memory>
#include <string>
#include <vector>

#include "TimeStamp.h"
#include "dl_MultiValue.h"
#include "private/IdAllocation.h"
#include "private/ProviderSupport.h"
#include "private/SafeDialect.h"
#include "private/StoreDialect.h"

namespace {

const wchar_t* const kHostile = L"' OR 1=1 #";

// One profile and what it sends.
struct Profile {
    const char* name;
    const char* column;       // Name("JDFTICKET.STATUS")
    const char* insertKey;    // InsertKey of JDFTICKET, key Q1
    const char* deleteRow;    // DeleteRow of JDFTICKET, key Q1
    const char* setHostile;   // SetColumn of STATUSMSG to kHostile, key Q1
    const char* clearColumn;  // ClearColumn of STATUS, key Q1
    const char* setText;      // SetText of CONTENT.REMOTEURL to "caps", key text "5"
    const char* query;        // Query of CONTENT: two keys, ( QENTRYID = Q1 ) AND ( NPAGES = 3 )
    const char* stamp;        // SetColumn of SUBTIME to 2026-11-24 09:05:00, key Q1
    size_t boundValues;       // values bound beside setHostile's text
};

const Profile kProfiles[] = {
    {"exact", "JDFTICKET.STATUS", "INSERT INTO JDFTICKET(QENTRYID) VALUES('Q1')",
     "DELETE FROM JDFTICKET WHERE QENTRYID='Q1'",
     "UPDATE JDFTICKET SET STATUSMSG = '' OR 1=1 #' WHERE QENTRYID = 'Q1'",
     "DELETE STATUS FROM JDFTICKET WHERE QENTRYID = 'Q1'",
     "UPDATE CONTENT SET REMOTEURL='caps' WHERE CONTENTID = '5'",
     "SELECT CONTENT.CONTENTID ,CONTENT.RUN_ID FROM CONTENT WHERE ( CONTENT.QENTRYID = 'Q1' ) AND "
     "( CONTENT.NPAGES = '3' ) ",
     "UPDATE JDFTICKET SET SUBTIME = '' WHERE QENTRYID = 'Q1'", 0},
    {"safe", "`JDFTICKET`.`STATUS`", "INSERT INTO `JDFTICKET`(`QENTRYID`) VALUES(?)",
     "DELETE FROM `JDFTICKET` WHERE `QENTRYID`=?", "UPDATE `JDFTICKET` SET `STATUSMSG` = ? WHERE `QENTRYID` = ?",
     "UPDATE `JDFTICKET` SET `STATUS` = NULL WHERE `QENTRYID` = ?",
     "UPDATE `CONTENT` SET `REMOTEURL`=? WHERE `CONTENTID` = ?",
     "SELECT `CONTENT`.`CONTENTID` ,`CONTENT`.`RUN_ID` FROM `CONTENT` WHERE ( `CONTENT`.`QENTRYID` = ? ) AND "
     "( `CONTENT`.`NPAGES` = ? ) ",
     "UPDATE `JDFTICKET` SET `SUBTIME` = ? WHERE `QENTRYID` = ?", 2},
};

class DialectTest : public ::testing::TestWithParam<Profile> {
protected:
    DialectTest() : dialect(MakeDialect(GetParam().name, {nullptr, nullptr, Logger::Initialise(), nullptr, false})) {}
    const Profile& expected = GetParam();
    std::unique_ptr<StoreDialect> dialect;
};

TEST_P(DialectTest, NamesTheProfile) { EXPECT_STREQ(expected.name, dialect->Profile()); }

TEST_P(DialectTest, WritesNames) { EXPECT_EQ(expected.column, dialect->Name("JDFTICKET.STATUS")); }

TEST_P(DialectTest, InsertsAKey) {
    EXPECT_EQ(expected.insertKey, dialect->InsertKey("JDFTICKET", "QENTRYID", L"Q1", PARAM_WSTRING).text);
}

TEST_P(DialectTest, DeletesARowWithoutBlanksAroundItsEqualsSign) {
    EXPECT_EQ(expected.deleteRow, dialect->DeleteRow("JDFTICKET", "QENTRYID", L"Q1", PARAM_WSTRING).text);
}

TEST_P(DialectTest, PutsAValueIntoTheTextOnlyInExact) {
    const Statement update =
        dialect->SetColumn("JDFTICKET", "QENTRYID", "STATUSMSG", kHostile, PARAM_WSTRING, L"Q1", PARAM_WSTRING);
    EXPECT_EQ(expected.setHostile, update.text);
    EXPECT_EQ(expected.boundValues > 0, update.bound);
    ASSERT_EQ(expected.boundValues, update.values.size());
    if (update.bound) {
        EXPECT_EQ("' OR 1=1 #", update.values[0].text);
        EXPECT_EQ("Q1", update.values[1].text);
    }
}

TEST_P(DialectTest, ClearsAColumn) {
    EXPECT_EQ(expected.clearColumn, dialect->ClearColumn("JDFTICKET", "QENTRYID", "STATUS", L"Q1", PARAM_WSTRING).text);
}

TEST_P(DialectTest, WritesALongText) {
    EXPECT_EQ(expected.setText, dialect->SetText("CONTENT", "CONTENTID", "REMOTEURL", "caps", "5").text);
}

TEST_P(DialectTest, BuildsAQuery) {
    dl_MultiValue query;
    query.InsertKeys(2, "CONTENT.CONTENTID", "CONTENT.RUN_ID");
    query.InsertTickettype(1, TICKET_CONTENT);
    provider::AddEquals(query, "CONTENT.QENTRYID", std::wstring(L"Q1"));
    provider::AddOperator(query, "AND");
    provider::AddEquals(query, "CONTENT.NPAGES", 3);
    const Statement select = dialect->Query(query, [](TICKET_TYPE_NV) { return std::string("CONTENT"); });
    EXPECT_EQ(expected.query, select.text);
}

TEST_P(DialectTest, WritesATimeStampOnlyInSafe) {
    TimeStamp stamp(0);
    stamp.year = 2026, stamp.month = 11, stamp.day = 24, stamp.hour = 9, stamp.minute = 5, stamp.second = 0;
    const Statement update =
        dialect->SetColumn("JDFTICKET", "QENTRYID", "SUBTIME", &stamp, PARAM_TIMESTAMP, L"Q1", PARAM_WSTRING);
    EXPECT_EQ(expected.stamp, update.text);
    if (update.bound) {
        EXPECT_EQ("2026-11-24 09:05:00", update.values[0].text);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, DialectTest, ::testing::ValuesIn(kProfiles),
                         [](const ::testing::TestParamInfo<Profile>& info) { return std::string(info.param.name); });

// --- the safe profile's own statements ---------------------------------------

class SafeStatements : public ::testing::Test {
protected:
    SafeDialect dialect{{nullptr, nullptr, Logger::Initialise(), nullptr, false}};
};

TEST_F(SafeStatements, ANameWithABackquoteStaysOneName) {
    EXPECT_EQ("`A``B`.*", dialect.Name("A`B.*"));
}

TEST_F(SafeStatements, AnUnsetTimeStampBindsNull) {
    const TimeStamp unset(0);
    const Statement update =
        dialect.SetColumn("JDFTICKET", "QENTRYID", "SUBTIME", &unset, PARAM_TIMESTAMP, L"Q1", PARAM_WSTRING);
    EXPECT_EQ(BoundValue::Kind::Null, update.values[0].kind);
}

TEST_F(SafeStatements, ARowIsOneUpdate) {
    const int status = 3;
    const dl_ColumnValue columns[] = {{"JDFTICKET.STATUS", &status, PARAM_INT, false, false},
                                      {"JDFTICKET.JDF", L"<JDF/>", PARAM_BLOB, false, false}};
    const Statement update =
        dialect.RowUpdate("JDFTICKET", "QENTRYID", {{"STATUS", &columns[0]}, {"JDF", &columns[1]}}, L"Q1", PARAM_WSTRING);
    EXPECT_EQ("UPDATE `JDFTICKET` SET `STATUS` = ?, `JDF` = ? WHERE `QENTRYID` = ?", update.text);
    EXPECT_EQ(L"values: 3, '<JDF/>', 'Q1'", TraceValues(update));
}

TEST_F(SafeStatements, AReplacingInsertUpdatesEveryColumnButTheKey) {
    const dl_ColumnValue message = {"DEVICE.STATUSMSG", L"m", PARAM_WSTRING, false, false};
    const Statement insert =
        dialect.RowInsert("DEVICE", "DEVICEID", {{"STATUSMSG", &message}}, kHostile, PARAM_WSTRING, true);
    EXPECT_EQ("INSERT INTO `DEVICE` (`DEVICEID`, `STATUSMSG`) VALUES (?, ?) "
              "ON DUPLICATE KEY UPDATE `STATUSMSG` = VALUES(`STATUSMSG`)",
              insert.text);
    EXPECT_EQ(L"values: '' OR 1=1 #', 'm'", TraceValues(insert));
}

// --- identifier arithmetic ------------------------------------------------------

TEST(NextIdentifier, SequentialIsOnePastTheLargerOfKeysAndMark) {
    const NextId next = ChooseNextId({1, 2, 7}, 10, false);
    EXPECT_EQ(11, next.id);
    EXPECT_EQ(11, next.mark);
    EXPECT_EQ(8, ChooseNextId({1, 2, 7}, 3, false).id);
}

TEST(NextIdentifier, SequentialOnAnEmptyTableStartsAtOne) {
    const NextId next = ChooseNextId({}, 0, false);
    EXPECT_EQ(1, next.id);
    EXPECT_EQ(1, next.mark);
}

TEST(NextIdentifier, LowestFreeFillsTheFirstGap) {
    const NextId next = ChooseNextId({4, 1, 2}, 9, true);
    EXPECT_EQ(3, next.id);
    EXPECT_EQ(9, next.mark);  // raised only when passed
}

TEST(NextIdentifier, LowestFreeCountsAKeyOfZeroAsACandidate) { EXPECT_EQ(3, ChooseNextId({0, 2}, 0, true).id); }

TEST(NextIdentifier, NoneAboveTheLargestInt) {
    const NextId next = ChooseNextId({2147483647}, 0, false);
    EXPECT_EQ(NextId::Result::Exhausted, next.result);
    EXPECT_EQ(0, next.mark);
}

TEST(NextIdentifier, NoneWhenKeysAndMarkLeaveNothingAboveZero) {
    const NextId next = ChooseNextId({-7}, -7, false);
    EXPECT_EQ(NextId::Result::NotPositive, next.result);
    EXPECT_EQ(-7, next.below);
}

TEST(NextIdentifier, TextKeysCountByTheirLeadingNumber) {
    EXPECT_EQ(12, LeadingNumber("  12abc"));
    EXPECT_EQ(-5, LeadingNumber("-5"));
    EXPECT_EQ(0, LeadingNumber("Q12"));
    EXPECT_EQ(2147483647, LeadingNumber("99999999999"));
}

}  // namespace
