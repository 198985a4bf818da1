#include "DatabaseConnection.h"

#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/connection.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/prepared_statement.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <mysql_driver.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <vector>

#include "private/ConnectOptions.h"
#include "private/ConnectionAccess.h"
#include "private/HostList.h"
#include "private/MutexLock.h"
#include "private/PreparedCache.h"
#include "private/ServerErrors.h"
#include "private/StoreSettings.h"

namespace {
const LOG_CONST kLevel = LOG_LEVEL_5;
// The source path reported when connecting fails.
const char* const kSourcePath = "../../src/DatabaseConnection";
// Errors after which a prepared statement is gone while its connection lives
// on: the connector reconnected by itself (2030 not prepared, 2056 closed) or
// the server does not know it (1243). The statement never ran: it is prepared
// again, on a session set up again, and run once more.
bool StatementGone(int error) { return error == 2030 || error == 2056 || error == 1243; }
// A connection taken after this long is asked again whether its node is usable.
const std::chrono::milliseconds kCheckAfter(1000);
}  // namespace

// One connection, the lock its statements run under, and its prepared statements.
struct CDatabaseConnection::Slot {
    mutex lock;
    sql::Connection* connection = nullptr;
    std::mutex lease;  // held by the thread the connection is leased to
    PreparedCache prepared{kPreparedPerConnection};
    bool sessionLost = false;  // the connector may have opened it again: set the session up anew
    size_t host = 0;   // the connection's place in the host list
    bool clusterNode = false;  // its server is a Galera node
    std::chrono::steady_clock::time_point checked;  // when its node was last found usable
};

// The connections. With one, every thread uses it and its lock serialises
// the statements; with more, a thread leases a free one for each statement
// (or for the life of its Pin). Each thread has a home connection, the
// threads spread evenly over them: it takes the first free one from its home
// on and, when all are leased, waits for its home one. So a release wakes at
// most the threads of one home (one, with twice as many threads as
// connections), not every waiting thread, and no lock is shared by all.
// A thread holds one lease at a time and takes no lease while it holds an
// identifier lock, so waiting for one connection cannot deadlock.
struct CDatabaseConnection::Pool {
    explicit Pool(int count) : slots(new Slot[count]), size(count) {}
    std::unique_ptr<Slot[]> slots;
    const int size;
    std::atomic<unsigned> threads{0};  // threads that have leased so far, for their homes
    mutex connecting;  // the driver is set up and used to connect by one thread at a time
    // Prepared statements of connections whose server was lost: kept, never closed.
    std::vector<std::unique_ptr<sql::PreparedStatement>> abandoned;
    void Abandon(PreparedCache& prepared) {
        MutexLock lock(connecting);
        prepared.Abandon(abandoned);
    }

    int Acquire() {
        thread_local const unsigned t_thread = threads.fetch_add(1, std::memory_order_relaxed);
        const int home = static_cast<int>(t_thread % static_cast<unsigned>(size));
        for (int k = 0; k < size; ++k) {
            const int i = (home + k) % size;
            if (slots[i].lease.try_lock()) return i;
        }
        slots[home].lease.lock();
        return home;
    }
    void Release(int index) { slots[index].lease.unlock(); }
};

namespace {
// The connection the calling thread's Pin holds, if any.
struct PinState {
    const CDatabaseConnection* owner = nullptr;
    int slot = -1;
    int depth = 0;
};
thread_local PinState t_pin;
}  // namespace

// The connection one statement runs on: the only one, the thread's pinned
// one, or a free one leased until the statement is done.
class CDatabaseConnection::Lease {
public:
    explicit Lease(CDatabaseConnection& owner) : m_pool(*owner.m_pPool), m_index(0), m_leased(false) {
        if (m_pool.size == 1) return;
        if (t_pin.owner == &owner) {
            m_index = t_pin.slot;
            return;
        }
        m_index = m_pool.Acquire();
        m_leased = true;
    }
    ~Lease() {
        if (m_leased) m_pool.Release(m_index);
    }
    Slot& slot() { return m_pool.slots[m_index]; }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

private:
    Pool& m_pool;
    int m_index;
    bool m_leased;
};

