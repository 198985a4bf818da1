#include "private/StoreSettings.h"

#include <ConfigurationControl.h>
#include <StringUtils.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

// Timeouts when the configuration names none, in seconds.
const int kDefaultConnectTimeout = 5;
const int kDefaultReadTimeout = 30;
const int kDefaultWriteTimeout = 30;
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

}  // namespace

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
    if (s.hosts.empty()) s.problems.push_back("DBIPAddr is empty: name the database host");
    return s;
}
