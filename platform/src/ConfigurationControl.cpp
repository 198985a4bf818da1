#include "ConfigurationControl.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>

#include <sys/stat.h>

#include "ConfigurationChanges.h"
#include "StringUtils.h"

namespace {

const char kDefaultFile[] = "norva.conf";

struct Settings {
    std::wstring dbIPAddr = L"tcp://127.0.0.1:3306";
    bool idPattern = false;
    int logLevel = 3;
    std::string logFile;
    std::string profile = "exact";
    int connections = 1;
};

// Counts changes of the settings (reads of a file, setters), so that a
// reader may keep a value and look it up again only after a change.
std::atomic<unsigned long> g_changes{0};

struct State {
    std::mutex mutex;
    Settings settings;
    bool loaded = false;  // norva.conf has been read, or Load() succeeded
};

// Never destroyed, so that code running at process exit can still ask.
State& GetState() {
    static State* state = new State;
    return *state;
}

std::string Trim(const std::string& text) {
    const char* blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool ParseBool(const std::string& text, bool& value) {
    if (text == "1" || text == "true" || text == "TRUE" || text == "True") {
        value = true;
        return true;
    }
    if (text == "0" || text == "false" || text == "FALSE" || text == "False") {
        value = false;
        return true;
    }
    return false;
}

bool ParseProfile(const std::string& text, std::string& value) {
    if (text != "exact" && text != "safe") return false;
    value = text;
    return true;
}

bool ParseInt(const std::string& text, int& value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < INT_MIN || parsed > INT_MAX) return false;
    value = static_cast<int>(parsed);
    return true;
}

void Complain(const std::string& path, int lineNo, const std::string& line, const char* why) {
    std::fprintf(stderr, "%s:%d: %s, line ignored: %s\n", path.c_str(), lineNo, why, line.c_str());
}

// Reads path over the defaults into settings; false when it cannot be read.
bool ReadFile(const std::string& path, Settings& settings) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return false;
    std::ifstream in(path);
    if (!in) return false;
    Settings result;
    std::string raw;
    int lineNo = 0;
    while (std::getline(in, raw)) {
        ++lineNo;
        std::string line = raw;
        const std::size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        line = Trim(line);
        if (line.empty()) continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos) {
            Complain(path, lineNo, raw, "no '='");
            continue;
        }
        const std::string key = Trim(line.substr(0, eq));
        const std::string value = Trim(line.substr(eq + 1));
        if (key == "DBIPAddr") {
            if (value.empty()) Complain(path, lineNo, raw, "empty DBIPAddr");
            else result.dbIPAddr = StringUtils::wstringFromstring(value);
        } else if (key == "IDPattern") {
            if (!ParseBool(value, result.idPattern)) Complain(path, lineNo, raw, "IDPattern must be 0, 1, true or false");
        } else if (key == "LogLevel") {
            if (!ParseInt(value, result.logLevel)) Complain(path, lineNo, raw, "LogLevel must be an integer");
        } else if (key == "Profile") {
            if (!ParseProfile(value, result.profile)) Complain(path, lineNo, raw, "Profile must be exact or safe");
        } else if (key == "Connections") {
            if (!ParseInt(value, result.connections) || result.connections < 1)
                Complain(path, lineNo, raw, "Connections must be a whole number from 1 up");
        } else if (key == "LogFile") {
            result.logFile = value;  // empty: standard error
        } else {
            Complain(path, lineNo, raw, "unknown key");
        }
    }
    if (in.bad()) return false;
    settings = result;
    return true;
}

// Returns the locked state, reading norva.conf first if nothing was loaded yet.
State& Loaded(std::unique_lock<std::mutex>& lock) {
    State& state = GetState();
    lock = std::unique_lock<std::mutex>(state.mutex);
    if (!state.loaded) {
        ReadFile(kDefaultFile, state.settings);  // a missing file leaves the defaults
        state.loaded = true;
        g_changes.fetch_add(1, std::memory_order_release);
    }
    return state;
}

// Runs `use` on the settings under the lock, norva.conf read first if needed
// (so that the deferred first read cannot overwrite what a setter set).
template <class Use>
auto WithSettings(Use use) {
    std::unique_lock<std::mutex> lock;
    return use(Loaded(lock).settings);
}

// WithSettings for a setter: the change is counted.
template <class Use>
void ChangeSettings(Use use) {
    std::unique_lock<std::mutex> lock;
    use(Loaded(lock).settings);
    g_changes.fetch_add(1, std::memory_order_release);
}

}  // namespace

std::wstring ConfigurationControl::GetDBIPAddr() { return WithSettings([](Settings& s) { return s.dbIPAddr; }); }
bool ConfigurationControl::GetIDPattern() { return WithSettings([](Settings& s) { return s.idPattern; }); }
int ConfigurationControl::GetLogLevel() { return WithSettings([](Settings& s) { return s.logLevel; }); }
std::string ConfigurationControl::GetLogFile() { return WithSettings([](Settings& s) { return s.logFile; }); }
std::string ConfigurationControl::GetProfile() { return WithSettings([](Settings& s) { return s.profile; }); }
int ConfigurationControl::GetConnections() { return WithSettings([](Settings& s) { return s.connections; }); }

bool ConfigurationControl::Load(const std::string& path) {
    State& state = GetState();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!ReadFile(path, state.settings)) return false;
    state.loaded = true;
    g_changes.fetch_add(1, std::memory_order_release);
    return true;
}

void ConfigurationControl::SetDBIPAddr(const std::wstring& address) {
    ChangeSettings([&](Settings& s) { s.dbIPAddr = address; });
}

void ConfigurationControl::SetIDPattern(bool pattern) {
    ChangeSettings([&](Settings& s) { s.idPattern = pattern; });
}

// An unknown profile name is ignored, as it is in the file.
void ConfigurationControl::SetProfile(const std::string& profile) {
    ChangeSettings([&](Settings& s) { ParseProfile(profile, s.profile); });
}

void ConfigurationControl::SetConnections(int connections) {
    ChangeSettings([&](Settings& s) {
        if (connections >= 1) s.connections = connections;
    });
}

unsigned long norva_config::Changes() { return g_changes.load(std::memory_order_acquire); }
