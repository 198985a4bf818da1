// Four connections (Connections = 4): a Pin keeps its thread's statements on
// one connection that no other thread uses meanwhile, and after the server
// is killed and started again every connection is opened again.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CMysqlDatabaseInterface.h"
#include "DatabaseConnection.h"
#include "private/ConnectionAccess.h"
#include "TestSupport.h"

namespace {

constexpr int kConnections = 4;

CDatabaseConnection* Connection() {
    static CDatabaseConnection* connection = [] {
        ConfigurationControl::SetConnections(kConnections);
        CMysqlDatabaseInterface::GetInstance();
        return CDatabaseConnection::m_hInstance;
    }();
    return connection;
}

// The first column of the statement's first row as text; "<failed>" when it gave none.
std::string First(const std::string& text) {
    std::string statement = text;
    std::unique_ptr<sql::ResultSet> rows(Connection()->ExecuteSqlQuery(statement));
    if (!rows || !rows->next()) return "<failed>";
    return rows->getString(1);
}

// Runs body on kConnections threads that each hold a Pin while all of them
// are inside it at once; returns what each body returned.
template <class Body>
std::vector<std::string> AllPinned(Body body) {
    std::atomic<int> pinned{0};
    std::vector<std::string> results(kConnections);
    std::vector<std::thread> threads;
    for (int t = 0; t < kConnections; ++t) {
        threads.emplace_back([&, t] {
            ConnectionPin pin(Connection());
            ++pinned;
            while (pinned < kConnections) std::this_thread::yield();
            results[t] = body(t);
        });
    }
    for (std::thread& thread : threads) thread.join();
    return results;
}

// A session variable set in one statement is there in the next; the pinned
// threads hold four different connections.
TEST(Pool, PinnedThreadsKeepTheirOwnConnection) {
    ASSERT_EQ(kConnections, ConnectionAccess::Size(*Connection()));
    const std::vector<std::string> ids = AllPinned([](int t) {
        const std::string id = First("SELECT CONNECTION_ID()");
        std::string set = "SET @pinned = " + std::to_string(t);
        delete Connection()->ExecuteSqlQuery(set);
        {
            ConnectionPin nested(Connection());  // nests: the same connection
            if (First("SELECT @pinned") != std::to_string(t)) return std::string("lost the session");
        }
        return First("SELECT CONNECTION_ID()") == id ? id : "moved to another connection";
    });
    EXPECT_EQ(kConnections, static_cast<int>(std::set<std::string>(ids.begin(), ids.end()).size()))
        << ids[0] << " " << ids[1] << " " << ids[2] << " " << ids[3];
}

// After the restart each connection's first statement fails and the driver
// reconnects; the next one runs. All four are open again at once.
TEST(Pool, EveryConnectionIsOpenedAgainAfterARestart) {
    testing_support::Watchdog watchdog;
    ASSERT_NE("<failed>", First("SELECT 1"));
    testing_support::KillServer();
    EXPECT_EQ("<failed>", First("SELECT 1"));
    testing_support::StartServer();
    const std::vector<std::string> ids = AllPinned([](int) {
        for (int attempt = 0; attempt < 3; ++attempt) {
            const std::string id = First("SELECT CONNECTION_ID()");
            if (id != "<failed>") return id;
        }
        return std::string("<failed>");
    });
    std::set<std::string> distinct(ids.begin(), ids.end());
    EXPECT_EQ(0u, distinct.count("<failed>"));
    EXPECT_EQ(static_cast<size_t>(kConnections), distinct.size());
    // The server sees exactly the library's four connections.
    testing_support::RawDb raw;
    EXPECT_EQ(std::to_string(kConnections),
              raw.Scalar("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE USER = 'lumbo27' AND ID <> "
                         "CONNECTION_ID()"));
}

}  // namespace
