#include "private/ConnectOptions.h"

#include <cppconn/resultset.h>
#include <cppconn/statement.h>

#include <memory>

sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password) {
    sql::ConnectOptionsMap options;
    options["hostName"] = sql::SQLString(host);
    options["userName"] = sql::SQLString(user);
    options["password"] = sql::SQLString(password);
    options["OPT_RECONNECT"] = true;
    options["schema"] = sql::SQLString("jdfdb");
    // Statements carry UTF-8 text; say so, whatever the client library's default.
    options["OPT_CHARSET_NAME"] = sql::SQLString("utf8mb4");
    // A change reports the rows it matched, not only those it altered.
    options["CLIENT_FOUND_ROWS"] = true;
    // A server that stops answering without closing its sockets must not
    // hold a call for ever: the connector gives up and reports the connection lost.
    options["OPT_CONNECT_TIMEOUT"] = settings.connectTimeout;
    options["OPT_READ_TIMEOUT"] = settings.readTimeout;
    options["OPT_WRITE_TIMEOUT"] = settings.writeTimeout;
    return options;
}

SessionNode PrepareSession(sql::Connection& connection, const StoreSettings& settings, bool severalHosts) {
    const bool safe = settings.profile == "safe";
    if (!severalHosts && !safe) return SessionNode::Plain;
    std::unique_ptr<sql::Statement> statement(connection.createStatement());
    // SHOW, unlike SELECT, never waits for the cluster (wsrep_sync_wait 1 covers reads only).
    std::unique_ptr<sql::ResultSet> status(statement->executeQuery(
        "SHOW GLOBAL STATUS WHERE Variable_name IN ('wsrep_provider_name', 'wsrep_ready', 'wsrep_local_state')"));
    std::string provider, ready, state;
    while (status->next()) {
        const std::string name = status->getString(1), value = status->getString(2);
        (name == "wsrep_provider_name" ? provider : name == "wsrep_ready" ? ready : state) = value;
    }
    if (provider.empty()) return SessionNode::Plain;
    const bool synced = ready == "ON" && state == "4";
    if (!synced && severalHosts) return SessionNode::NotSynced;
    if (safe) statement->execute("SET SESSION wsrep_sync_wait = 1");
    return synced ? SessionNode::Synced : SessionNode::NotSynced;
}
