// Prepared statements over a long run (safe profile, four connections):
// 10,000 calls with varied column sets keep the server's count of prepared
// statements within the connections' caches, and a server restart half-way,
// between calls, loses none of them; every connection's session is set up
// again afterwards.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "CDataAccessProvider.h"
#include "DatabaseConnection.h"
#include "ITicketDataProvider.h"
#include "TestSupport.h"
#include "TicketTableRecord.h"
#include "private/ConnectionAccess.h"
#include "private/PreparedCache.h"

namespace {

const int kThreads = 4;
const int kCallsPerThread = 2500;
const char* const kPinnedMode = "STRICT_TRANS_TABLES,ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION";

int PreparedOnServer(testing_support::RawDb& db) {
    return std::stoi(db.Scalar("SELECT VARIABLE_VALUE FROM information_schema.GLOBAL_STATUS "
                               "WHERE VARIABLE_NAME = 'PREPARED_STMT_COUNT'"));
}

// The record of call `n`: a different subset of nine columns set each time.
TicketTableRecord Varied(int n) {
    TicketTableRecord rec;
    const unsigned bits = (static_cast<unsigned>(n) * 2654435761u) >> 23;
    const std::wstring text = L"v" + std::to_wstring(n);
    std::wstring* texts[] = {&rec.statusMsg, &rec.jobId, &rec.jobPartId, &rec.holdDevId,
                             &rec.senderId,  &rec.uploadUrl, &rec.jmfRetUrl};
    for (int i = 0; i < 7; ++i)
        if (bits & (1u << i)) *texts[i] = text;
    if (bits & 0x80) rec.status = n % 100;
    rec.state = n % 7;  // at least one column every time
    return rec;
}

TEST(StatementLifecycle, TenThousandCallsStayWithinTheCachesAndARestartLosesNone) {
    ASSERT_TRUE(testing_support::Safe());
    testing_support::Watchdog watchdog(300);
    testing_support::RawDb db;
    db.Reset({"JDFTICKET"});
    ITicketDataProvider* tickets = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    for (int t = 0; t < kThreads; ++t)
        db.Exec("INSERT INTO JDFTICKET(QENTRYID) VALUES('L" + std::to_string(t) + "')");
    const int bound = kThreads * static_cast<int>(kPreparedPerConnection);

    std::atomic<int> failed{0}, failedAfterRestart{0}, paused{0}, highest{0};
    std::atomic<bool> pause{false}, restarted{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::wstring key = L"L" + std::to_wstring(t);
            for (int n = 0; n < kCallsPerThread; ++n) {
                if (n == kCallsPerThread / 2) {  // half-way: wait while the server restarts
                    ++paused;
                    while (pause || !restarted) std::this_thread::yield();
                }
                const TicketTableRecord rec = Varied(t * kCallsPerThread + n);
                int state = -1;
                const bool ok = n % 2 ? tickets->GetJDFState(key, state) && state >= 0
                                      : tickets->UpdateTicketRecord(key, rec);
                if (!ok) ++(restarted ? failedAfterRestart : failed);
            }
        });
    }
    pause = true;
    while (paused < kThreads) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    highest = PreparedOnServer(db);
    testing_support::KillServer();
    testing_support::StartServer();
    restarted = true;
    pause = false;
    // The count while the second half runs.
    for (int i = 0; i < 20 && paused == kThreads; ++i) {
        highest = std::max(highest.load(), PreparedOnServer(db));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (std::thread& thread : threads) thread.join();
    highest = std::max(highest.load(), PreparedOnServer(db));

    std::printf("figure: prepared statements on the server at most %d (bound %d); calls failed %d before, %d after "
                "the restart\n", highest.load(), bound, failed.load(), failedAfterRestart.load());
    EXPECT_LE(highest, bound);
    EXPECT_GT(highest, 0);
    EXPECT_EQ(0, failed);
    EXPECT_EQ(0, failedAfterRestart);
    // Every connection's session is the pinned one again.
    std::vector<std::string> modes(kThreads);
    std::atomic<int> pinned{0};
    std::vector<std::thread> pins;
    for (int t = 0; t < kThreads; ++t) {
        pins.emplace_back([&, t] {
            ConnectionPin pin(CDatabaseConnection::m_hInstance);
            ++pinned;
            while (pinned < kThreads) std::this_thread::yield();
            Statement mode;
            mode.text = "SELECT @@SESSION.sql_mode";
            mode.bound = true;
            Outcome outcome = ConnectionAccess::Run(*CDatabaseConnection::m_hInstance, mode);
            modes[t] = outcome.rows && outcome.rows->next() ? std::string(outcome.rows->getString(1)) : "none";
        });
    }
    for (std::thread& thread : pins) thread.join();
    for (const std::string& mode : modes) EXPECT_EQ(kPinnedMode, mode);
}

}  // namespace
