// Tests of the host platform libraries: logger, configuration, string
// conversion and ticket files.
#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <ZTTickets.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>


namespace {

std::string ReadAll(const std::string& path) { std::ifstream in(path, std::ios::binary); return {std::istreambuf_iterator<char>(in), {}}; }
void WriteAll(const std::string& path, const std::string& content) { std::ofstream(path, std::ios::binary) << content; }

auto Config() {
    return std::make_tuple(ConfigurationControl::GetDBIPAddr(), ConfigurationControl::GetIDPattern(),
                           ConfigurationControl::GetLogLevel(), ConfigurationControl::GetLogFile());
}

// A fresh directory (removed afterwards) holding the ticket file; captures logged lines at threshold 5;
// restores the logger and the configuration afterwards.
class PlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto [address, pattern, level, file] = Config();
        saved_ = "DBIPAddr = " + StringUtils::stringFromwstring(address) + "\nIDPattern = " + std::to_string(pattern) +
                 "\nLogLevel = " + std::to_string(level) + "\nLogFile = " + file + "\n";
        logger_->SetLevel(5);
        logger_->SetSink([this](LOG_CONST, const std::wstring& line) { lines_.push_back(line); });
    }
    void TearDown() override {
        logger_->SetSink(nullptr);
        logger_->SetLevel(oldLevel_);
        WriteAll(File("restore.conf"), saved_);
        EXPECT_TRUE(ConfigurationControl::Load(File("restore.conf")));
        std::filesystem::remove_all(dir_);
    }
    std::string File(const std::string& name) const { return dir_ + "/" + name; }
    // Opens the ticket file, applies change to the ticket and releases it.
    template <typename Change> void Edit(Change change) {
        const STICKET_ACCESS* ticket = CreateTicket(path_.c_str());
        ASSERT_NE(ticket, nullptr) << hSTicketInstance->LastError();
        change(*ticket);
        DestroyTicket(ticket);
    }
    std::vector<std::string> Values(const char* name) {
        std::vector<std::string> values;
        Edit([&](const STICKET_ACCESS& t) { t.GetVectorParameter(name, values); });
        return values;
    }

    std::string dir_ = [] { char name[] = "/tmp/norva-platform-XXXXXX"; return std::string(::mkdtemp(name)); }();
    std::string path_ = File("QueryURL"), saved_;
    Logger* logger_ = Logger::Initialise();
    int oldLevel_ = logger_->GetLevel();
    std::vector<std::wstring> lines_;  // the sink runs under the logger's lock
};

}  // namespace

// printf-style rendering, exactly one line per call: flags, widths, broken UTF-8, null texts, unknown conversions.
TEST_F(PlatformTest, LoggerFormatsConversionsExactly) {
#define EXPECT_LOGGED(expected, ...) \
    lines_.clear(); logger_->log(LOG_LEVEL_5, __VA_ARGS__); EXPECT_EQ(lines_, std::vector<std::wstring>{expected})
    EXPECT_LOGGED(L"[    7|7    |00007|+7]   1|2  |ab", L"[%5d|%-5d|%05d|%+d]%*d|%-*d|%.*s", 7, 7, 7, 7, 4, 1, -3, 2, 2, "abc");
    EXPECT_LOGGED(L"-5 -9223372036854775808 4000000000 ff FF", L"%ld %lld %u %x %X", -5L, LLONG_MIN, 4000000000u, 255, 255);
    EXPECT_LOGGED(L"3.14 0.5 A\u20AC %", L"%.2f %g %c%lc %%", 3.14159, 0.5, 'A', static_cast<wint_t>(0x20AC));
    EXPECT_LOGGED(L"\u00E9\u20AC\U0001F600|w\u00E9", L"%s|%ls", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", L"w\u00E9");
    EXPECT_LOGGED(L"<a\uFFFDb\uFFFD\uFFFDc\uFFFD>", L"<%s>", "a\xFF" "b\xC0\xAF" "c\xE2\x82");
    EXPECT_LOGGED(L"(null) (null)     ab|", L"%s %ls %6s|", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr), "ab");
    EXPECT_LOGGED(L"%q %n %Ld 9 %", L"%q %n %Ld %d %", 9);  // unknown conversions take no argument
    EXPECT_LOGGED(L"(null)", nullptr);
#undef EXPECT_LOGGED
}

