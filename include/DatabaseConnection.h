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

// The MySQL connections of the process: one, or as many as the configuration
// key Connections asks for, read when the instance is made. Every statement
// of the store runs through Execute on one connection, which is checked
// first and re-opened when it is missing.
class CDatabaseConnection {
public:
    CDatabaseConnection(const std::string& hostName, const std::string& userName,
                        const std::string& password);
    ~CDatabaseConnection();

    static CDatabaseConnection* GetInstance(const std::string& hostName, const std::string& userName,
                                            const std::string& password);

    // Opens every connection; true when the last one opened.
    bool InitConnection();
    // Runs one statement; returns its result set (owned by the caller) or null.
    sql::ResultSet* ExecuteSqlQuery(std::string& query);

    // What one statement gave: its result set (owned by the caller; null when
    // the statement gives none or failed) and the server's error number
    // (0: none; -1: no connection could be had).
    struct Outcome {
        sql::ResultSet* rows;
        int error;
    };
    // ExecuteSqlQuery with the error number kept; same trace lines.
    Outcome Execute(std::string& query);

    // While a Pin lives, the statements its thread runs through this object
    // share one connection, which no other thread uses meanwhile (for work
    // that spans statements, such as LAST_INSERT_ID()). Pins of one thread
    // nest. With a single connection it has nothing to do. Take a Pin
    // before any lock of the store, never while holding one.
    class Pin {
    public:
        explicit Pin(CDatabaseConnection* connection);
        ~Pin();
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;

    private:
        CDatabaseConnection* m_pConnection;
    };

    // How many connections statements are spread over (the Connections key).
    int Size() const;

    // Re-opens the connection the calling thread would use. False even when
    // it worked: the caller's statement is not run on the new connection.
    bool ReEstablishConnection();

    // The pool is internal: these exist and do nothing.
    sql::Connection* GetDBConnecion();
    bool ReInitConnectionPool();
    void ReleaseConnection();
    void DestroyConnectionPool();

    static CDatabaseConnection* m_hInstance;

    CDatabaseConnection(const CDatabaseConnection&) = delete;
    CDatabaseConnection& operator=(const CDatabaseConnection&) = delete;

private:
    struct Slot;
    struct Pool;
    class Lease;

    bool Connect(Slot& slot);
    bool ReEstablish(Slot& slot);

    std::string m_userName;
    std::string m_password;
    std::string m_hostName;
    sql::Driver* m_pDriver;
    bool m_bConnected;
    Logger* m_pLogger;
    std::unique_ptr<Pool> m_pPool;
};

#endif
