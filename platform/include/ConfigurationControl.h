#ifndef NORVA_PLATFORM_CONFIGURATIONCONTROL_H
#define NORVA_PLATFORM_CONFIGURATIONCONTROL_H

#include <string>

/// Process-wide settings read from a plain "key = value" file.
///
/// Unless Load() has succeeded before, the first call of any member reads
/// "norva.conf" from the current working directory (a missing file means the
/// defaults). "#" starts a comment; keys are DBIPAddr, IDPattern (0, 1, true,
/// false), LogLevel, LogFile, Profile (exact, safe), Connections (1 up), the
/// timeouts ConnectTimeout, ReadTimeout and WriteTimeout (seconds), the
/// account keys DBUser and DBPasswordFile, the TLS keys DBTLS, DBTLSCA,
/// DBTLSCert and DBTLSKey, and ClusterWrites (one, any).
/// Lines that cannot be understood are reported on standard error. A key that
/// chooses how the store behaves keeps its text even when it cannot be
/// understood: the store then refuses to run and says why, rather than fall
/// back to a default. All members are thread-safe.
class ConfigurationControl {
public:
    static std::wstring GetDBIPAddr();   ///< key DBIPAddr: tcp://HOST:PORT, unix:///path or a bare host (port 3306); default L"tcp://127.0.0.1:3306"
    static bool GetIDPattern();           ///< key IDPattern: true hands out the lowest free number; default false (sequential)
    static int GetLogLevel();             ///< key LogLevel: lines above it are dropped; default 3 (the data layer logs at 5)
    static std::string GetLogFile();      ///< key LogFile: file the log is appended to; default empty: standard error
    /// Configuration key Profile, "exact" (default) or "safe", as written
    /// (the store matches it without regard to case and refuses any other).
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
    static void SetProfile(const std::string& profile);  ///< "exact" or "safe"; the store refuses others
    static void SetConnections(int connections);         ///< below 1: the store refuses to run

    /// The text of `key` as written in the file or given to a setter; empty
    /// when it was not set.
    static std::string GetValue(const std::string& key);
    /// Sets the text of `key`, as a line of the file would.
    static void SetValue(const std::string& key, const std::string& text);

    /// Key ConnectTimeout: seconds a connect may take; -1 when not set or not a number.
    static int GetConnectTimeout();
    /// Key ReadTimeout: seconds the store waits for an answer; -1 when not set or not a number.
    static int GetReadTimeout();
    /// Key WriteTimeout: seconds a statement may take to send; -1 when not set or not a number.
    static int GetWriteTimeout();
    static void SetConnectTimeout(int seconds);  ///< see GetConnectTimeout
    static void SetReadTimeout(int seconds);     ///< see GetReadTimeout
    static void SetWriteTimeout(int seconds);    ///< see GetWriteTimeout

    /// Key DBUser: the database account; empty: the compiled-in one.
    static std::string GetDBUser();
    /// Key DBPasswordFile: a file holding DBUser's password on its first line.
    static std::string GetDBPasswordFile();
    /// Key DBTLS: off (default), required, verify-ca or verify-identity.
    static std::string GetDBTLS();
    static std::string GetDBTLSCA();    ///< key DBTLSCA: the CA file the server's certificate must chain to
    static std::string GetDBTLSCert();  ///< key DBTLSCert: a client certificate file
    static std::string GetDBTLSKey();   ///< key DBTLSKey: the client certificate's key file
    /// Key ClusterWrites: one (default for a host list) or any.
    static std::string GetClusterWrites();
    static void SetDBUser(const std::string& user);          ///< see GetDBUser
    static void SetDBPasswordFile(const std::string& path);  ///< see GetDBPasswordFile
    static void SetDBTLS(const std::string& mode);           ///< see GetDBTLS
    static void SetDBTLSCA(const std::string& path);         ///< see GetDBTLSCA
    static void SetDBTLSCert(const std::string& path);       ///< see GetDBTLSCert
    static void SetDBTLSKey(const std::string& path);        ///< see GetDBTLSKey
    static void SetClusterWrites(const std::string& mode);   ///< see GetClusterWrites
};

#endif
