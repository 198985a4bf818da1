// Tests of the host platform libraries: logger, configuration, string
// conversion and ticket files.
#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <ZTTickets.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A fresh directory, removed with its files afterwards.
class TempDir {
public:
    TempDir() {
        char name[] = "/tmp/norva-platform-XXXXXX";
        path_ = ::mkdtemp(name);
    }
    ~TempDir() {
        for (const std::string& entry : Entries()) ::unlink((path_ + "/" + entry).c_str());
        ::rmdir(path_.c_str());
    }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        if (DIR* dir = ::opendir(path_.c_str())) {
            while (dirent* entry = ::readdir(dir)) {
                if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") names.push_back(entry->d_name);
            }
            ::closedir(dir);
        }
        return names;
    }

private:
    std::string path_;
};

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteAll(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Restores the process configuration after a test has loaded files of its own.
class ConfigTest : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = "DBIPAddr = " + StringUtils::stringFromwstring(ConfigurationControl::GetDBIPAddr()) + "\n" +
                 "IDPattern = " + (ConfigurationControl::GetIDPattern() ? "1" : "0") + "\n" +
                 "LogLevel = " + std::to_string(ConfigurationControl::GetLogLevel()) + "\n" +
                 "LogFile = " + ConfigurationControl::GetLogFile() + "\n";
    }
    void TearDown() override {
        WriteAll(dir_.File("restore.conf"), saved_);
        ASSERT_TRUE(ConfigurationControl::Load(dir_.File("restore.conf")));
    }
    TempDir dir_;
    std::string saved_;
};

// Captures logged lines through the sink at a chosen threshold.
class LoggerTest : public ConfigTest {
protected:
    void SetUp() override {
        ConfigTest::SetUp();
        logger_ = Logger::Initialise();
        oldLevel_ = logger_->GetLevel();
        logger_->SetLevel(5);
        logger_->SetSink([this](LOG_CONST, const std::wstring& line) { lines_.push_back(line); });
    }
    void TearDown() override {
        logger_->SetSink(nullptr);
        logger_->SetLevel(oldLevel_);
        ConfigTest::TearDown();
    }
    std::wstring Last() const { return lines_.empty() ? L"<nothing>" : lines_.back(); }

    Logger* logger_ = nullptr;
    int oldLevel_ = 0;
    std::vector<std::wstring> lines_;  // the sink runs under the logger's lock
};

}  // namespace

// ---- logger ----

TEST_F(LoggerTest, ThresholdDropsLinesBeforeFormatting) {
    EXPECT_EQ(Logger::Initialise(), logger_);
    logger_->SetLevel(3);
    EXPECT_EQ(logger_->GetLevel(), 3);
    // A dropped line must not look at its arguments: this pointer would fault.
    logger_->log(LOG_LEVEL_5, L"%s", reinterpret_cast<const char*>(std::uintptr_t{16}));
    EXPECT_TRUE(lines_.empty());
    logger_->log(LOG_LEVEL_3, L"at threshold");
    logger_->log(LOG_LEVEL_0, L"below");
    EXPECT_EQ(lines_, (std::vector<std::wstring>{L"at threshold", L"below"}));
}

