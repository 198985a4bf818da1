// Job sender pairs: in-memory set, write-through to ./QueryURL, reload.
#include <StringUtils.h>
#include <ZTTickets.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

namespace {

struct FileLists {
    std::vector<std::string> ids, urls;
};

FileLists ReadFile() {
    FileLists lists;
    const STICKET_ACCESS* ticket = CreateTicket("./QueryURL");
    EXPECT_NE(ticket, nullptr);
    if (!ticket) return lists;
    ticket->GetVectorParameter("ZT/QUERYID", lists.ids);
    ticket->GetVectorParameter("ZT/URL", lists.urls);
    DestroyTicket(ticket);
    return lists;
}

void WriteFile(std::initializer_list<const char*> ids, std::initializer_list<const char*> urls) {
    std::remove("./QueryURL");
    const STICKET_ACCESS* ticket = CreateTicket("./QueryURL");
    ASSERT_NE(ticket, nullptr);
    for (const char* id : ids) ticket->AddParameter("ZT/QUERYID", id);
    for (const char* url : urls) ticket->AddParameter("ZT/URL", url);
    DestroyTicket(ticket);
}

std::string Bytes() {
    std::ifstream in("./QueryURL", std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::wstring QueryIdFor(CJobSenderDataProvider& provider, const std::wstring& url) {
    CJobSenderData out;
    return provider.GetRecord(url, out) ? out.queryId : L"<none>";
}

class JobSenderTest : public ::testing::Test {
protected:
    void SetUp() override { std::remove("./QueryURL"); }
};

}  // namespace

TEST_F(JobSenderTest, SavedPairsReloadInAnotherProcess) {
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        CJobSenderDataProvider writer;
        CJobSenderData a(L"Q1", L"http://a/\u00e9"), b(L"Q2", L"http://b");
        writer.AddRecord(a);
        writer.AddRecord(b);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    testing_support::LogCapture log;
    CJobSenderDataProvider reader;
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{L"Initializing Sender Data Set", L"Got 2 Records"}));
    CJobSenderData out;
    ASSERT_TRUE(reader.GetRecordByQueryId(L"Q1", out));
    EXPECT_EQ(out.url, L"http://a/\u00e9");
    EXPECT_EQ(QueryIdFor(reader, L"http://b"), L"Q2");
    EXPECT_FALSE(reader.GetRecordByQueryId(L"Q3", out));
}

TEST_F(JobSenderTest, DuplicatesAndDeleteByUrl) {
    CJobSenderDataProvider provider;
    CJobSenderData same(L"Q1", L"http://u");
    provider.AddRecord(same);
    provider.AddRecord(same);
    EXPECT_EQ(ReadFile().ids, std::vector<std::string>{"Q1"});

    CJobSenderData other(L"Q0", L"http://u");
    provider.AddRecord(other);
    EXPECT_EQ(QueryIdFor(provider, L"http://u"), L"Q0");  // same URL: the lower query id first

    // The entry is chosen by URL; the file entry by the caller's (absent) query id.
    const std::string before = Bytes();
    CJobSenderData stranger(L"QX", L"http://u");
    EXPECT_TRUE(provider.DeleteRecord(stranger));
    EXPECT_EQ(Bytes(), before);
    EXPECT_EQ(QueryIdFor(provider, L"http://u"), L"Q1");
    CJobSenderData none(L"Q1", L"http://nowhere");
    EXPECT_FALSE(provider.DeleteRecord(none));
}

TEST_F(JobSenderTest, LoadPairsUpToShorterListAndKeepsOneOfEqualPairs) {
    WriteFile({"Q1", "Q2", "Q1", "Q3"}, {"http://1", "http://2", "http://1"});
    testing_support::LogCapture log;
    CJobSenderDataProvider provider;
    EXPECT_TRUE(log.Contains(L"Got 4 Records"));
    CJobSenderData out;
    EXPECT_FALSE(provider.GetRecordByQueryId(L"Q3", out));
    CJobSenderData first(L"Q1", L"http://1");
    EXPECT_TRUE(provider.DeleteRecord(first));  // one entry only for the doubled pair
    EXPECT_EQ(QueryIdFor(provider, L"http://1"), L"<none>");
    EXPECT_EQ(QueryIdFor(provider, L"http://2"), L"Q2");
}

TEST_F(JobSenderTest, WithoutTicketLibrary) {
    WriteFile({"Q1"}, {"http://1"});
    const STICKET_INSTANCE* saved = hSTicketInstance;
    hSTicketInstance = nullptr;
    {
        testing_support::LogCapture log;
        CJobSenderDataProvider provider;
        EXPECT_EQ(log.Lines(), std::vector<std::wstring>{L"Initializing Sender Data Set"});
        EXPECT_EQ(QueryIdFor(provider, L"http://1"), L"<none>");
        CJobSenderData data(L"Q2", L"http://2");
        provider.AddRecord(data);
        EXPECT_EQ(QueryIdFor(provider, L"http://2"), L"Q2");
        EXPECT_FALSE(provider.SaveSenderDataSet(L"Q2", L"http://2", false));
        EXPECT_TRUE(provider.DeleteRecord(data));
    }
    hSTicketInstance = saved;
    EXPECT_EQ(ReadFile().ids, std::vector<std::string>{"Q1"});
}

TEST_F(JobSenderTest, ConcurrentAddsAndDeletesKeepSetAndFileInStep) {
    CJobSenderDataProvider provider;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&provider, t] {
            for (int i = 0; i < 50; ++i) {
                CJobSenderData data(L"Q" + std::to_wstring(t * 50 + i), L"http://" + std::to_wstring(t * 50 + i));
                provider.AddRecord(data);
                if (i % 2 == 0) provider.DeleteRecord(data);
            }
        });
    }
    for (auto& thread : threads) thread.join();

    const FileLists file = ReadFile();
    ASSERT_EQ(file.ids.size(), 100u);
    ASSERT_EQ(file.urls.size(), 100u);
    for (size_t i = 0; i < file.ids.size(); ++i)
        EXPECT_EQ("http://" + file.ids[i].substr(1), file.urls[i]);  // still paired by position
    CJobSenderDataProvider reloaded;
    for (int n = 0; n < 200; ++n) {
        const std::wstring url = L"http://" + std::to_wstring(n);
        const std::wstring expected = n % 2 ? L"Q" + std::to_wstring(n) : L"<none>";
        EXPECT_EQ(QueryIdFor(provider, url), expected);
        EXPECT_EQ(QueryIdFor(reloaded, url), expected);
    }
}
