#include "private/StoreSettings.h"

#include <ConfigurationControl.h>
#include <StringUtils.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Timeouts when the configuration names none, in seconds. No legitimate
// call comes near them: a 63 MiB JDF is sent and answered in 2-4 s on a busy
// 2-core machine, 100,000 keys are read in 0.1 s, and a cluster stalls about
// 6 s while it drops a node that froze (at most its 15 s inactivity limit).
// A frozen server is noticed after ReadTimeout by the call in flight, and
// after ConnectTimeout by a reconnect (README, "Running on a cluster").
const int kDefaultConnectTimeout = 5;
const int kDefaultReadTimeout = 20;
const int kDefaultWriteTimeout = 20;
const int kLongestTimeout = 86400;

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Reads one key's text; `parse` answers whether it understood it. A key that
// was not set keeps the default already in place.
class Reader {
public:
    explicit Reader(StoreSettings& settings) : m_settings(settings) {}

    template <class Parse>
    void Key(const char* key, const char* expected, Parse parse) {
        const std::string text = ConfigurationControl::GetValue(key);
        if (text.empty()) return;
        if (!parse(text))
            m_settings.problems.push_back(std::string(key) + " = \"" + text + "\" cannot be understood: " + expected);
    }

private:
    StoreSettings& m_settings;
};

bool ParseWhole(const std::string& text, int low, int high, int& value) {
    errno = 0;
    char* end = nullptr;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0' || parsed < low || parsed > high) return false;
    value = static_cast<int>(parsed);
    return true;
}

// One of `names` (without regard to case) chooses the value of the same place in `values`.
template <class T, size_t N>
bool ParseChoice(const std::string& text, const char* const (&names)[N], const T (&values)[N], T& value) {
    for (size_t i = 0; i < N; ++i)
        if (Lower(text) == names[i]) {
            value = values[i];
            return true;
        }
    return false;
}

const char* const kProfiles[] = {"exact", "safe"};
const char* const kBools[] = {"0", "1", "false", "true"};
const bool kBoolValues[] = {false, true, false, true};
const char* const kTlsNames[] = {"off", "required", "verify-ca", "verify-identity"};
const TlsMode kTlsModes[] = {TlsMode::Off, TlsMode::Required, TlsMode::VerifyCA, TlsMode::VerifyIdentity};
const char* const kClusterWriteNames[] = {"one", "any"};
const ClusterWrites kClusterWriteModes[] = {ClusterWrites::One, ClusterWrites::Any};

// The account of DBUser and its password; nothing falls back to the
// compiled-in account once DBUser is set.
void ReadCredentials(StoreSettings& s) {
    if (s.user.empty()) {
        if (!s.passwordFile.empty())
            s.problems.push_back("DBPasswordFile = \"" + s.passwordFile + "\" is set without DBUser: name the account");
        return;
    }
    if (s.passwordFile.empty()) {
        s.problems.push_back("DBUser = \"" + s.user + "\" has no DBPasswordFile: name the file holding its password");
        return;
    }
    std::string problem;
    s.password = ReadPasswordFile(s.passwordFile, problem);
    if (!problem.empty()) s.problems.push_back("DBPasswordFile = " + problem);
}

// The certificate files DBTLS needs, and no certificate file without a mode that uses it.
void CheckTls(StoreSettings& s) {
    auto readable = [&](const char* key, const std::string& path) {
        if (!path.empty() && ::access(path.c_str(), R_OK) != 0)
            s.problems.push_back(std::string(key) + " = \"" + path + "\" cannot be read: " + std::strerror(errno));
    };
    readable("DBTLSCA", s.tlsCA);
    readable("DBTLSCert", s.tlsCert);
    readable("DBTLSKey", s.tlsKey);
    const bool verifies = s.tls == TlsMode::VerifyCA || s.tls == TlsMode::VerifyIdentity;
    if (verifies && s.tlsCA.empty())
        s.problems.push_back("DBTLS = \"" + ConfigurationControl::GetDBTLS() +
                             "\" needs DBTLSCA: the CA file that signed the server's certificate");
    if (!verifies && !s.tlsCA.empty())
        s.problems.push_back("DBTLSCA is set but DBTLS does not check the server's certificate: "
                             "set DBTLS to verify-ca or verify-identity");
    if (s.tlsCert.empty() != s.tlsKey.empty())
        s.problems.push_back("DBTLSCert and DBTLSKey go together: name both or neither");
    if (s.tls == TlsMode::Off && !s.tlsCert.empty())
        s.problems.push_back("DBTLSCert is set but DBTLS is off: set DBTLS");
}

}  // namespace

