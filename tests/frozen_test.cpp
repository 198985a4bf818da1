// A server that stops answering without closing its sockets (SIGSTOP, as a
// frozen process or a host swapping would): with ReadTimeout and
// ConnectTimeout set low, the call in flight and every call made while the
// server is frozen answer false within the bound, the process starts no
// thread and the server is left with no more connections than the pool's;
// once the server is resumed, the next call of each thread succeeds.
// CTest runs it with 1 and 4 connections, in both profiles.
#include <ConfigurationControl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "CDataAccessProvider.h"
#include "TestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

const int kReadTimeout = 2;
const int kConnectTimeout = 2;
// The longest a call may take on a frozen server: the statement's read
// timeout, or a rest of the lost host followed by the connector's reconnect,
// which waits for the server's greeting up to the connect timeout; one
// second more for a slow (sanitized) build.
const auto kBound = std::chrono::milliseconds((kReadTimeout + kConnectTimeout + 1) * 1000 + 500);

struct Call {
    Clock::time_point start, end;
    bool ok;
};

// Each thread reads one status every 250 ms, as a host polling a queue would.
void Poll(std::vector<Call>& calls, const std::atomic<bool>& stop) {
    ITicketDataProvider* tickets = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    while (!stop) {
        int status = -1;
        const Clock::time_point start = Clock::now();
        const bool ok = tickets->GetTicketStatus(L"F1", status) && status == 7;
        calls.push_back({start, Clock::now(), ok});
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
}

long ServerConnections(testing_support::RawDb& db) {
    return std::stol(db.Scalar("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE USER = 'lumbo27'"));
}

TEST(FrozenServer, CallsAnswerFalseWithinTheBoundAndSucceedOnceResumed) {
    ConfigurationControl::SetReadTimeout(kReadTimeout);
    ConfigurationControl::SetConnectTimeout(kConnectTimeout);
    testing_support::Watchdog watchdog(90);
    {
        testing_support::RawDb db;
        db.Reset({"JDFTICKET"});
        db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATUS) VALUES ('F1', 7)");
    }
    CDataAccessProvider::GetInstance();  // the first call is not synchronised: made before the threads start
    const int connections = std::max(1, ConfigurationControl::GetConnections());
    const int threadsBefore = testing_support::ThreadCount();

    // One polling thread per connection: none waits for another's lease.
    std::vector<std::vector<Call>> calls(connections);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < connections; ++t) threads.emplace_back(Poll, std::ref(calls[t]), std::cref(stop));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const Clock::time_point freezing = Clock::now();
    Clock::time_point frozen, resumed;
    {
        testing_support::Freeze freeze(testing_support::ServerPid(testing_support::DbDir()), 30);
        frozen = Clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(5));
        resumed = Clock::now();
    }
    std::this_thread::sleep_for(kBound + std::chrono::seconds(1));
    stop = true;
    for (std::thread& thread : threads) thread.join();

    Clock::duration longest{};
    for (int t = 0; t < connections; ++t) {
        int before = 0, during = 0, after = 0;
        bool firstAfter = true;
        for (const Call& call : calls[t]) {
            if (call.end < freezing) {
                EXPECT_TRUE(call.ok) << "thread " << t << ": a call failed before the freeze";
                ++before;
            } else if (call.start < resumed) {
                // In flight at the freeze (its answer may have come just
                // before it), or made during it: such a call succeeds only if
                // it reached the server after its resumption.
                EXPECT_TRUE(!call.ok || call.start < frozen || call.end > resumed)
                    << "thread " << t << ": a call succeeded while frozen";
                EXPECT_LE(call.end - call.start, kBound) << "thread " << t << ": a call waited too long";
                longest = std::max(longest, call.end - call.start);
                ++during;
            } else if (call.start >= resumed) {
                EXPECT_TRUE(call.ok || !firstAfter) << "thread " << t << ": the first call after the resumption failed";
                firstAfter = false;
                ++after;
            }
        }
        EXPECT_TRUE(before > 0 && during >= 2 && after > 0) << before << " " << during << " " << after;
    }
    std::printf("frozen server, %d connection(s): the longest call took %lld ms (bound %lld ms)\n", connections,
                static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(longest).count()),
                static_cast<long long>(kBound.count()));

    // No pile-up: the library started no thread, and once the connections
    // that timed out while waiting in the server's queue are dropped, the
    // server holds the pool's connections and this test's own.
    EXPECT_EQ(threadsBefore, testing_support::ThreadCount());
    testing_support::RawDb db;
    long open = ServerConnections(db);
    for (int ms = 0; open > connections + 1 && ms < 5000; ms += 100) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        open = ServerConnections(db);
    }
    EXPECT_LE(open, connections + 1);
}

}  // namespace
