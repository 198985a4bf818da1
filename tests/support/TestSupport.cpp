#include "TestSupport.h"

#include <ConfigurationControl.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <gtest/gtest.h>
#include <mysql_driver.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "CMysqlDatabaseInterface.h"
#include "StringUtils.h"

namespace testing_support {

static std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string DbHost() { return Env("NORVA_TEST_DB"); }
std::string DbDir() { return Env("NORVA_TEST_DB_DIR"); }
bool Safe() { return ConfigurationControl::GetProfile() == "safe"; }

TimeStamp Stamp(int year, int month, int day, int hour, int minute, int second) {
    TimeStamp stamp(0);
    stamp.year = year, stamp.month = month, stamp.day = day;
    stamp.hour = hour, stamp.minute = minute, stamp.second = second;
    return stamp;
}

LogCapture::LogCapture() {
    Logger* logger = Logger::Initialise();
    m_oldLevel = logger->GetLevel();
    logger->SetLevel(5);
    logger->SetSink([this](LOG_CONST, const std::wstring& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(line);
    });
}

LogCapture::~LogCapture() {
    Logger* logger = Logger::Initialise();
    logger->SetSink(nullptr);
    logger->SetLevel(m_oldLevel);
}

std::vector<std::wstring> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

bool LogCapture::Contains(const std::wstring& line) const { return Count(line) > 0; }

size_t LogCapture::Count(const std::wstring& line) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::count(m_lines.begin(), m_lines.end(), line);
}

bool LogCapture::ContainsText(const std::wstring& part) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& line : m_lines)
        if (line.find(part) != std::wstring::npos) return true;
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

RawDb::RawDb() {
    if (DbHost().empty()) throw std::runtime_error("NORVA_TEST_DB is not set: start the private server first");
    sql::ConnectOptionsMap options;
    options["hostName"] = sql::SQLString(DbHost());
    options["userName"] = sql::SQLString("lumbo27");
    options["password"] = sql::SQLString("lumbo27");
    options["schema"] = sql::SQLString("jdfdb");
    options["OPT_RECONNECT"] = true;
    options["OPT_CHARSET_NAME"] = sql::SQLString("utf8mb4");
    m_connection.reset(sql::mysql::get_driver_instance()->connect(options));
}

RawDb::~RawDb() = default;

void RawDb::Exec(const std::string& text) {
    std::unique_ptr<sql::Statement> statement(m_connection->createStatement());
    statement->execute(text);
}

std::string RawDb::Scalar(const std::string& text) {
    std::unique_ptr<sql::Statement> statement(m_connection->createStatement());
    std::unique_ptr<sql::ResultSet> result(statement->executeQuery(text));
    if (!result->next()) return "<none>";
    std::string value = result->getString(1);
    return result->wasNull() ? "<null>" : value;
}

long RawDb::Count(const std::string& table, const std::string& where) {
    return std::stol(Scalar("SELECT COUNT(*) FROM " + table + (where.empty() ? "" : " WHERE " + where)));
}

void RawDb::Reset(std::initializer_list<const char*> tables) {
    for (const char* table : tables) Exec(std::string("DELETE FROM ") + table);
    Exec("UPDATE MAXID SET JDFTICKET=0, CONTENT=0, DEVICEJOB=0, STATSSUBS=0, SERVER=0, DEVICE=0, LOG=0");
}

static void RunScript(const std::string& script) {
    const std::string command = std::string("bash ") + NORVA_SOURCE_DIR + "/scripts/" + script + " '" + DbDir() +
                                "' >/dev/null 2>&1";
    ASSERT_EQ(0, std::system(command.c_str())) << command;
}

void KillServer() { RunScript("db-kill.sh"); }

bool ReadStatusOfC1(int& status) {
    return CMysqlDatabaseInterface::GetInstance()->GetParameter(TICKET_JDFTICKET, L"C1", PARAM_WSTRING,
                                                                "JDFTICKET.STATUS", &status, PARAM_INT);
}
void StartServer() { RunScript("db-start.sh"); }

int ServerPid(const std::string& dir) {
    std::ifstream file(dir + "/mysqld.pid");
    int pid = 0;
    file >> pid;
    if (pid <= 1) throw std::runtime_error("no server pid in " + dir);
    return pid;
}

Freeze::Freeze(int pid, int seconds) : m_pid(pid) {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("Freeze: no pipe");
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        // Only async-signal-safe calls here: the parent has threads.
        ::close(fds[1]);
        pollfd release = {fds[0], POLLIN, 0};
        for (int waited = 0; waited < seconds * 1000 && ::getppid() == parent; waited += 100)
            if (::poll(&release, 1, 100) != 0) break;
        ::kill(pid, SIGCONT);
        ::_exit(0);
    }
    ::close(fds[0]);
    if (child < 0) {
        ::close(fds[1]);
        throw std::runtime_error("Freeze: no guard process");
    }
    m_guard = child;
    m_release = fds[1];
    ::kill(pid, SIGSTOP);
}

void Freeze::Resume() {
    if (m_guard < 0) return;
    ::kill(m_pid, SIGCONT);
    ::close(m_release);
    ::waitpid(m_guard, nullptr, 0);
    m_guard = -1;
}

Freeze::~Freeze() { Resume(); }

int ThreadCount() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Threads:", 0) == 0) return std::atoi(line.c_str() + 8);
    return -1;
}

Watchdog::Watchdog(int seconds)
    : m_thread([finished = m_done.get_future(), seconds] {
          if (finished.wait_for(std::chrono::seconds(seconds)) == std::future_status::timeout) {
              std::fprintf(stderr, "watchdog: the test still runs after %d s; a call hangs\n", seconds);
              std::abort();
          }
      }) {}

Watchdog::~Watchdog() {
    m_done.set_value();
    m_thread.join();
}

}  // namespace testing_support
