// The generic store against the private server: catalogue, the exact SQL of
// the single-column operations, values and blobs written and read back, and
// the failure paths that only log.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "CDatabaseFactory.h"
#include "CMysqlDatabaseInterface.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"JDFTICKET", "CONTENT"});
        store = CMysqlDatabaseInterface::GetInstance();
    }
    void AddRow(const wchar_t* key) { ASSERT_TRUE(store->AddNewTicket(TICKET_JDFTICKET, key, PARAM_WSTRING)); }

    RawDb db;
    CMysqlDatabaseInterface* store = nullptr;
};

TEST_F(StoreTest, CatalogueNamesTablesAndKeys) {
    LogCapture log;
    const char* const names[][2] = {{"JDFTICKET", "QENTRYID"}, {"CONTENT", "CONTENTID"}, {"DEVICEJOB", "TRACKID"},
                                    {"STATSSUBS", "ID"},        {"SERVER", "SERVERID"},   {"DEVICE", "DEVICEID"},
                                    {"LOG", "LOGID"},           {"MAXID", "JDFTICKET"}};
    for (int type = TICKET_JDFTICKET; type <= TICKET_MAXID; ++type) {
        EXPECT_EQ(names[type - 1][0], store->GetTicketType(static_cast<TICKET_TYPE_NV>(type)));
        EXPECT_EQ(names[type - 1][1], store->GetPrimaryKey(static_cast<TICKET_TYPE_NV>(type)));
    }
    EXPECT_TRUE(log.Contains(L"Inside CMysqlDatabaseInterface::GetTicketType()"));
    EXPECT_TRUE(log.Contains(L"Returning from CMysqlDatabaseInterface::GetPrimaryKey()"));
    EXPECT_FALSE(log.Contains(L"CMysqlDatabaseInterface::GetTicketType() : TICKET_TYPE_NV:UNKNOWN"));

    EXPECT_EQ("", store->GetTicketType(TICKET_UNKNOWN));
    EXPECT_EQ("", store->GetTicketType(static_cast<TICKET_TYPE_NV>(9)));
    EXPECT_EQ(2u, log.Count(L"CMysqlDatabaseInterface::GetTicketType() : TICKET_TYPE_NV:UNKNOWN"));
    log.Clear();
    EXPECT_EQ("", store->GetPrimaryKey(static_cast<TICKET_TYPE_NV>(9)));
    EXPECT_FALSE(log.ContainsText(L"UNKNOWN"));

    // One store for the whole process; the factory hands out the same one.
    EXPECT_EQ(store, CDatabaseFactory::GetDatabaseInterface());
    EXPECT_EQ(store, CMysqlDatabaseInterface::GetInstance());
}