ConnectionPin::ConnectionPin(CDatabaseConnection* connection) : m_pConnection(nullptr) {
    if (connection == nullptr || connection->m_pPool->size == 1) return;
    if (t_pin.owner == connection) {
        ++t_pin.depth;
    } else if (t_pin.owner == nullptr) {
        t_pin.slot = connection->m_pPool->Acquire();
        t_pin.owner = connection;
        t_pin.depth = 1;
    } else {
        return;  // pinned to another instance: this one stays unpinned
    }
    m_pConnection = connection;
}

ConnectionPin::~ConnectionPin() {
    if (m_pConnection == nullptr || --t_pin.depth > 0) return;
    m_pConnection->m_pPool->Release(t_pin.slot);
    t_pin = PinState();
}

CDatabaseConnection* CDatabaseConnection::m_hInstance = nullptr;

CDatabaseConnection::CDatabaseConnection(const std::string& hostName, const std::string& userName,
                                         const std::string& password)
    : m_userName(userName),
      m_password(password),
      m_hostName(hostName),
      m_pDriver(nullptr),
      m_bConnected(false),
      m_pLogger(Logger::Initialise()),
      m_pSettings(new StoreSettings(ReadStoreSettings())),
      m_pHosts(new HostList(hostName, m_pSettings->clusterWrites)),
      m_pPool(new Pool(std::max(1, m_pSettings->connections))) {
    for (const std::string& line : ConnectionWarnings(*m_pSettings)) m_pLogger->log(kLevel, L"%s", line.c_str());
    InitConnection();
}

// The connections are neither closed nor freed: they live until the process ends.
CDatabaseConnection::~CDatabaseConnection() {}

CDatabaseConnection* CDatabaseConnection::GetInstance(const std::string& hostName, const std::string& userName,
                                                      const std::string& password) {
    if (m_hInstance == nullptr) m_hInstance = new CDatabaseConnection(hostName, userName, password);
    return m_hInstance;
}

int ConnectionAccess::Size(const CDatabaseConnection& connection) { return connection.m_pPool->size; }

// Not while statements run: the connections are replaced without their locks.
bool CDatabaseConnection::InitConnection() {
    for (int i = 0; i < m_pPool->size; ++i) Connect(m_pPool->slots[i]);
    return m_bConnected;
}

bool CDatabaseConnection::Connect(Slot& slot) {
    MutexLock lock(m_pPool->connecting);
    // A connection object held before is dropped, not closed (docs/kept-behaviours.md, C1).
    m_pDriver = nullptr;
    // Its prepared statements go first, while the connection they belong to lives.
    slot.prepared.Clear();
    slot.connection = nullptr;
    // One try per host of DBIPAddr until one answers (a single host: one
    // try), resting hosts passed over; with every host resting, the current
    // one is tried once its rest is over.
    std::vector<size_t> hosts;
    for (size_t n = 0; n < m_pHosts->Size(); ++n)
        if (!m_pHosts->Resting(m_pHosts->Attempt(n))) hosts.push_back(m_pHosts->Attempt(n));
    if (hosts.empty()) {
        hosts.push_back(m_pHosts->Attempt(0));
        m_pHosts->WaitRested(hosts[0]);
    }
    for (size_t host : hosts) try {
        m_pDriver = get_driver_instance();
        slot.connection = Open(host, slot);
        if (slot.connection == nullptr) continue;
        m_bConnected = true;
        m_pHosts->Answered(slot.host);
        slot.sessionLost = false;  // Open set the session up
        break;
    } catch (sql::SQLException& e) {
        m_pLogger->log(kLevel, L"SQLException in %s", kSourcePath);
        m_pLogger->log(kLevel, L"ERROR: %s", e.what());
        m_pLogger->log(kLevel, L"MySQL error code: %d", e.getErrorCode());
        m_pLogger->log(kLevel, L"SQLState: %s", e.getSQLState().c_str());
        if (ClassifyServerError(e.getErrorCode()) == ServerError::Lost) {
            m_pHosts->Rest(host);
            continue;
        }
        // The server is there and said no (a refused login, a TLS set-up that
        // failed): every other host would say the same.
        m_pLogger->log(kLevel, L"CDatabaseConnection : %s refused the connection (error %d); no other host is tried",
                       m_pHosts->Name(host).c_str(), e.getErrorCode());
        break;
    } catch (std::exception& e) {
        m_pLogger->log(kLevel, L" CDatabaseConnection::InitConnection:Error in %s", kSourcePath);
        m_pLogger->log(kLevel, L"CDatabaseConnection::InitConnection: Error %s", e.what());
    }
    return m_bConnected;
}