// Lines from several threads reach the sink one at a time, each whole.
TEST_F(PlatformTest, LoggerConcurrentLinesStayWhole) {
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    logger_->SetSink([&](LOG_CONST, const std::wstring& line) {
        if (inside++ != 0) overlapped = true;
        lines_.push_back(line);
        std::this_thread::yield();
        --inside;
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < 200; ++i) logger_->log(LOG_LEVEL_5, L"%d %s", 1000 + 200 * t + i, "\xC3\xA9\xC3\xA9");
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(overlapped);
    std::sort(lines_.begin(), lines_.end());
    ASSERT_EQ(lines_.size(), 800u);
    for (int n = 0; n < 800; ++n) EXPECT_EQ(lines_[n], std::to_wstring(1000 + n) + L" \u00E9\u00E9");
}

// Without a sink, lines at or below the threshold are appended to the LogFile as UTF-8,
// lines above it are dropped before their arguments are looked at. A line is in the file
// once log returns, even when the process is killed right after.
TEST_F(PlatformTest, LoggerThresholdAndDefaultDestination) {
    WriteAll(File("norva.log"), "earlier\n");
    WriteAll(File("log.conf"), "LogFile = " + File("norva.log") + "\n");
    ASSERT_TRUE(ConfigurationControl::Load(File("log.conf")));
    logger_->SetSink(nullptr);
    logger_->log(LOG_LEVEL_1, L"caf%s %d", "\xC3\xA9", 1);
    logger_->log(LOG_LEVEL_6, L"%s", reinterpret_cast<const char*>(16));  // would fault if formatted
    logger_->log(LOG_LEVEL_5, L"%ls", L"\U0001F600");
    const pid_t child = ::fork();
    if (child == 0) {
        logger_->log(LOG_LEVEL_5, L"last words %d %ls", 42, L"caf\u00e9");
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    const std::string written = "earlier\ncaf\xC3\xA9 1\n\xF0\x9F\x98\x80\nlast words 42 caf\xC3\xA9\n";
    EXPECT_EQ(ReadAll(File("norva.log")), written);
    // The next line after a new LogFile is loaded goes to the new file.
    WriteAll(File("log.conf"), "LogFile = " + File("next.log") + "\n");
    ASSERT_TRUE(ConfigurationControl::Load(File("log.conf")));
    logger_->log(LOG_LEVEL_5, L"moved");
    EXPECT_EQ(ReadAll(File("next.log")), "moved\n");
    EXPECT_EQ(ReadAll(File("norva.log")), written);
}

// key = value with comments and blanks; lines it cannot understand are reported with file:line. A load starts
// from the defaults (over setter overrides too); an unreadable file changes nothing.
TEST_F(PlatformTest, ConfigReadsKeysStartsFromDefaultsAndReportsBadLines) {
    WriteAll(File("a.conf"), "# database\n  DBIPAddr =  unix:///run/mysqld.sock   # local socket\n\nIDPattern=true\n"
                             "LogLevel = 7\nLogFile = /var/log/norva.log\nthis line has no equals sign\n"
                             "Colour = blue\nIDPattern = maybe\nLogLevel = 5x\nProfile = Safe\nReadTimeout = -3\n");
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(ConfigurationControl::Load(File("a.conf")));
    const std::string complaints = ::testing::internal::GetCapturedStderr();
    for (const char* where : {"a.conf:7:", "a.conf:8:", "a.conf:9:", "a.conf:10:"})
        EXPECT_NE(complaints.find(where), std::string::npos) << where << " in " << complaints;
    EXPECT_EQ(complaints.find("a.conf:4:"), std::string::npos);
    EXPECT_FALSE(ConfigurationControl::Load(File("missing.conf")) || ConfigurationControl::Load(File("")));
    EXPECT_EQ(Config(), std::make_tuple(std::wstring(L"unix:///run/mysqld.sock"), true, 7, std::string("/var/log/norva.log")));
    // Keys that choose the store's behaviour keep their text, understood or not: the store judges them.
    EXPECT_EQ(ConfigurationControl::GetValue("IDPattern"), "maybe");
    EXPECT_EQ(ConfigurationControl::GetProfile(), "Safe");
    EXPECT_EQ(ConfigurationControl::GetValue("ReadTimeout"), "-3");
    EXPECT_EQ(ConfigurationControl::GetReadTimeout(), -3);
    EXPECT_EQ(ConfigurationControl::GetValue("Colour"), "");
    ConfigurationControl::SetDBIPAddr(L"tcp://db.example:13306");
    WriteAll(File("b.conf"), "# nothing set\n");
    ASSERT_TRUE(ConfigurationControl::Load(File("b.conf")));
    EXPECT_EQ(Config(), std::make_tuple(std::wstring(L"tcp://127.0.0.1:3306"), false, 3, std::string()));
}

// UTF-8 of every encoded length both ways, also past the ASCII fast path; malformed input becomes U+FFFD.
TEST(StringUtilsTest, RoundTripsAndReplacesMalformedInput) {
    const std::wstring wide = L"plain ASCII text longer than eight bytes \u00E9\u07FF\u0800\u20AC\uFFFD\U00010000\U0001F600\U0010FFFF end";
    const std::string utf8 = StringUtils::UTF8FromUni(wide);
    EXPECT_EQ(utf8.substr(41), "\xC3\xA9\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBD\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF end");
    EXPECT_EQ(StringUtils::wstringFromstring(utf8), wide);
    EXPECT_EQ(StringUtils::stringFromwstring(wide), utf8);
    std::wstring big;
    for (int i = 0; i < 100000; ++i) big += (i % 37 == 0) ? L'\u00E9' : static_cast<wchar_t>(L'a' + i % 26);
    EXPECT_EQ(StringUtils::wstringFromstring(StringUtils::UTF8FromUni(big)), big);

    const struct { const char* utf8; const wchar_t* wide; } cases[] = {
        {"\x80x", L"\uFFFDx"}, {"\xC0\xAF", L"\uFFFD\uFFFD"}, {"\xE0\x80\xAF", L"\uFFFD\uFFFD\uFFFD"},  // stray, overlong
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"}, {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // surrogate, too big
        {"\xE2\x82" "A", L"\uFFFDA"}, {"12345678\xF0\x9F\x98", L"12345678\uFFFD"},  // truncated, also after a fast block
        {"\xFE\xFF", L"\uFFFD\uFFFD"}, {"", L""}};
    for (const auto& c : cases) EXPECT_EQ(StringUtils::wstringFromstring(c.utf8), c.wide) << c.utf8;
    const std::wstring bad = {L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDFFF),
                              static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1), L'b'};
    EXPECT_EQ(StringUtils::UTF8FromUni(bad), "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD" "b");
}