// Each single-column operation, in order on one row: the statement it sends
// and what it answers, in each profile.
TEST_F(StoreTest, SingleColumnStatementsAreSentExactly) {
    LogCapture log;
    const wchar_t* key = L"Q12";
    int status = 3;
    int read = -1;
    struct Case {
        std::function<bool()> call;
        const wchar_t* exactText;
        const wchar_t* safeText;
        bool exactResult;
        bool safeResult;
    };
    const Case cases[] = {
        {[&] { return store->AddNewTicket(TICKET_JDFTICKET, key, PARAM_WSTRING); },
         L"INSERT INTO JDFTICKET(QENTRYID) VALUES('Q12')", L"INSERT INTO `JDFTICKET`(`QENTRYID`) VALUES(?)\nvalues: 'Q12'", true,
         true},
        {[&] { return store->AddParameter(TICKET_JDFTICKET, key, PARAM_WSTRING, "JDFTICKET.STATUS", &status, PARAM_INT); },
         L"UPDATE JDFTICKET SET STATUS = '3' WHERE QENTRYID = 'Q12'",
         L"UPDATE `JDFTICKET` SET `STATUS` = ? WHERE `QENTRYID` = ?\nvalues: 3, 'Q12'", true, true},
        {[&] { return store->GetParameter(TICKET_JDFTICKET, key, PARAM_WSTRING, "JDFTICKET.STATUS", &read, PARAM_INT); },
         L"SELECT STATUS FROM JDFTICKET WHERE QENTRYID = 'Q12'",
         L"SELECT `STATUS` FROM `JDFTICKET` WHERE `QENTRYID` = ?\nvalues: 'Q12'", true, true},
        // The exact profile's column delete names the column as a table; the
        // server refuses it (1109) and only the log says so.
        {[&] { return store->DeleteParameter(TICKET_JDFTICKET, key, PARAM_WSTRING, "JDFTICKET.STATUS", PARAM_INT); },
         L"DELETE STATUS FROM JDFTICKET WHERE QENTRYID = 'Q12'",
         L"UPDATE `JDFTICKET` SET `STATUS` = NULL WHERE `QENTRYID` = ?\nvalues: 'Q12'", true, true},
        {[&] { return store->DeleteTicket(TICKET_JDFTICKET, key, PARAM_WSTRING); },
         L"DELETE FROM JDFTICKET WHERE QENTRYID='Q12'", L"DELETE FROM `JDFTICKET` WHERE `QENTRYID`=?\nvalues: 'Q12'", true, true},
        // An unknown table type yields empty names: the exact profile still "succeeds".
        {[&] { return store->DeleteTicket(TICKET_UNKNOWN, key, PARAM_WSTRING); }, L"DELETE FROM  WHERE ='Q12'",
         L"DELETE FROM `` WHERE ``=?\nvalues: 'Q12'", true, false},
    };
    // The log is kept across the cases: no two cases send the same text, and
    // the frame lines below come from them.
    for (const Case& c : cases) {
        EXPECT_EQ(testing_support::ByProfile(c.exactResult, c.safeResult), c.call()) << c.exactText;
        EXPECT_TRUE(log.Contains(testing_support::ByProfile(c.exactText, c.safeText))) << c.exactText;
        if (&c == &cases[2]) {
            EXPECT_EQ(3, read);
        }
        if (&c == &cases[3]) {
            EXPECT_EQ(testing_support::ByProfile(std::string("3"), std::string("<null>")),
                      db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID='Q12'"));
            EXPECT_EQ(!testing_support::Safe(), log.Contains(L"MySQL error code: 1109"));
        }
    }
    EXPECT_EQ(0, db.Count("JDFTICKET"));
    for (const wchar_t* line : {L"Inside CMysqlDatabaseInterface::AddNewTicket()",
                                L"Returning from CMysqlDatabaseInterface::AddParameter()",
                                L"Inside CDatabaseConnection::ExecuteSqlQuery", L"ExecuteSqlQuery::Getting result set",
                                L"Exiting CDatabaseConnection::ExecuteQuery"})
        EXPECT_TRUE(log.Contains(line)) << line;
    // Values are written into the text only in the exact profile.
    for (const wchar_t* line : {L"Inside CMysqlDatabaseInterface::SendValueToCursor()",
                                L"Returning from CMysqlDatabaseInterface::SendValueToCursor()"})
        EXPECT_NE(testing_support::Safe(), log.Contains(line)) << line;
}

TEST_F(StoreTest, ValuesRoundTripByType) {
    LogCapture log;
    AddRow(L"Q1");
    const int64_t negative = -5;
    EXPECT_TRUE(store->AddParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATE", &negative, PARAM_LONG));
    int64_t wide = 0;
    EXPECT_TRUE(store->GetParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATE", &wide, PARAM_LONG));
    EXPECT_EQ(-5, wide);
    double real = 0;
    EXPECT_TRUE(store->GetParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATE", &real, PARAM_DOUBLE));
    EXPECT_DOUBLE_EQ(-5.0, real);

    // Doubles keep the stream's default formatting: six significant digits.
    const double pi = 3.14159265;
    store->AddParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUSMSG", &pi, PARAM_DOUBLE);
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"UPDATE JDFTICKET SET STATUSMSG = '3.14159' WHERE QENTRYID = 'Q1'",
                                                        L"UPDATE `JDFTICKET` SET `STATUSMSG` = ? WHERE `QENTRYID` = ?\nvalues: 3.14159, 'Q1'")));

    // Non-ASCII text, a 4-byte character included, reaches the table as UTF-8.
    const std::wstring text = L"Gr\u00FC\u00DFe \u65E5\u672C \U0001F5A8";
    EXPECT_TRUE(store->AddParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUSMSG", text.c_str(),
                                    PARAM_WSTRING));
    EXPECT_EQ("Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x96\xA8",
              db.Scalar("SELECT STATUSMSG FROM JDFTICKET WHERE QENTRYID='Q1'"));
    wchar_t buffer[1024];
    std::wmemset(buffer, L'x', 1024);
    EXPECT_TRUE(store->GetParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUSMSG", buffer,
                                    PARAM_WSTRING));
    EXPECT_EQ(text, std::wstring(buffer));

    // Time stamps and tag 5 run the select but copy nothing.
    int untouched = 42;
    EXPECT_TRUE(store->GetParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATE", &untouched,
                                    PARAM_INT_5));
    EXPECT_EQ(42, untouched);
    // A key with no row: the buffer is left as it was; only the safe profile says false.
    EXPECT_NE(testing_support::Safe(), store->GetParameter(TICKET_JDFTICKET, L"nope", PARAM_WSTRING, "JDFTICKET.STATE",
                                                          &untouched, PARAM_INT));
    EXPECT_EQ(42, untouched);
}