// A file others may read is refused, as ssh and .pgpass refuse one. The
// text of a problem never holds the password.
std::string ReadPasswordFile(const std::string& path, std::string& problem) {
    const std::string named = "\"" + path + "\"";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        problem = named + " cannot be read: " + std::strerror(errno);
        return std::string();
    }
    struct stat info;
    std::string text;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        problem = named + " is not a regular file";
    } else if ((info.st_mode & 077) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
        problem = named + " may be read by group or others (mode " + mode + "): chmod 600 " + path;
    } else {
        char buffer[4096];
        ssize_t n;
        while (text.find('\n') == std::string::npos && (n = ::read(fd, buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<size_t>(n));
        text.erase(std::min(text.find('\n'), text.size()));
        if (!text.empty() && text.back() == '\r') text.pop_back();
        if (text.empty()) problem = named + " holds no password on its first line";
    }
    ::close(fd);
    if (!problem.empty()) text.clear();
    return text;
}

StoreSettings ReadStoreSettings() {
    StoreSettings s;
    s.hosts = StringUtils::UTF8FromUni(ConfigurationControl::GetDBIPAddr());
    s.connectTimeout = kDefaultConnectTimeout;
    s.readTimeout = kDefaultReadTimeout;
    s.writeTimeout = kDefaultWriteTimeout;
    Reader read(s);
    read.Key("Profile", "exact or safe", [&](const std::string& t) {
        const char* name = nullptr;
        if (!ParseChoice(t, kProfiles, kProfiles, name)) return false;
        s.profile = name;
        return true;
    });
    read.Key("IDPattern", "0, 1, true or false",
             [&](const std::string& t) { return ParseChoice(t, kBools, kBoolValues, s.idPattern); });
    read.Key("Connections", "a whole number from 1 up",
             [&](const std::string& t) { return ParseWhole(t, 1, 1024, s.connections); });
    const char* seconds = "a whole number of seconds from 1 to 86400";
    read.Key("ConnectTimeout", seconds,
             [&](const std::string& t) { return ParseWhole(t, 1, kLongestTimeout, s.connectTimeout); });
    read.Key("ReadTimeout", seconds,
             [&](const std::string& t) { return ParseWhole(t, 1, kLongestTimeout, s.readTimeout); });
    read.Key("WriteTimeout", seconds,
             [&](const std::string& t) { return ParseWhole(t, 1, kLongestTimeout, s.writeTimeout); });
    read.Key("DBTLS", "off, required, verify-ca or verify-identity",
             [&](const std::string& t) { return ParseChoice(t, kTlsNames, kTlsModes, s.tls); });
    read.Key("ClusterWrites", "one or any",
             [&](const std::string& t) { return ParseChoice(t, kClusterWriteNames, kClusterWriteModes, s.clusterWrites); });
    s.user = ConfigurationControl::GetDBUser();
    s.passwordFile = ConfigurationControl::GetDBPasswordFile();
    s.tlsCA = ConfigurationControl::GetDBTLSCA();
    s.tlsCert = ConfigurationControl::GetDBTLSCert();
    s.tlsKey = ConfigurationControl::GetDBTLSKey();
    ReadCredentials(s);
    CheckTls(s);
    if (s.hosts.empty()) s.problems.push_back("DBIPAddr is empty: name the database host");
    return s;
}
