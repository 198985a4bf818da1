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
struct StoreSettings;

/// The MySQL connections of the process: one, or as many as the configuration
/// key Connections asks for, read when the instance is made. Every statement
/// of the store runs through Execute on one connection, which is checked
/// first and re-opened when it is missing.
class CDatabaseConnection {
public:
    /// Connects at once (see InitConnection); a failure is only logged, and
    /// the first statement tries again. Use GetInstance().
    CDatabaseConnection(const std::string& hostName, const std::string& userName,
                        const std::string& password);
    /// Does not close the connections.
    ~CDatabaseConnection();

    /// The connections of the process, created on the first call with these
    /// credentials (later arguments are ignored). The store makes that call
    /// with DBIPAddr and the compiled-in account. Not synchronised.
    static CDatabaseConnection* GetInstance(const std::string& hostName, const std::string& userName,
                                            const std::string& password);

    /// Opens every connection to schema jdfdb with the stored host and account
    /// (utf8mb4, automatic reconnect). `false` when the connector refused the
    /// last one; its message, error number and SQL state are logged
    /// ("SQLException in", "ERROR: ...", "MySQL error code: ...", "SQLState: ...").
    bool InitConnection();
    /// Runs one statement; returns its result set (owned by the caller) or null.
    sql::ResultSet* ExecuteSqlQuery(std::string& query);

    /// Re-opens the connection the calling thread would use. Answers `false`
    /// even when it succeeded, so the statement that noticed the drop is not
    /// run (its caller sees a failure) and the next one uses the new connection.
    bool ReEstablishConnection();

    /// The pool is internal: null.
    sql::Connection* GetDBConnecion();
    /// `false`: the pool is internal.
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
    friend struct ConnectionAccess;
    friend class ConnectionPin;
    struct Slot;
    struct Pool;
    class Lease;

    bool Connect(Slot& slot);
    sql::Connection* Open(size_t index, Slot& slot);
    bool OnUsableNode(Slot& slot);
    void ReturnToEarlier(Slot& slot);
    bool ReEstablish(Slot& slot);
    void LeaveRestingHost(Slot& slot);
    void MoveOn(Slot& slot);

    std::string m_userName;
    std::string m_password;
    std::string m_hostName;
    sql::Driver* m_pDriver;
    bool m_bConnected;
    Logger* m_pLogger;
    std::unique_ptr<StoreSettings> m_pSettings;  // read once, when the object is made
    std::unique_ptr<HostList> m_pHosts;  // the hosts of hostName, tried in turn
    std::unique_ptr<Pool> m_pPool;
};

#endif
