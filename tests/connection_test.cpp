// The one connection when the server is killed under a live connection
// (down at start-up: connection_startup_test.cpp). Each call must return (a
// hang would be a lock left held).
#include <gtest/gtest.h>

#include "CMysqlDatabaseInterface.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::ReadStatusOfC1;

namespace {

TEST(Connection, ServerKilledUnderALiveConnection) {
    testing_support::RawDb db;
    db.Reset({"JDFTICKET"});
    db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATUS) VALUES ('C1', 4)");
    int status = -1;
    ASSERT_TRUE(ReadStatusOfC1(status));
    testing_support::KillServer();
    LogCapture log;
    EXPECT_FALSE(ReadStatusOfC1(status));  // the statement fails and is logged
    EXPECT_TRUE(log.Contains(L"SQLException:"));
    EXPECT_FALSE(ReadStatusOfC1(status));  // and again: no lock was left held
    testing_support::StartServer();
    // The driver reconnects by itself on the next statement.
    status = -1;
    EXPECT_TRUE(ReadStatusOfC1(status));
    EXPECT_EQ(4, status);
    int changed = 6;
    EXPECT_TRUE(CMysqlDatabaseInterface::GetInstance()->AddParameter(TICKET_JDFTICKET, L"C1", PARAM_WSTRING,
                                                                     "JDFTICKET.STATUS", &changed, PARAM_INT));
    EXPECT_EQ("6", testing_support::RawDb().Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID='C1'"));
}

}  // namespace
