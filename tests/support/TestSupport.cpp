#include "TestSupport.h"

#include <ConfigurationControl.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <gtest/gtest.h>
#include <mysql_driver.h>
#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
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

std::wstring Traced(const std::wstring& text) {
    if (!Safe()) return text;
    std::wstring statement, values;
    for (size_t at = 0; at < text.size();) {
        const size_t open = text.find(L'\'', at);
        const size_t close = open == std::wstring::npos ? open : text.find(L'\'', open + 1);
        if (close == std::wstring::npos) {
            statement += text.substr(at);
            break;
        }
        statement += text.substr(at, open - at) + L"?";
        values += (values.empty() ? L"" : L", ") + text.substr(open, close - open + 1);
        at = close + 1;
    }
    return values.empty() ? statement : statement + L"\nvalues: " + values;
}

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
    // Several lines ("a\nb"): that many lines one after the other.
    std::vector<std::wstring> wanted;
    for (size_t start = 0, end; start <= line.size(); start = end + 1) {
        end = std::min(line.find(L'\n', start), line.size());
        wanted.push_back(line.substr(start, end - start));
    }
    size_t count = 0;
    for (size_t i = 0; i + wanted.size() <= m_lines.size(); ++i)
        if (std::equal(wanted.begin(), wanted.end(), m_lines.begin() + static_cast<std::ptrdiff_t>(i))) ++count;
    return count;
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
    if (DbDir().empty()) throw std::runtime_error("NORVA_TEST_DB_DIR is not set: start the private server first");
    // The server's administrator over its socket: tests also change the
    // schema, which the library's account may not.
    const passwd* login = getpwuid(geteuid());
    sql::ConnectOptionsMap options;
    options["hostName"] = sql::SQLString("unix://" + DbDir() + "/mysqld.sock");
    options["userName"] = sql::SQLString(login ? login->pw_name : "root");
    options["password"] = sql::SQLString("");
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

bool ChildRun::Logged(const std::string& part) const { return Count(part) > 0; }

size_t ChildRun::Count(const std::string& part) const {
    return static_cast<size_t>(
        std::count_if(log.begin(), log.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

std::ostream& operator<<(std::ostream& out, const ChildRun& run) {
    out << "the child answered " << (run.result ? "true" : "false") << " and logged:\n";
    for (const std::string& line : run.log) out << "  " << line << "\n";
    return out;
}

// Starts the child's last line, which carries body's answer.
const char kResultMark[] = "\x01result=";

ChildRun InChild(const std::function<bool()>& body, int seconds) {
    ChildRun run;
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return run;  // not inherited by servers the child starts
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(out[0]);
        const int fd = out[1];
        auto send = [fd](std::string text) {
            for (size_t p = 0; (p = text.find('\n', p)) != std::string::npos; p += 2) text.replace(p, 1, "\\n");
            text += '\n';
            for (size_t done = 0; done < text.size();) {
                const ssize_t n = write(fd, text.data() + done, text.size() - done);
                if (n <= 0) break;
                done += static_cast<size_t>(n);
            }
        };
        Logger::Initialise()->SetLevel(5);
        Logger::Initialise()->SetSink(
            [&send](LOG_CONST, const std::wstring& line) { send(StringUtils::UTF8FromUni(line)); });
        bool result = false;
        try {
            result = body();
        } catch (...) {
        }
        send(std::string(kResultMark) + (result ? "1" : "0"));
        _exit(0);  // the store and its connections stay as they are, as at any process end
    }
    close(out[1]);
    if (pid < 0) {
        close(out[0]);
        return run;
    }
    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd wait = {out[0], POLLIN, 0};
        if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
            kill(pid, SIGKILL);
            ADD_FAILURE() << "the child did not finish within " << seconds << " s";
            break;
        }
        char buffer[4096];
        const ssize_t n = read(out[0], buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    close(out[0]);
    waitpid(pid, nullptr, 0);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, sizeof kResultMark - 1, kResultMark) == 0) run.result = line.back() == '1';
        else run.log.push_back(line);
    }
    return run;
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