// A new connection to the host at `index`, its session set up; null when the
// host is a cluster node that may not be used now. Throws when it cannot connect.
sql::Connection* CDatabaseConnection::Open(size_t index, Slot& slot) {
    const std::string& host = m_pHosts->Name(index);
    std::unique_ptr<sql::Connection> connection(
        OpenConnection(*get_driver_instance(), *m_pSettings, host, m_userName, m_password));
    const SessionNode node = PrepareSession(*connection, *m_pSettings, m_pHosts->Size() > 1);
    if (node == SessionNode::NotSynced && m_pHosts->Size() > 1) {
        m_pLogger->log(kLevel, L"CDatabaseConnection: %s is a cluster node that is not synced: passed over",
                       host.c_str());
        return nullptr;
    }
    slot.host = index;
    slot.clusterNode = node != SessionNode::Plain;
    slot.checked = std::chrono::steady_clock::now();
    return connection.release();
}

// Before each statement on a host list, or on a cluster node: a connection
// whose host another connection of this process has left follows it (one
// writer); one taken kCheckAfter after its last check asks its node again and
// moves on when the node is no longer synced; and a writer on a later host
// than the first looks, every few seconds, whether an earlier one is usable
// again. False when no host is usable now.
bool CDatabaseConnection::OnUsableNode(Slot& slot) {
    const bool several = m_pHosts->Size() > 1;
    if (!several && !slot.clusterNode) return true;
    const auto now = std::chrono::steady_clock::now();
    if (m_pHosts->OneWriter() && slot.host != m_pHosts->Current()) {
        Connect(slot);
    } else if (now - slot.checked >= kCheckAfter) {
        slot.checked = now;
        SessionNode node = SessionNode::NotSynced;  // also when the server does not answer
        try {
            node = PrepareSession(*slot.connection, *m_pSettings, several);
        } catch (std::exception&) {
        }
        if (several && node == SessionNode::NotSynced) {
            m_pLogger->log(kLevel, L"CDatabaseConnection: %s no longer answers as a synced cluster node: moving on",
                           m_pHosts->Name(slot.host).c_str());
            Connect(slot);
        } else if (m_pHosts->ReturnDue()) {
            ReturnToEarlier(slot);
        }
    }
    return slot.connection != nullptr;
}

// One writer on a later host: the first earlier host that answers and is
// usable takes the statements again. The connection left is dropped, as by
// Connect. An earlier host that lets a connect wait is asked again much later.
void CDatabaseConnection::ReturnToEarlier(Slot& slot) {
    MutexLock lock(m_pPool->connecting);
    for (size_t index = 0; index < slot.host; ++index) {
        if (m_pHosts->Resting(index)) continue;
        const auto started = std::chrono::steady_clock::now();
        try {
            sql::Connection* connection = Open(index, slot);
            if (connection == nullptr) continue;
            slot.prepared.Clear();  // they belong to the connection left
            slot.connection = connection;
            slot.sessionLost = false;
            m_pHosts->Answered(index);
            m_pLogger->log(kLevel, L"CDatabaseConnection: %s is usable again: back on it",
                           m_pHosts->Name(index).c_str());
            return;
        } catch (std::exception&) {
            if (std::chrono::steady_clock::now() - started > std::chrono::seconds(1)) m_pHosts->DelayReturn(30000);
        }
    }
}


