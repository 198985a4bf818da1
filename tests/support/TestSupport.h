#ifndef NORVA_TESTS_TESTSUPPORT_H
#define NORVA_TESTS_TESTSUPPORT_H

#include <Logger.h>
#include <TimeStamp.h>

#include <functional>
#include <future>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sql {
class Connection;
}

namespace testing_support {

// True when the suite runs the safe profile (NORVA_TEST_PROFILE=safe).
bool Safe();

// What a case expects in each profile: this run's of the two.
template <class T>
T ByProfile(T exact, T safe) {
    return Safe() ? safe : exact;
}
inline std::wstring ByProfile(const wchar_t* exact, const wchar_t* safe) { return Safe() ? safe : exact; }

// A statement as this run traces it, from its text with the values between
// single quotes: the exact profile sends that text; the safe one sends "?"
// for each quoted value and traces the values on the line after it.
std::wstring Traced(const std::wstring& text);

// A time stamp of whole seconds, as a DATETIME column keeps it.
TimeStamp Stamp(int year, int month, int day, int hour, int minute, int second);
// What a written time stamp reads back as: the exact profile never stores one.
inline TimeStamp Stored(const TimeStamp& written) { return Safe() ? written : TimeStamp(0); }

// The private server the suite runs against (environment of scripts/db-start.sh).
std::string DbHost();  // "tcp://127.0.0.1:PORT"
std::string DbDir();   // the server's directory, for kill/restart

// Captures every line the process logger writes (level 5 and below) while alive.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    std::vector<std::wstring> Lines() const;
    // An exact line; "a\nb" stands for the lines a and b one after the other
    // (a bound statement's text and the line of its values).
    bool Contains(const std::wstring& line) const;
    size_t Count(const std::wstring& line) const;
    bool ContainsText(const std::wstring& part) const;   // part of some line
    void Clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::wstring> m_lines;
    int m_oldLevel;
};

// A connection of its own (not the library's, the administrator's) for setting up and reading back tables.
class RawDb {
public:
    RawDb();
    ~RawDb();
    void Exec(const std::string& sql);
    // First column of the first row as text; "<none>" without a row, "<null>" for NULL.
    std::string Scalar(const std::string& sql);
    long Count(const std::string& table, const std::string& where = "");
    // Empties the tables and resets the MAXID row to zeros.
    void Reset(std::initializer_list<const char*> tables);

private:
    std::unique_ptr<sql::Connection> m_connection;
};

// Stops the private server with SIGKILL and starts it again (same data, same port).
void KillServer();
void StartServer();

// Reads JDFTICKET.STATUS of row C1 through the library's store (the
// connection tests' probe); false when the store reported a failure.
bool ReadStatusOfC1(int& status);

// The pid of the server kept in DIR (scripts/db-start.sh or a cluster node's directory).
int ServerPid(const std::string& dir);

// Stops a process with SIGSTOP (a server that hangs with its sockets open)
// until Resume or destruction, for at most `seconds`. A child process of its
// own resumes it when that time is up or when this process dies first, so a
// failed assertion or a crash never leaves a server frozen.
class Freeze {
public:
    Freeze(int pid, int seconds);
    ~Freeze();
    void Resume();
    Freeze(const Freeze&) = delete;
    Freeze& operator=(const Freeze&) = delete;

private:
    int m_pid;
    int m_guard = -1;  // the guarding child, -1 once reaped
    int m_release = -1;  // write end of the pipe that tells the child to resume now
};

// How many threads this process has now.
int ThreadCount();

// What InChild's body answered and every line the library logged meanwhile
// (UTF-8, line breaks inside a line written as "\\n").
struct ChildRun {
    bool result = false;  // false also when the child died or ran out of time
    std::vector<std::string> log;
    bool Logged(const std::string& part) const;  // some line holds part
    size_t Count(const std::string& part) const;  // lines holding part
};
// Runs body in a child process, so that the library's store is made there
// afresh from whatever configuration body sets first. The child is killed
// after `seconds`. The calling process must not have made the store.
ChildRun InChild(const std::function<bool()>& body, int seconds = 60);
std::ostream& operator<<(std::ostream& out, const ChildRun& run);  // for failure messages

// Aborts the process if it is still alive after the given time: a test whose
// call hangs (a lock left held) fails instead of hanging the suite.
class Watchdog {
public:
    explicit Watchdog(int seconds = 120);
    ~Watchdog();

private:
    std::promise<void> m_done;
    std::thread m_thread;
};

}  // namespace testing_support

#endif
