// The one connection when the server is down as the store is created, then
// started, and then killed under the live connection and started again. A
// program of its own: only the first use of the store finds no server, so no
// other test may create it before this one runs. Each call must return (a
// hang would be a lock left held).
#include <gtest/gtest.h>

#include "CMysqlDatabaseInterface.h"
#include "DatabaseConnection.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::ReadStatusOfC1;

namespace {

TEST(Connection, ServerDownAtStartUpThenKilledUnderALiveConnection) {
    testing_support::KillServer();
    LogCapture log;
    CMysqlDatabaseInterface* store = CMysqlDatabaseInterface::GetInstance();  // completes without a server
    ASSERT_NE(nullptr, store);
    EXPECT_TRUE(log.Contains(L"SQLException in ../../src/DatabaseConnection"));
    EXPECT_TRUE(log.Contains(L"MySQL error code: 2002"));
    EXPECT_TRUE(log.Contains(L"Creation a singleton object for dl_DatabaseInterface has been done"));
    EXPECT_FALSE(CDatabaseConnection::m_hInstance->InitConnection());
    // Later arguments are ignored: the first instance stays.
    EXPECT_EQ(CDatabaseConnection::m_hInstance, CDatabaseConnection::GetInstance("elsewhere", "u", "p"));

    int status = -1;
    log.Clear();
    EXPECT_FALSE(ReadStatusOfC1(status));
    EXPECT_TRUE(log.Contains(L"CDatabaseConnection::ExecuteSqlQuery : Database connection is not available."));
    EXPECT_TRUE(
        log.Contains(L"CDatabaseConnection::ExecuteSqlQuery : Database connection could not be reestablished."));
    EXPECT_TRUE(log.Contains(L"Returning from CMysqlDatabaseInterface::GetParameter() : Failed Execution"));

    testing_support::StartServer();
    testing_support::RawDb db;
    db.Reset({"JDFTICKET"});
    db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATUS) VALUES ('C1', 4)");
    // The call that reconnects loses its statement; the next one runs.
    log.Clear();
    EXPECT_FALSE(ReadStatusOfC1(status));
    EXPECT_TRUE(
        log.Contains(L"CDatabaseConnection::ExecuteSqlQuery : Database connection could not be reestablished."));
    EXPECT_TRUE(ReadStatusOfC1(status));
    EXPECT_EQ(4, status);
    // The pool operations exist and do nothing.
    EXPECT_EQ(nullptr, CDatabaseConnection::m_hInstance->GetDBConnecion());
    EXPECT_FALSE(CDatabaseConnection::m_hInstance->ReInitConnectionPool());

    // Killed under the live connection: each call fails and is logged, and
    // no lock is left held.
    testing_support::KillServer();
    log.Clear();
    EXPECT_FALSE(ReadStatusOfC1(status));
    EXPECT_TRUE(log.Contains(L"SQLException:"));
    EXPECT_FALSE(ReadStatusOfC1(status));
    testing_support::StartServer();
    // Unlike at start-up, the driver reconnects by itself on the next statement.
    status = -1;
    EXPECT_TRUE(ReadStatusOfC1(status));
    EXPECT_EQ(4, status);
    int changed = 6;
    EXPECT_TRUE(store->AddParameter(TICKET_JDFTICKET, L"C1", PARAM_WSTRING, "JDFTICKET.STATUS", &changed, PARAM_INT));
    EXPECT_EQ("6", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID='C1'"));
}

}  // namespace