// A connection whose host was lost: with other hosts it moves on before its
// next statement; alone, that statement waits for the host's rest to end, so
// the connector's own reconnect does not hammer a down server.
void CDatabaseConnection::LeaveRestingHost(Slot& slot) {
    if (slot.connection == nullptr || !m_pHosts->Resting(slot.host)) return;
    if (m_pHosts->Size() == 1) {
        m_pHosts->WaitRested(slot.host);
        return;
    }
    MutexLock lock(slot.lock);
    if (m_pHosts->Resting(slot.host)) MoveOn(slot);  // another thread sharing the slot may have moved it on
}

// The slot's server is lost (and another host is left, or the connector will
// not reconnect by itself): the old connection is closed and freed, its
// prepared statements first (a small quit message, which the socket takes at
// once even when nobody reads it; result sets already handed out hold their
// own rows), then the connect goes on to the next host.
void CDatabaseConnection::MoveOn(Slot& slot) {
    slot.prepared.Clear();
    delete slot.connection;
    slot.connection = nullptr;
    Connect(slot);
}

sql::ResultSet* CDatabaseConnection::ExecuteSqlQuery(std::string& query) {
    Statement statement;
    statement.text = query;
    return ConnectionAccess::Run(*this, statement).rows.release();
}

namespace {

// Runs one statement on `connection`: as text, or prepared (kept in
// `prepared`) with its values bound. Takes the result set or the number of
// rows a change matched.
void RunOnce(sql::Connection& connection, PreparedCache& prepared, const Statement& statement, Logger* logger,
             Outcome& outcome) {
    if (statement.bound) {
        PreparedCache::Prepared& entry = prepared.Get(connection, statement.text);
        sql::PreparedStatement& bound = *entry.statement;
        bound.clearParameters();
        unsigned int index = 1;
        for (const BoundValue& value : statement.values) {
            switch (value.kind) {
                case BoundValue::Kind::Null: bound.setNull(index, 0); break;
                case BoundValue::Kind::Int: bound.setInt(index, static_cast<int32_t>(value.number)); break;
                case BoundValue::Kind::Long: bound.setInt64(index, value.number); break;
                case BoundValue::Kind::Double: bound.setDouble(index, value.real); break;
                case BoundValue::Kind::Text: bound.setString(index, value.text); break;
            }
            ++index;
        }
        if (entry.givesRows) {
            logger->log(kLevel, L"ExecuteSqlQuery::Getting result set");
            outcome.rows.reset(bound.executeQuery());
        } else {
            outcome.matched = bound.executeUpdate();
        }
    } else {
        std::unique_ptr<sql::Statement> plain(connection.createStatement());
        if (plain->execute(statement.text)) {
            logger->log(kLevel, L"ExecuteSqlQuery::Getting result set");
            outcome.rows.reset(plain->getResultSet());
        } else {
            outcome.matched = static_cast<long long>(plain->getUpdateCount());
        }
    }
    outcome.error = 0;
}

}  // namespace