TEST_F(LoggerTest, FormatsConversionsExactly) {
    const auto line = [this](const std::wstring& expected) { EXPECT_EQ(Last(), expected); };
    logger_->log(LOG_LEVEL_5, L"Got %d Records", 42);                   line(L"Got 42 Records");
    logger_->log(LOG_LEVEL_5, L"[%5d|%-5d|%05d|%+d]", 7, 7, 7, 7);       line(L"[    7|7    |00007|+7]");
    logger_->log(LOG_LEVEL_5, L"%ld %lld %u %x %X", -5L, LLONG_MIN, 4000000000u, 255, 255);
    line(L"-5 -9223372036854775808 4000000000 ff FF");
    logger_->log(LOG_LEVEL_5, L"%.2f %g %c%lc %%", 3.14159, 0.5, 'A', static_cast<wint_t>(0x20AC));
    line(L"3.14 0.5 A\u20AC %");
    logger_->log(LOG_LEVEL_5, L"%*d|%-*d|%.*s", 4, 1, -3, 2, 2, "abcdef"); line(L"   1|2  |ab");
    logger_->log(LOG_LEVEL_5, L"%s and %ls", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", L"wide \u00E9");
    line(L"caf\u00E9 \u20AC \U0001F600 and wide \u00E9");
    logger_->log(LOG_LEVEL_5, L"<%s>", "a\xFF" "b\xC0\xAF" "c\xE2\x82");   line(L"<a\uFFFDb\uFFFD\uFFFDc\uFFFD>");
    logger_->log(LOG_LEVEL_5, L"%s %ls %6s|", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr), "ab");
    line(L"(null) (null)     ab|");
    // Unknown conversions are copied and take no argument; a lone '%' at the end stays.
    logger_->log(LOG_LEVEL_5, L"%q %n %Ld %d %", 9);                     line(L"%q %n %Ld 9 %");
    logger_->log(LOG_LEVEL_5, nullptr);                                  line(L"(null)");
}

TEST_F(LoggerTest, ConcurrentLinesStayWhole) {
    constexpr int kThreads = 4, kLines = 200;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    logger_->SetSink([&](LOG_CONST, const std::wstring& line) {
        if (inside.fetch_add(1) != 0) overlapped = true;
        lines_.push_back(line);
        std::this_thread::yield();
        inside.fetch_sub(1);
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kLines; ++i) logger_->log(LOG_LEVEL_5, L"thread %d line %d %s", t, i, "\xC3\xA9\xC3\xA9\xC3\xA9");
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(lines_.size(), static_cast<size_t>(kThreads * kLines));
    std::set<std::wstring> distinct(lines_.begin(), lines_.end());
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kLines; ++i) {
            EXPECT_EQ(distinct.count(L"thread " + std::to_wstring(t) + L" line " + std::to_wstring(i) + L" \u00E9\u00E9\u00E9"), 1u);
        }
    }
}

TEST_F(LoggerTest, DefaultDestinationAppendsUtf8LinesToLogFile) {
    const std::string logFile = dir_.File("norva.log");
    WriteAll(logFile, "earlier\n");
    WriteAll(dir_.File("log.conf"), "LogFile = " + logFile + "\n");
    ASSERT_TRUE(ConfigurationControl::Load(dir_.File("log.conf")));
    logger_->SetSink(nullptr);
    logger_->log(LOG_LEVEL_1, L"caf%s %d", "\xC3\xA9", 1);
    logger_->log(LOG_LEVEL_9, L"dropped");
    logger_->log(LOG_LEVEL_2, L"%ls", L"\U0001F600");
    EXPECT_EQ(ReadAll(logFile), "earlier\ncaf\xC3\xA9 1\n\xF0\x9F\x98\x80\n");
}

// ---- configuration ----

TEST_F(ConfigTest, ReadsKeysAndReportsLinesItCannotUnderstand) {
    WriteAll(dir_.File("a.conf"),
             "# database\n"
             "  DBIPAddr =  unix:///run/mysqld.sock   # local socket\n"
             "\n"
             "IDPattern=true\n"
             "LogLevel = 7\n"
             "LogFile = /var/log/norva.log\n"
             "this line has no equals sign\n"
             "Colour = blue\n"
             "IDPattern = maybe\n"
             "LogLevel = 5x\n");
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(ConfigurationControl::Load(dir_.File("a.conf")));
    const std::string complaints = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(ConfigurationControl::GetDBIPAddr(), L"unix:///run/mysqld.sock");
    EXPECT_TRUE(ConfigurationControl::GetIDPattern());
    EXPECT_EQ(ConfigurationControl::GetLogLevel(), 7);
    EXPECT_EQ(ConfigurationControl::GetLogFile(), "/var/log/norva.log");
    for (const char* where : {"a.conf:7:", "a.conf:8:", "a.conf:9:", "a.conf:10:"}) {
        EXPECT_NE(complaints.find(where), std::string::npos) << where << " in " << complaints;
    }
    EXPECT_EQ(complaints.find("a.conf:4:"), std::string::npos);
}