// Any value text survives the file in order; reads by index and by value position; bad operations are refused;
// an emptied parameter still exists.
TEST_F(PlatformTest, TicketValuesSurviveInOrderAndBadOperationsAreRefused) {
    const std::vector<std::string> values = {
        "", "say \"hi\"", "C:\\dir\\", "two\nlines\r\n", "\ttab \x01\x1F\x7F", "caf\xC3\xA9 \xF0\x9F\x98\x80",
        "  padded  ", "# not a comment", "end", "value \"x\"", "\\x41", "say \"hi\""};
    Edit([&](const STICKET_ACCESS& t) {
        for (const std::string& value : values) EXPECT_TRUE(t.AddParameter("ZT/QUERYID", value.c_str()));
        for (const char* url : {"a", "b", "c"}) EXPECT_TRUE(t.AddParameter("ZT/URL", url));
    });
    EXPECT_EQ(Values("ZT/QUERYID"), values);
    Edit([&](const STICKET_ACCESS& t) {
        std::string value;
        EXPECT_TRUE(t.GetParameter("ZT/QUERYID", value, 3) && value == values[3]);
        EXPECT_FALSE(t.GetParameter("ZT/QUERYID", value, static_cast<int>(values.size())) || t.GetParameter("ZT/QUERYID", value, -1));
        EXPECT_EQ(t.FindParameterPosition("ZT/QUERYID", "say \"hi\""), 1);  // the first of two equal values
        EXPECT_EQ(t.FindParameterPosition("ZT/QUERYID", "absent"), -1);
        EXPECT_TRUE(t.DelParameter("ZT/URL", 1));
        EXPECT_FALSE(t.DelParameter("ZT/URL", 2) || t.DelParameter("ZT/URL", -1) || t.DelParameter("ZT/NONE", 0) ||
                     t.AddParameter("ZT/URL", nullptr) || hSTicketInstance->Modify(t.NativeHandle(), "ZT/URL", 7, "x", 0));
        EXPECT_STRNE(hSTicketInstance->LastError(), "");
    });
    EXPECT_EQ(Values("ZT/URL"), (std::vector<std::string>{"a", "c"}));
    Edit([](const STICKET_ACCESS& t) { EXPECT_TRUE(t.DelParameter("ZT/URL", 0) && t.DelParameter("ZT/URL", 0)); });
    std::vector<std::string> urls = {"stale"};
    Edit([&](const STICKET_ACCESS& t) { EXPECT_TRUE(t.GetVectorParameter("ZT/URL", urls) && urls.empty()); });
}

