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

// The one MySQL connection of the process. Every statement of the store
// runs through ExecuteSqlQuery, which checks the connection first and
// re-opens it when it is missing.
class CDatabaseConnection {
public:
    CDatabaseConnection(const std::string& hostName, const std::string& userName,
                        const std::string& password);
    ~CDatabaseConnection();

    static CDatabaseConnection* GetInstance(const std::string& hostName, const std::string& userName,
                                            const std::string& password);

    bool InitConnection();
    // Runs one statement; returns its result set (owned by the caller) or null.
    sql::ResultSet* ExecuteSqlQuery(std::string& query);

    // What one statement gave: its result set (owned by the caller; null when
    // the statement gives none or failed), the server's error number (0: none;
    // -1: no connection could be had) and, for a change, the rows it matched.
    struct Outcome {
        sql::ResultSet* rows;
        int error;
        long long matched;
    };
    // ExecuteSqlQuery with the error number kept; same trace lines.
    Outcome Execute(std::string& query);

    // While a Pin lives, the statements its thread runs through this object
    // share one connection (for work that spans statements, such as
    // LAST_INSERT_ID()). With a single connection it has nothing to do.
    class Pin {
    public:
        explicit Pin(CDatabaseConnection* connection) : m_pConnection(connection) {}
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;

    private:
        CDatabaseConnection* m_pConnection;
    };
    bool ReEstablishConnection();

    // There is no pool: these exist and do nothing.
    sql::Connection* GetDBConnecion();
    bool ReInitConnectionPool();
    void ReleaseConnection();
    void DestroyConnectionPool();

    static CDatabaseConnection* m_hInstance;

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
