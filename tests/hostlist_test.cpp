// Several hosts in DBIPAddr, against the private server: a connect passes
// over hosts that do not answer, in list order, and logs each refusal as a
// single host's refusal is logged. (Moving on when a live server is lost is
// proven on a real cluster by cluster_test.)
#include <cppconn/resultset.h>
#include <gtest/gtest.h>

#include <memory>

#include "DatabaseConnection.h"
#include "TestSupport.h"

namespace {

const char* const kRefused = "tcp://127.0.0.1:1";  // nothing listens on port 1

TEST(HostList, HostsThatDoNotAnswerArePassedOverInOrder) {
    testing_support::LogCapture log;
    CDatabaseConnection connection(std::string(kRefused) + " , " + kRefused + ",," + testing_support::DbHost(),
                                   "lumbo27", "lumbo27");
    EXPECT_EQ(2u, log.Count(L"MySQL error code: 2002"));  // both refusals, then the server
    std::string query = "SELECT 7";
    const CDatabaseConnection::Outcome outcome = connection.Execute(query);
    std::unique_ptr<sql::ResultSet> rows(outcome.rows);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(0, outcome.error);
    EXPECT_EQ(7, rows->getInt(1));
}

TEST(HostList, NoHostAnswers) {
    testing_support::LogCapture log;
    CDatabaseConnection connection(std::string(kRefused) + "," + kRefused, "lumbo27", "lumbo27");
    EXPECT_EQ(2u, log.Count(L"SQLException in ../../src/DatabaseConnection"));
    std::string query = "SELECT 7";
    const CDatabaseConnection::Outcome outcome = connection.Execute(query);
    EXPECT_TRUE(outcome.rows == nullptr && outcome.error == -1);
    EXPECT_TRUE(log.Contains(L"CDatabaseConnection::ExecuteSqlQuery : Database connection could not be reestablished."));
}

}  // namespace
