#include "TestSupport.h"

#include <ConfigurationControl.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <gtest/gtest.h>
#include <mysql_driver.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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