Outcome ConnectionAccess::Run(CDatabaseConnection& owner, const Statement& statement) {
    Logger* logger = owner.m_pLogger;
    logger->log(kLevel, L"Inside CDatabaseConnection::ExecuteSqlQuery");
    CDatabaseConnection::Lease lease(owner);
    CDatabaseConnection::Slot& slot = lease.slot();
    owner.LeaveRestingHost(slot);
    Outcome outcome;
    if (slot.connection == nullptr || slot.connection->isClosed()) {
        logger->log(kLevel, L"CDatabaseConnection::ExecuteSqlQuery : Database connection is not available.");
        if (!owner.ReEstablish(slot)) {
            logger->log(kLevel,
                        L"CDatabaseConnection::ExecuteSqlQuery : Database connection could not be reestablished.");
            outcome.kind = ServerError::Lost;
            return outcome;
        }
    }
    {
        MutexLock lock(slot.lock);
        if (!owner.OnUsableNode(slot)) {
            logger->log(kLevel, L"CDatabaseConnection::ExecuteSqlQuery : Database connection is not available.");
            outcome.kind = ServerError::Lost;
            return outcome;
        }
        for (int attempt = 0; attempt < 2; ++attempt) {
            int error = 0;
            try {
                if (slot.sessionLost) {
                    slot.prepared.Clear();
                    PrepareSession(*slot.connection, *owner.m_pSettings, owner.m_pHosts->Size() > 1);
                    slot.sessionLost = false;
                }
                RunOnce(*slot.connection, slot.prepared, statement, logger, outcome);
            } catch (sql::SQLException& e) {
                error = e.getErrorCode() != 0 ? StatementError(e.getErrorCode()) : -1;
                const std::wstring message = StringUtils::wstringFromstring(e.what());
                const std::wstring state = StringUtils::wstringFromstring(e.getSQLState());
                logger->log(kLevel, L"SQLException:");
                logger->log(kLevel, L"ERROR: %ls", message.c_str());
                logger->log(kLevel, L"MySQL error code: %d", e.getErrorCode());
                logger->log(kLevel, L"SQLState: %ls", state.c_str());
            } catch (std::exception& e) {
                const std::wstring message = StringUtils::wstringFromstring(e.what());
                error = -1;
                logger->log(kLevel, L"Exception while executing query:");
                logger->log(kLevel, L"ERROR: %ls", message.c_str());
            } catch (...) {
                error = -1;
                logger->log(kLevel, L"Unknown exception occured  in CDatabaseConnection::ExecuteSqlQuery");
            }
            outcome.error = error;
            outcome.kind = ClassifyServerError(error);
            if (error == 0) break;
            // The server no longer holds this connection's prepared statements.
            if (outcome.kind == ServerError::Lost) {
                owner.m_pPool->Abandon(slot.prepared);
                slot.sessionLost = true;
            } else if (StatementGone(error)) {
                slot.prepared.Clear();
                slot.sessionLost = true;
            }
            if (!statement.bound || !StatementGone(error)) break;
        }
        // A lost server rests; with several hosts this connection moves on to
        // the next now. So does one the connector may not reconnect by itself
        // (TLS checked after connecting), to the same host after its rest.
        if (outcome.kind == ServerError::Lost) {
            owner.m_pHosts->Rest(slot.host);
            if (owner.m_pHosts->Lost(outcome.error) || !ConnectorReconnects(*owner.m_pSettings)) owner.MoveOn(slot);
        } else {
            owner.m_pHosts->Serving(slot.host);
        }
    }
    logger->log(kLevel, L"Exiting CDatabaseConnection::ExecuteQuery");
    return outcome;
}

bool CDatabaseConnection::ReEstablishConnection() {
    Lease lease(*this);
    return ReEstablish(lease.slot());
}

bool CDatabaseConnection::ReEstablish(Slot& slot) {
    // Kept as it stands (docs/kept-behaviours.md, C1): the answer is false
    // even when a new connection was made.
    MutexLock lock(slot.lock);
    try {
        Connect(slot);
    } catch (...) {
        m_pLogger->log(kLevel, L"CDatabaseConnection:ReEstablishConnection failed");
    }
    return false;
}

sql::Connection* CDatabaseConnection::GetDBConnecion() { return nullptr; }

bool CDatabaseConnection::ReInitConnectionPool() { return false; }

void CDatabaseConnection::ReleaseConnection() {}

void CDatabaseConnection::DestroyConnectionPool() {}
