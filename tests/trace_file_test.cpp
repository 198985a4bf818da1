// The trace file: a line is in the file once log returns, even when the
// process is killed at that moment; lines follow a change of LogFile; the
// formatting kept its output for the conversions the data layer writes.
#include <ConfigurationControl.h>
#include <Logger.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Lines go to `path`, emptied first, from level 5 up.
void UseLogFile(const std::string& path) {
    std::remove(path.c_str());
    const std::string conf = path + ".conf";
    std::ofstream(conf) << "LogLevel = 5\nLogFile = " << path << "\n";
    ASSERT_TRUE(ConfigurationControl::Load(conf));
    Logger::Initialise()->SetLevel(5);
}

TEST(TraceFile, LineSurvivesAKillRightAfterLog) {
    const std::string path = "./killed.log";
    UseLogFile(path);
    const pid_t child = ::fork();
    if (child == 0) {
        Logger::Initialise()->log(LOG_LEVEL_5, L"last words %d %ls %s", 42, L"caf\u00e9", "\xC3\xA9");
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ("last words 42 caf\xC3\xA9 \xC3\xA9\n", ReadAll(path));
}

TEST(TraceFile, FollowsLogFileAndKeepsTheFormatting) {
    UseLogFile("./first.log");
    Logger* logger = Logger::Initialise();
    logger->log(LOG_LEVEL_5, L"[%5d|%-4s|%.2ls|%u|%ld|%x|%c]", -7, "ab", L"wide", 3000000000u, -5L, 255, 'q');
    UseLogFile("./second.log");
    logger->log(LOG_LEVEL_5, L"%s %ls %d", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr), 0);
    EXPECT_EQ("[   -7|ab  |wi|3000000000|-5|ff|q]\n", ReadAll("./first.log"));
    EXPECT_EQ("(null) (null) 0\n", ReadAll("./second.log"));
}

}  // namespace
