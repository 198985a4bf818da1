#ifndef NORVA_PLATFORM_CONFIGURATIONCONTROL_H
#define NORVA_PLATFORM_CONFIGURATIONCONTROL_H

#include <string>

/// Process-wide settings read from a plain "key = value" file.
///
/// Unless Load() has succeeded before, the first call of any member reads
/// "norva.conf" from the current working directory (a missing file means the
/// defaults). "#" starts a comment; keys are DBIPAddr, IDPattern (0, 1, true,
/// false), LogLevel, LogFile, Profile (exact, safe) and Connections (1 up).
/// Lines that cannot be understood are reported on standard error and ignored. All members are thread-safe.
class ConfigurationControl {
public:
    static std::wstring GetDBIPAddr();   ///< key DBIPAddr: tcp://HOST:PORT, unix:///path or a bare host (port 3306); default L"tcp://127.0.0.1:3306"
    static bool GetIDPattern();           ///< key IDPattern: true hands out the lowest free number; default false (sequential)
    static int GetLogLevel();             ///< key LogLevel: lines above it are dropped; default 3 (the data layer logs at 5)
    static std::string GetLogFile();      ///< key LogFile: file the log is appended to; default empty: standard error
    /// Configuration key Profile, "exact" (default) or "safe".
    ///
    /// "exact": the SQL sent, the results and the log lines are those hosts
    /// written for this library expect, quirks included (unescaped values,
    /// no time stamps, some NULL numbers read as 0, writes that always
    /// report success, identifiers unique only within one process).
    ///
    /// "safe": values are escaped and names quoted in every statement; time
    /// stamps are really written and read; NULL reads as "not set" (-1,
    /// empty, TimeStamp(0)); a write reports `false` when the server did not
    /// change the row; identifiers are unique across processes sharing one
    /// database; a record is written in one statement, not one per column.
    ///
    /// Read once, when the store is created: set it before the first
    /// CDataAccessProvider::GetInstance().
    static std::string GetProfile();
    /// Configuration key Connections: how many connections the store may run
    /// statements on at once (N from 1 up, default 1). With 1, every
    /// statement of the process waits for the one before it. Read when the
    /// store is created.
    static int GetConnections();

    /// Replaces the whole configuration, values set with the setters included,
    /// by the defaults overlaid with the file. False, with nothing changed, when
    /// the file cannot be read.
    static bool Load(const std::string& path);

    /// Overrides DBIPAddr. Like every setter, for embedding hosts and tests:
    /// the getters return the value until the next Load(). Settings the
    /// store reads at creation must be set before the facade is first used.
    static void SetDBIPAddr(const std::wstring& address);
    /// Overrides IDPattern (see GetIDPattern).
    static void SetIDPattern(bool pattern);
    static void SetProfile(const std::string& profile);  ///< "exact" or "safe"; others ignored
    static void SetConnections(int connections);         ///< below 1 ignored
};

#endif
