#ifndef NORVA_PLATFORM_CONFIGURATIONCONTROL_H
#define NORVA_PLATFORM_CONFIGURATIONCONTROL_H

#include <string>

// Process-wide settings read from a plain "key = value" file.
//
// Unless Load() has succeeded before, the first call of any member reads
// "norva.conf" from the current working directory (a missing file means the
// defaults). "#" starts a comment; keys are DBIPAddr, IDPattern (0, 1, true,
// false), LogLevel, LogFile, Profile (exact, safe) and Connections (1 up). Lines that cannot be understood are reported
// on standard error and ignored. All members are thread-safe.
class ConfigurationControl {
public:
    static std::wstring GetDBIPAddr();   // default L"tcp://127.0.0.1:3306"
    static bool GetIDPattern();           // default false (sequential identifiers)
    static int GetLogLevel();             // default 3
    static std::string GetLogFile();      // default empty: standard error
    // "exact" (default): SQL, results and log lines as hosts written for this
    // library expect them. "safe": escaped values, quoted names, time stamps,
    // truthful writes, identifiers unique across processes. Read once, when
    // the store is created.
    static std::string GetProfile();
    // How many connections the store may run statements on at once (default 1).
    static int GetConnections();

    // Replaces the whole configuration, values set with the setters included,
    // by the defaults overlaid with the file. False, with nothing changed, when
    // the file cannot be read.
    static bool Load(const std::string& path);

    // Overrides for embedding hosts and tests; the getters return these values
    // until the next Load().
    static void SetDBIPAddr(const std::wstring& address);
    static void SetIDPattern(bool pattern);
    static void SetProfile(const std::string& profile);  // "exact" or "safe"; others ignored
    static void SetConnections(int connections);         // below 1 ignored
};

#endif
