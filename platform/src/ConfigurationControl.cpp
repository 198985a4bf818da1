#include "ConfigurationControl.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
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
    // The text of every key as written in the file or given to a setter,
    // understood or not: the store judges the keys that choose its behaviour.
    std::map<std::string, std::string> values;
};

// The keys read from the file. Besides the typed ones above, these choose
// how the store connects; they are kept as text and checked by the store.
const char* const kTextKeys[] = {"ConnectTimeout", "ReadTimeout", "WriteTimeout", "DBUser",  "DBPasswordFile",
                                 "DBTLS",          "DBTLSCA",     "DBTLSCert",    "DBTLSKey", "ClusterWrites"};

bool IsTextKey(const std::string& key) {
    for (const char* known : kTextKeys)
        if (key == known) return true;
    return false;
}

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
        result.values[key] = value;
        if (key == "DBIPAddr") {
            if (value.empty()) Complain(path, lineNo, raw, "empty DBIPAddr");
            else result.dbIPAddr = StringUtils::wstringFromstring(value);
        } else if (key == "IDPattern") {
            if (!ParseBool(value, result.idPattern)) Complain(path, lineNo, raw, "IDPattern must be 0, 1, true or false");
        } else if (key == "LogLevel") {
            if (!ParseInt(value, result.logLevel)) Complain(path, lineNo, raw, "LogLevel must be an integer");
        } else if (key == "Profile") {
            result.profile = value;  // the store matches it without regard to case, or refuses to run
        } else if (key == "Connections") {
            if (!ParseInt(value, result.connections) || result.connections < 1)
                Complain(path, lineNo, raw, "Connections must be a whole number from 1 up");
        } else if (key == "LogFile") {
            result.logFile = value;  // empty: standard error
        } else if (!IsTextKey(key)) {
            result.values.erase(key);
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

// A timeout key as a number of seconds; -1 when it is not set or is not a
// whole number (the store refuses such a value; see its settings).
int TimeoutValue(const char* key) {
    return WithSettings([&](Settings& s) {
        const auto found = s.values.find(key);
        int seconds = -1;
        if (found == s.values.end() || !ParseInt(found->second, seconds)) return -1;
        return seconds;
    });
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
    ChangeSettings([&](Settings& s) {
        s.dbIPAddr = address;
        s.values["DBIPAddr"] = StringUtils::UTF8FromUni(address);
    });
}

void ConfigurationControl::SetIDPattern(bool pattern) {
    ChangeSettings([&](Settings& s) {
        s.idPattern = pattern;
        s.values["IDPattern"] = pattern ? "true" : "false";
    });
}

// Kept as given: the store refuses to run on a name it does not know.
void ConfigurationControl::SetProfile(const std::string& profile) {
    ChangeSettings([&](Settings& s) {
        s.profile = profile;
        s.values["Profile"] = profile;
    });
}

// Kept as given, so that the store refuses a count below 1 rather than run
// with another.
void ConfigurationControl::SetConnections(int connections) {
    ChangeSettings([&](Settings& s) {
        if (connections >= 1) s.connections = connections;
        s.values["Connections"] = std::to_string(connections);
    });
}

std::string ConfigurationControl::GetValue(const std::string& key) {
    return WithSettings([&](Settings& s) {
        const auto found = s.values.find(key);
        return found == s.values.end() ? std::string() : found->second;
    });
}

void ConfigurationControl::SetValue(const std::string& key, const std::string& text) {
    ChangeSettings([&](Settings& s) { s.values[key] = text; });
}

int ConfigurationControl::GetConnectTimeout() { return TimeoutValue("ConnectTimeout"); }
int ConfigurationControl::GetReadTimeout() { return TimeoutValue("ReadTimeout"); }
int ConfigurationControl::GetWriteTimeout() { return TimeoutValue("WriteTimeout"); }
void ConfigurationControl::SetConnectTimeout(int seconds) { SetValue("ConnectTimeout", std::to_string(seconds)); }
void ConfigurationControl::SetReadTimeout(int seconds) { SetValue("ReadTimeout", std::to_string(seconds)); }
void ConfigurationControl::SetWriteTimeout(int seconds) { SetValue("WriteTimeout", std::to_string(seconds)); }

std::string ConfigurationControl::GetDBUser() { return GetValue("DBUser"); }
std::string ConfigurationControl::GetDBPasswordFile() { return GetValue("DBPasswordFile"); }
std::string ConfigurationControl::GetDBTLS() { return GetValue("DBTLS"); }
std::string ConfigurationControl::GetDBTLSCA() { return GetValue("DBTLSCA"); }
std::string ConfigurationControl::GetDBTLSCert() { return GetValue("DBTLSCert"); }
std::string ConfigurationControl::GetDBTLSKey() { return GetValue("DBTLSKey"); }
std::string ConfigurationControl::GetClusterWrites() { return GetValue("ClusterWrites"); }
void ConfigurationControl::SetDBUser(const std::string& user) { SetValue("DBUser", user); }
void ConfigurationControl::SetDBPasswordFile(const std::string& path) { SetValue("DBPasswordFile", path); }
void ConfigurationControl::SetDBTLS(const std::string& mode) { SetValue("DBTLS", mode); }
void ConfigurationControl::SetDBTLSCA(const std::string& path) { SetValue("DBTLSCA", path); }
void ConfigurationControl::SetDBTLSCert(const std::string& path) { SetValue("DBTLSCert", path); }
void ConfigurationControl::SetDBTLSKey(const std::string& path) { SetValue("DBTLSKey", path); }
void ConfigurationControl::SetClusterWrites(const std::string& mode) { SetValue("ClusterWrites", mode); }

unsigned long norva_config::Changes() { return g_changes.load(std::memory_order_acquire); }