TEST_F(ConfigTest, LoadStartsFromDefaultsAndUnreadableFileChangesNothing) {
    WriteAll(dir_.File("a.conf"), "IDPattern = 1\nDBIPAddr = 10.0.0.1\nLogLevel = 9\n");
    ASSERT_TRUE(ConfigurationControl::Load(dir_.File("a.conf")));
    EXPECT_FALSE(ConfigurationControl::Load(dir_.File("missing.conf")));
    EXPECT_FALSE(ConfigurationControl::Load(dir_.File("")));  // a directory
    EXPECT_EQ(ConfigurationControl::GetDBIPAddr(), L"10.0.0.1");

    WriteAll(dir_.File("b.conf"), "# nothing set\n");
    ASSERT_TRUE(ConfigurationControl::Load(dir_.File("b.conf")));
    EXPECT_EQ(ConfigurationControl::GetDBIPAddr(), L"tcp://127.0.0.1:3306");
    EXPECT_FALSE(ConfigurationControl::GetIDPattern());
    EXPECT_EQ(ConfigurationControl::GetLogLevel(), 3);
    EXPECT_EQ(ConfigurationControl::GetLogFile(), "");
}

TEST_F(ConfigTest, SettersOverrideUntilNextLoad) {
    ConfigurationControl::SetDBIPAddr(L"tcp://db.example:13306");
    ConfigurationControl::SetIDPattern(true);
    EXPECT_EQ(ConfigurationControl::GetDBIPAddr(), L"tcp://db.example:13306");
    EXPECT_TRUE(ConfigurationControl::GetIDPattern());
    ConfigurationControl::SetIDPattern(false);
    EXPECT_FALSE(ConfigurationControl::GetIDPattern());
}

// ---- string conversion ----

TEST(StringUtilsTest, RoundTripsEveryEncodedLength) {
    const std::wstring wide = L"plain ASCII text longer than eight bytes \u00E9\u07FF\u0800\u20AC\uFFFD\U00010000\U0001F600\U0010FFFF end";
    const std::string utf8 = StringUtils::UTF8FromUni(wide);
    EXPECT_EQ(utf8.substr(41), "\xC3\xA9\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBD\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF end");
    EXPECT_EQ(StringUtils::wstringFromstring(utf8), wide);
    EXPECT_EQ(StringUtils::stringFromwstring(wide), utf8);
    EXPECT_EQ(StringUtils::wstringFromstring(""), L"");

    std::wstring big;
    for (int i = 0; i < 100000; ++i) big += (i % 37 == 0) ? L'\u00E9' : static_cast<wchar_t>(L'a' + i % 26);
    EXPECT_EQ(StringUtils::wstringFromstring(StringUtils::UTF8FromUni(big)), big);
}

TEST(StringUtilsTest, MalformedInputBecomesReplacementCharacter) {
    const struct { const char* utf8; const wchar_t* wide; } cases[] = {
        {"\x80x", L"\uFFFDx"},                       // stray continuation byte
        {"\xC0\xAF", L"\uFFFD\uFFFD"},               // overlong '/'
        {"\xE0\x80\xAF", L"\uFFFD\uFFFD\uFFFD"},     // overlong, three bytes
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},     // encoded surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
        {"\xE2\x82" "A", L"\uFFFDA"},                // truncated sequence
        {"12345678\xF0\x9F\x98", L"12345678\uFFFD"}, // truncated at the end, after a fast-path block
        {"\xFE\xFF", L"\uFFFD\uFFFD"},
    };
    for (const auto& c : cases) EXPECT_EQ(StringUtils::wstringFromstring(c.utf8), c.wide) << c.utf8;

    const std::wstring bad = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDFFF),
                              static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1), L'b'};
    EXPECT_EQ(StringUtils::UTF8FromUni(bad), "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD" "b");
}