// A missing file opens empty and is not created; an unchanged ticket is not rewritten (its comment stays);
// no library instance, no ticket.
TEST_F(PlatformTest, TicketReleaseWritesOnlyAfterAChange) {
    Edit([](const STICKET_ACCESS& t) { std::vector<std::string> none; EXPECT_FALSE(t.GetVectorParameter("ZT/URL", none)); });
    EXPECT_TRUE(std::filesystem::is_empty(dir_));
    const std::string text = "ZTTicket 1\n# kept\nparam \"ZT/URL\"\n  value \"u\"\nend\n";
    WriteAll(path_, text);
    EXPECT_EQ(Values("ZT/URL"), std::vector<std::string>{"u"});
    EXPECT_EQ(ReadAll(path_), text);
    DestroyTicket(nullptr);
    const STICKET_INSTANCE* saved = hSTicketInstance;
    hSTicketInstance = nullptr;
    EXPECT_EQ(CreateTicket(path_.c_str()), nullptr);
    hSTicketInstance = saved;
}

// A file that cannot be parsed is refused (with an error text) and never overwritten.
TEST_F(PlatformTest, TicketUnparsableFileIsRefusedAndLeftAlone) {
    for (const char* content : {"", "garbage\n", "ZTTicket 2\nend\n", "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\"\n",
                                "ZTTicket 1\n  value \"a\"\nend\n", "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\\q\"\nend\n",
                                "ZTTicket 1\nparam \"ZT/URL\"\n  value \"a\nend\n",
                                "ZTTicket 1\nparam \"ZT/URL\"\nparam \"ZT/URL\"\nend\n", "ZTTicket 1\nend\nparam \"ZT/URL\"\n"}) {
        WriteAll(path_, content);
        EXPECT_EQ(CreateTicket(path_.c_str()), nullptr) << content;
        EXPECT_STRNE(hSTicketInstance->LastError(), "") << content;
        EXPECT_EQ(ReadAll(path_), content);
    }
    EXPECT_EQ(CreateTicket(File("").c_str()), nullptr);  // a directory
}
