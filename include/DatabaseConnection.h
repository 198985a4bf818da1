#ifndef NORVA_DATABASECONNECTION_H
#define NORVA_DATABASECONNECTION_H

#include <memory>
#include <string>

#include "mutex.h"

namespace sql {
class Connection;
class Driver;
class ResultSet;
}  // namespace sql
class Logger;
class HostList;

/// The one MySQL connection of the process. Every statement of the store
/// runs through ExecuteSqlQuery, which checks the connection first and
/// re-opens it when it is missing.
class CDatabaseConnection {
public:
    /// Connects at once (see InitConnection); a failure is only logged, and
    /// the first statement tries again. Use GetInstance().
    CDatabaseConnection(const std::string& hostName, const std::string& userName,
                        const std::string& password);
    /// Does not close the connection.
    ~CDatabaseConnection();

    /// The connection of the process, created on the first call with these
    /// credentials (later arguments are ignored). The store makes that call
    /// with DBIPAddr and the compiled-in account. Not synchronised.
    static CDatabaseConnection* GetInstance(const std::string& hostName, const std::string& userName,
                                            const std::string& password);

    /// Opens a connection to schema jdfdb with the stored host and account
    /// (utf8mb4, automatic reconnect). `false` when the connector refused;
    /// its message, error number and SQL state are logged ("SQLException in",
    /// "ERROR: ...", "MySQL error code: ...", "SQLState: ...").
    bool InitConnection();
    /// Runs one statement; returns its result set (owned by the caller) or null.
    sql::ResultSet* ExecuteSqlQuery(std::string& query);

    /// What one statement gave.
    struct Outcome {
        sql::ResultSet* rows;  ///< the result set, owned by the caller; null without one or on failure
        int error;  ///< the server's error number; 0: none; -1: no connection could be had
        long long matched;  ///< for a change: the rows it matched
    };
    /// ExecuteSqlQuery with the error number kept; same trace lines.
    Outcome Execute(std::string& query);

    /// While a Pin lives, the statements its thread runs through this object
    /// share one connection (for work that spans statements, such as
    /// LAST_INSERT_ID()). With a single connection it has nothing to do.
    class Pin {
    public:
        /// Marks the calling thread's statements on `connection` until destroyed.
        explicit Pin(CDatabaseConnection* connection) : m_pConnection(connection) {}
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;

    private:
        CDatabaseConnection* m_pConnection;
    };
    /// Opens a new connection after a drop. Answers `false` even when it
    /// succeeded, so the statement that noticed the drop is not run (its
    /// caller sees a failure) and the next one uses the new connection.
    bool ReEstablishConnection();

    /// There is no pool: these exist and do nothing.
    /// Null: there is no pool to hand out from.
    sql::Connection* GetDBConnecion();
    /// `false`: there is no pool.
    bool ReInitConnectionPool();
    /// Does nothing.
    void ReleaseConnection();
    /// Does nothing.
    void DestroyConnectionPool();

    /// The instance GetInstance() hands out; null before the first call.
    static CDatabaseConnection* m_hInstance;

    /// Not copyable.
    CDatabaseConnection(const CDatabaseConnection&) = delete;
    CDatabaseConnection& operator=(const CDatabaseConnection&) = delete;

private:
    mutex m_mutex;
    std::string m_userName;
    std::string m_password;
    std::string m_hostName;
    sql::Connection* m_pConnection;
    sql::Driver* m_pDriver;
    bool m_bConnected;
    Logger* m_pLogger;
    std::unique_ptr<HostList> m_pHosts;  // the hosts of hostName, tried in turn
};

#endif
