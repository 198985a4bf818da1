// Job sender pairs: in-memory set, write-through to ./QueryURL, reload.
#include <ZTTickets.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

using Lists = std::pair<std::vector<std::string>, std::vector<std::string>>;  // ZT/QUERYID, ZT/URL

// Opens ./QueryURL through the ticket library, applies use to the ticket and releases it.
template <typename Use> static void WithTicket(Use use) {
    const STICKET_ACCESS* ticket = CreateTicket("./QueryURL");
    ASSERT_NE(ticket, nullptr);
    use(*ticket);
    DestroyTicket(ticket);
}

static Lists ReadFile() {
    Lists lists;
    WithTicket([&](const STICKET_ACCESS& t) { t.GetVectorParameter("ZT/QUERYID", lists.first); });
    WithTicket([&](const STICKET_ACCESS& t) { t.GetVectorParameter("ZT/URL", lists.second); });
    return lists;
}

static std::wstring QueryIdFor(CJobSenderDataProvider& provider, const std::wstring& url) {
    CJobSenderData out;
    return provider.GetRecord(url, out) ? out.queryId : L"<none>";
}

// Pairs added by one provider (an equal pair once) are in the file and load into another; of two entries with one
// URL the lower query id is found first; DeleteRecord picks the entry by URL but the file entry by the caller's
// query id.
TEST(JobSenderTest, SavedPairsReload) {
    std::remove("./QueryURL");
    CJobSenderDataProvider writer;
    for (CJobSenderData data : {CJobSenderData(L"Q1", L"http://a/\u00e9"), CJobSenderData(L"Q2", L"http://b"),
                                CJobSenderData(L"Q2", L"http://b"), CJobSenderData(L"Q0", L"http://b")})
        writer.AddRecord(data);
    const Lists before = ReadFile();
    EXPECT_EQ(before, Lists({"Q1", "Q2", "Q0"}, {"http://a/\xC3\xA9", "http://b", "http://b"}));

    CJobSenderDataProvider reader;
    CJobSenderData out, stranger(L"QX", L"http://b");
    EXPECT_TRUE(reader.GetRecordByQueryId(L"Q1", out) && out.url == L"http://a/\u00e9");
    EXPECT_EQ(QueryIdFor(reader, L"http://b"), L"Q0");
    EXPECT_TRUE(reader.DeleteRecord(stranger));
    EXPECT_EQ(ReadFile(), before);
    EXPECT_EQ(QueryIdFor(reader, L"http://b"), L"Q2");
}

// Without the ticket library only the first line is logged (nothing is read) and the file stays as it was, while
// the set still works in memory. With it, pairs load up to the shorter list ("Got" counts the query ids) and equal
// pairs load once: a second delete of the pair finds nothing.
TEST(JobSenderTest, LoadWithAndWithoutTicketLibrary) {
    std::remove("./QueryURL");
    WithTicket([](const STICKET_ACCESS& t) {
        for (const char* id : {"Q1", "Q2", "Q1", "Q3"}) t.AddParameter("ZT/QUERYID", id);
        for (const char* url : {"http://1", "http://2", "http://1"}) t.AddParameter("ZT/URL", url);
    });
    const STICKET_INSTANCE* saved = hSTicketInstance;
    hSTicketInstance = nullptr;
    testing_support::LogCapture log;
    CJobSenderDataProvider detached;
    CJobSenderData data(L"Q9", L"http://9");
    detached.AddRecord(data);
    EXPECT_TRUE(detached.DeleteRecord(data));
    hSTicketInstance = saved;
    EXPECT_EQ(ReadFile(), Lists({"Q1", "Q2", "Q1", "Q3"}, {"http://1", "http://2", "http://1"}));

    CJobSenderDataProvider provider;
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{L"Initializing Sender Data Set", L"Initializing Sender Data Set", L"Got 4 Records"}));
    CJobSenderData out, first(L"Q1", L"http://1");
    EXPECT_FALSE(provider.GetRecordByQueryId(L"Q3", out));
    EXPECT_TRUE(provider.DeleteRecord(first) && !provider.DeleteRecord(first));
}

// Adds and deletes from four threads under the one lock leave set and file in step, paired by position.
TEST(JobSenderTest, ConcurrentAddsAndDeletesKeepSetAndFileInStep) {
    std::remove("./QueryURL");
    CJobSenderDataProvider provider;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&provider, t] {
            for (int n = 50 * t; n < 50 * t + 50; ++n) {
                CJobSenderData data(L"Q" + std::to_wstring(n), L"http://" + std::to_wstring(n));
                provider.AddRecord(data);
                if (n % 2 == 0) provider.DeleteRecord(data);
            }
        });
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(100u, ReadFile().first.size());
    CJobSenderDataProvider reloaded;  // pairs by position: a pair split in the file would load wrongly
    for (int n = 0; n < 200; ++n) {
        const std::wstring url = L"http://" + std::to_wstring(n), expected = n % 2 ? L"Q" + std::to_wstring(n) : L"<none>";
        EXPECT_EQ(std::make_pair(QueryIdFor(provider, url), QueryIdFor(reloaded, url)), std::make_pair(expected, expected));
    }
}
