// The dialects' statements, built without a server: what each profile puts
// into a statement's text and what it binds beside it.
#include <gtest/gtest.h>

#include <Logger.h>

#include <memory>
#include <string>
#include <vector>

#include "TimeStamp.h"
#include "dl_MultiValue.h"
#include "private/ProviderSupport.h"
#include "private/SafeDialect.h"
#include "private/StoreDialect.h"

namespace {

const wchar_t* const kHostile = L"' OR 1=1 #";

// One profile and what it sends. The texts the store sends through the
// server (keys, rows, columns, queries) are pinned by store_test, query_test
// and the provider tests; these are the ones no server run shows.
struct Profile {
    const char* name;
    const char* setHostile;   // SetColumn of STATUSMSG to kHostile, key Q1
    const char* stamp;        // SetColumn of SUBTIME to 2026-11-24 09:05:00, key Q1
    size_t boundValues;       // values bound beside setHostile's text
};

const Profile kProfiles[] = {
    {"exact", "UPDATE JDFTICKET SET STATUSMSG = '' OR 1=1 #' WHERE QENTRYID = 'Q1'",
     "UPDATE JDFTICKET SET SUBTIME = '' WHERE QENTRYID = 'Q1'", 0},
    {"safe", "UPDATE `JDFTICKET` SET `STATUSMSG` = ? WHERE `QENTRYID` = ?",
     "UPDATE `JDFTICKET` SET `SUBTIME` = ? WHERE `QENTRYID` = ?", 2},
};

class DialectTest : public ::testing::TestWithParam<Profile> {
protected:
    DialectTest() : dialect(MakeDialect(GetParam().name, {nullptr, nullptr, Logger::Initialise(), nullptr, false})) {}
    const Profile& expected = GetParam();
    std::unique_ptr<StoreDialect> dialect;
};

// A hostile value is put into the text only by the exact profile; a time
// stamp is written only by the safe one.
TEST_P(DialectTest, ValuesInTheTextOrBoundBesideIt) {
    EXPECT_STREQ(expected.name, dialect->Profile());
    const Statement update =
        dialect->SetColumn("JDFTICKET", "QENTRYID", "STATUSMSG", kHostile, PARAM_WSTRING, L"Q1", PARAM_WSTRING);
    EXPECT_EQ(expected.setHostile, update.text);
    EXPECT_EQ(expected.boundValues > 0, update.bound);
    ASSERT_EQ(expected.boundValues, update.values.size());
    EXPECT_EQ(update.bound ? L"values: '' OR 1=1 #', 'Q1'" : L"values: ", TraceValues(update));

    TimeStamp stamp(0);
    stamp.year = 2026, stamp.month = 11, stamp.day = 24, stamp.hour = 9, stamp.minute = 5, stamp.second = 0;
    const Statement set = dialect->SetColumn("JDFTICKET", "QENTRYID", "SUBTIME", &stamp, PARAM_TIMESTAMP, L"Q1", PARAM_WSTRING);
    EXPECT_EQ(expected.stamp, set.text);
    EXPECT_EQ(set.bound ? "2026-11-24 09:05:00" : "", set.bound ? set.values[0].text : "");
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

}  // namespace