// Direct blob calls: integer keys are written as decimals; a missing row
// reads as an empty text (the safe profile answers false for both). A text
// of many megabytes through the blob path: bad_input_test's 16 MB JDF.
TEST_F(StoreTest, DirectBlobCalls) {
    LogCapture log;
    _BLOB text(L"caps");
    const int contentId = 5;
    EXPECT_NE(testing_support::Safe(), store->AddBlob(TICKET_CONTENT, &contentId, PARAM_INT, "CONTENT.REMOTEURL", &text));
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"UPDATE CONTENT SET REMOTEURL='caps' WHERE CONTENTID = '5'",
                                                        L"UPDATE `CONTENT` SET `REMOTEURL`=? WHERE `CONTENTID` = ?\nvalues: 'caps', '5'")));
    _BLOB missing;
    EXPECT_NE(testing_support::Safe(), store->GetBlob(TICKET_JDFTICKET, L"none", PARAM_WSTRING, "JDFTICKET.JDF", &missing));
    EXPECT_EQ(std::wstring(), missing.data ? missing.data : L"");
}

TEST_F(StoreTest, BadInputOnlyFailsItsOwnStatement) {
    AddRow(L"Q1");
    AddRow(L"Q2");
    int status = 9;
    store->AddParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING, "JDFTICKET.STATUS", &status, PARAM_INT);

    LogCapture log;
    // A quote in the key breaks the exact statement: logged, "true" as always.
    // The safe profile binds it: a key with no row. No other row is touched.
    int other = 1;
    EXPECT_NE(testing_support::Safe(), store->AddParameter(TICKET_JDFTICKET, L"Q1'x", PARAM_WSTRING, "JDFTICKET.STATUS",
                                                          &other, PARAM_INT));
    EXPECT_EQ("9", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID='Q2'"));
    int read = -1;
    EXPECT_FALSE(store->GetParameter(TICKET_JDFTICKET, L"it's", PARAM_WSTRING, "JDFTICKET.STATUS", &read, PARAM_INT));
    EXPECT_NE(testing_support::Safe(),
              log.Contains(L"Returning from CMysqlDatabaseInterface::GetParameter() : Failed Execution"));
    EXPECT_NE(testing_support::Safe(), log.Contains(L"MySQL error code: 1064"));

    // A column without a table part is refused before any SQL is built.
    log.Clear();
    EXPECT_FALSE(store->GetParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING, "STATUS", &read, PARAM_INT));
    EXPECT_NE(testing_support::Safe(), store->AddParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING, "STATUS", &other, PARAM_INT));
    EXPECT_TRUE(log.ContainsText(L"column name without a table part refused: STATUS"));
    EXPECT_FALSE(log.ContainsText(L"SELECT"));

    // A value tag the text path does not write leaves an empty value (NULL
    // when bound).
    log.Clear();
    store->AddParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING, "JDFTICKET.STATUSMSG", &other, PARAM_NONE);
    EXPECT_NE(testing_support::Safe(), log.Contains(
        L"CMysqlDatabaseInterface::SendValueToCursor() : Unknown and UnHandled Type send to database"));
    EXPECT_TRUE(log.Contains(testing_support::ByProfile(L"UPDATE JDFTICKET SET STATUSMSG = '' WHERE QENTRYID = 'Q2'",
                                                        L"UPDATE `JDFTICKET` SET `STATUSMSG` = ? WHERE `QENTRYID` = ?\nvalues: NULL, 'Q2'")));

    // An exception while reading the answer is caught inside the operation
    // (the label does not match the column asked for) and the lock is free.
    // The safe profile quotes the whole text as one name: an unknown column.
    log.Clear();
    EXPECT_NE(testing_support::Safe(), store->GetParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING,
                                                          "JDFTICKET.STATUS AS S", &read, PARAM_INT));
    // The exception line's format says %s while its argument is wide, so only
    // the signature's first character shows.
    EXPECT_NE(testing_support::Safe(), log.Contains(L"*****Exception at b*****"));
    EXPECT_EQ(testing_support::Safe(), log.Contains(L"MySQL error code: 1054"));
    EXPECT_TRUE(log.Contains(L"Returning from CMysqlDatabaseInterface::GetParameter()") ||
                log.Contains(L"Returning from CMysqlDatabaseInterface::GetParameter() : Failed Execution"));
    EXPECT_TRUE(store->GetParameter(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING, "JDFTICKET.STATUS", &read, PARAM_INT));
    EXPECT_EQ(9, read);
}

}  // namespace
