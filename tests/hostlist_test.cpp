// Several hosts in DBIPAddr, against the private server: a connect passes
// over hosts that do not answer, in list order, and logs each refusal as a
// single host's refusal is logged. (Moving on when a live server is lost is
// proven on a real cluster by cluster_test, and through relays by
// lost_answer_test.) The timeout keys as the connections read them.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "DatabaseConnection.h"
#include "private/ConnectionAccess.h"
#include "TestSupport.h"
#include "private/StoreSettings.h"

namespace {

const char* const kRefused = "tcp://127.0.0.1:1";  // nothing listens on port 1

// Connections, like the library's own, are never freed: they stay reachable here.
CDatabaseConnection* Connect(const std::string& hosts) {
    static auto* kept = new std::vector<CDatabaseConnection*>;  // never destroyed: a root for the leak check
    kept->push_back(new CDatabaseConnection(hosts, "lumbo27", "lumbo27"));
    return kept->back();
}

TEST(HostList, HostsThatDoNotAnswerArePassedOverInOrder) {
    testing_support::LogCapture log;
    CDatabaseConnection& connection =
        *Connect(std::string(kRefused) + " , " + kRefused + ",," + testing_support::DbHost());
    EXPECT_EQ(2u, log.Count(L"MySQL error code: 2002"));  // both refusals, then the server
    Statement query;
    query.text = "SELECT 7";
    Outcome outcome = ConnectionAccess::Run(connection, query);
    std::unique_ptr<sql::ResultSet> rows = std::move(outcome.rows);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(0, outcome.error);
    EXPECT_EQ(7, rows->getInt(1));
}

TEST(HostList, NoHostAnswers) {
    testing_support::LogCapture log;
    CDatabaseConnection& connection = *Connect(std::string(kRefused) + "," + kRefused);
    EXPECT_EQ(2u, log.Count(L"SQLException in ../../src/DatabaseConnection"));
    Statement query;
    query.text = "SELECT 7";
    const Outcome outcome = ConnectionAccess::Run(connection, query);
    EXPECT_TRUE(outcome.rows == nullptr && outcome.error == -1 && outcome.kind == ServerError::Lost);
    EXPECT_TRUE(
        log.Contains(L"CDatabaseConnection::ExecuteSqlQuery : Database connection could not be reestablished."));
}

// The timeouts: defaults when not set; a value that is not a whole number of
// seconds from 1 up is named as a problem, which stops the store.
TEST(Timeouts, DefaultsAndValuesThatCannotBeUnderstood) {
    const StoreSettings defaults = ReadStoreSettings();
    EXPECT_EQ(5, defaults.connectTimeout);
    EXPECT_EQ(20, defaults.readTimeout);
    EXPECT_EQ(20, defaults.writeTimeout);
    for (const char* bad : {"-3", "0", "ten", "5s"}) {
        ConfigurationControl::SetValue("WriteTimeout", bad);
        const StoreSettings settings = ReadStoreSettings();
        ASSERT_EQ(1u, settings.problems.size()) << bad;
        EXPECT_EQ(0u, settings.problems[0].find(std::string("WriteTimeout = \"") + bad + "\"")) << settings.problems[0];
    }
    ConfigurationControl::SetValue("WriteTimeout", "7");
    EXPECT_EQ(7, ReadStoreSettings().writeTimeout);
    ConfigurationControl::SetValue("WriteTimeout", "");
}

}  // namespace