// ---- ticket files ----

namespace {

class TicketTest : public ::testing::Test {
protected:
    // Opens path, applies change to the ticket, and releases it.
    template <typename Change>
    void Edit(const std::string& path, Change change) {
        const STICKET_ACCESS* ticket = CreateTicket(path.c_str());
        ASSERT_NE(ticket, nullptr) << hSTicketInstance->LastError();
        change(*ticket);
        DestroyTicket(ticket);
    }
    std::vector<std::string> Values(const std::string& path, const char* name) {
        std::vector<std::string> values;
        Edit(path, [&](const STICKET_ACCESS& t) { t.GetVectorParameter(name, values); });
        return values;
    }

    TempDir dir_;
    std::string path_ = dir_.File("QueryURL");
};

}  // namespace

TEST_F(TicketTest, AwkwardValuesSurviveInOrder) {
    const std::vector<std::string> values = {
        "", "say \"hi\"", "C:\\dir\\", "two\nlines\r\n", "\ttab \x01\x1F\x7F", "caf\xC3\xA9 \xF0\x9F\x98\x80",
        "  padded  ", "# not a comment", "end", "value \"x\"", "\\x41", "say \"hi\""};
    Edit(path_, [&](const STICKET_ACCESS& t) {
        for (const std::string& value : values) EXPECT_TRUE(t.AddParameter("ZT/QUERYID", value.c_str()));
        EXPECT_TRUE(t.AddParameter("ZT/URL", "http://sender/jmf"));
    });
    EXPECT_EQ(ReadAll(path_).rfind("ZTTicket 1\n", 0), 0u);
    EXPECT_EQ(Values(path_, "ZT/QUERYID"), values);
    Edit(path_, [&](const STICKET_ACCESS& t) {
        std::string value;
        EXPECT_TRUE(t.GetParameter("ZT/QUERYID", value, 3));
        EXPECT_EQ(value, values[3]);
        EXPECT_FALSE(t.GetParameter("ZT/QUERYID", value, static_cast<int>(values.size())));
        EXPECT_FALSE(t.GetParameter("ZT/QUERYID", value, -1));
        EXPECT_EQ(t.FindParameterPosition("ZT/QUERYID", "say \"hi\""), 1);
        EXPECT_EQ(t.FindParameterPosition("ZT/QUERYID", ""), 0);
        EXPECT_EQ(t.FindParameterPosition("ZT/QUERYID", "absent"), -1);
        EXPECT_EQ(t.FindParameterPosition("ZT/NONE", ""), -1);
        std::vector<std::string> none = {"stale"};
        EXPECT_FALSE(t.GetVectorParameter("ZT/NONE", none));
        EXPECT_TRUE(none.empty());
    });
    EXPECT_EQ(Values(path_, "ZT/URL"), std::vector<std::string>{"http://sender/jmf"});
}

TEST_F(TicketTest, RemovesByIndexAndRejectsBadOperations) {
    Edit(path_, [](const STICKET_ACCESS& t) {
        for (const char* v : {"a", "b", "c"}) t.AddParameter("ZT/URL", v);
    });
    Edit(path_, [](const STICKET_ACCESS& t) {
        EXPECT_TRUE(t.DelParameter("ZT/URL", 1));
        EXPECT_FALSE(t.DelParameter("ZT/URL", 2));
        EXPECT_FALSE(t.DelParameter("ZT/URL", -1));
        EXPECT_FALSE(t.DelParameter("ZT/NONE", 0));
        EXPECT_FALSE(hSTicketInstance->Modify(t.NativeHandle(), "ZT/URL", 7, "x", 0));
        EXPECT_STRNE(hSTicketInstance->LastError(), "");
        EXPECT_FALSE(t.AddParameter("ZT/URL", nullptr));
    });
    EXPECT_EQ(Values(path_, "ZT/URL"), (std::vector<std::string>{"a", "c"}));
    Edit(path_, [](const STICKET_ACCESS& t) {
        EXPECT_TRUE(t.DelParameter("ZT/URL", 0));
        EXPECT_TRUE(t.DelParameter("ZT/URL", 0));
    });
    std::vector<std::string> values;  // an emptied parameter still exists
    Edit(path_, [&](const STICKET_ACCESS& t) { EXPECT_TRUE(t.GetVectorParameter("ZT/URL", values)); });
    EXPECT_TRUE(values.empty());
}

TEST_F(TicketTest, ReleaseWritesOnlyAfterAChange) {
    std::vector<std::string> values;
    Edit(path_, [&](const STICKET_ACCESS& t) { EXPECT_FALSE(t.GetVectorParameter("ZT/URL", values)); });
    EXPECT_TRUE(dir_.Entries().empty());  // a missing file opens empty and is not created

    Edit(path_, [](const STICKET_ACCESS& t) { t.AddParameter("ZT/URL", "u"); });
    struct stat before, after;
    ASSERT_EQ(::stat(path_.c_str(), &before), 0);
    Edit(path_, [](const STICKET_ACCESS&) {});
    ASSERT_EQ(::stat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);  // not replaced
    EXPECT_EQ(dir_.Entries(), std::vector<std::string>{"QueryURL"});
    DestroyTicket(nullptr);
}

TEST_F(TicketTest, UnparsableFileIsRefusedAndLeftAlone) {
    const char* corrupt[] = {
        "",
        "garbage\n",
        "ZTTicket 2\nend\n",
        "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\"\n",  // no end line: cut short
        "ZTTicket 1\n  value \"a\"\nend\n",
        "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\\q\"\nend\n",
        "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\nend\n",
        "ZTTicket 1\nparam \"ZT/URL\"\nparam \"ZT/URL\"\nend\n",
        "ZTTicket 1\nend\nparam \"ZT/URL\"\n",
    };
    for (const char* content : corrupt) {
        WriteAll(path_, content);
        EXPECT_EQ(CreateTicket(path_.c_str()), nullptr) << content;
        EXPECT_STRNE(hSTicketInstance->LastError(), "") << content;
        EXPECT_EQ(ReadAll(path_), content);
    }
    EXPECT_EQ(CreateTicket(dir_.File("").c_str()), nullptr);  // a directory
}

TEST_F(TicketTest, NoLibraryInstanceMeansNoTicket) {
    const STICKET_INSTANCE* saved = hSTicketInstance;
    hSTicketInstance = nullptr;
    EXPECT_EQ(CreateTicket(path_.c_str()), nullptr);
    DestroyTicket(nullptr);
    hSTicketInstance = saved;
    EXPECT_EQ(hSTicketInstance->Version(), 1);
}

TEST_F(TicketTest, CrashBeforeRenameLeavesOldFileWhole) {
    Edit(path_, [](const STICKET_ACCESS& t) { t.AddParameter("ZT/URL", "old"); });
    const std::string old = ReadAll(path_);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ZTTicketsBeforeReplaceHook = [](const char*) { ::raise(SIGKILL); };
        const STICKET_ACCESS* ticket = CreateTicket(path_.c_str());
        if (ticket != nullptr) {
            ticket->DelParameter("ZT/URL", 0);
            ticket->AddParameter("ZT/URL", "new");
            DestroyTicket(ticket);
        }
        ::_exit(0);  // only reached if the hook did not run
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

    EXPECT_EQ(ReadAll(path_), old);
    EXPECT_EQ(Values(path_, "ZT/URL"), std::vector<std::string>{"old"});
    // The new content had been written completely, beside the ticket file.
    const std::vector<std::string> entries = dir_.Entries();
    ASSERT_EQ(entries.size(), 2u);
    const std::string temp = entries[0] == "QueryURL" ? entries[1] : entries[0];
    EXPECT_EQ(temp.rfind(".QueryURL.", 0), 0u);
    EXPECT_NE(ReadAll(dir_.File(temp)).find("\"new\""), std::string::npos);
}
